#include "engine/scene/maths.h"

#include <gtest/gtest.h>

namespace {

constexpr float kHalfPi = 1.57079632679f;

void ExpectNear(const Vector& v, const Vector& expected, float tolerance = 1e-6f) {
    EXPECT_NEAR(v.x, expected.x, tolerance);
    EXPECT_NEAR(v.y, expected.y, tolerance);
    EXPECT_NEAR(v.z, expected.z, tolerance);
}

// Rows are the images of the axes: rotated, then scaled per axis; then a translation. The fourth
// column gets junk so that any affine operation that reads it shows up.
Matrix RotationScaleTranslation(const Vector& axis, float angle, const Vector& scale,
                                const Vector& translation) {
    const Vector units[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    const float scales[3] = {scale.x, scale.y, scale.z};
    Matrix m;
    for (int row = 0; row < 3; ++row) {
        Vector image;
        VectorRotate(image, units[row], axis, angle);
        VectorScale(image, scales[row]);
        m[row * 4] = image.x;
        m[row * 4 + 1] = image.y;
        m[row * 4 + 2] = image.z;
    }
    m[12] = translation.x;
    m[13] = translation.y;
    m[14] = translation.z;
    m[3] = 5.0f;
    m[7] = -2.0f;
    m[11] = 9.0f;
    m[15] = 0.5f;
    return m;
}

Matrix WithAffineColumn(Matrix m) {
    m[3] = m[7] = m[11] = 0.0f;
    m[15] = 1.0f;
    return m;
}

}  // namespace

TEST(VectorMaths, NormalizeReturnsOldLengthAndHasNoEpsilon) {
    Vector v = {3, 0, 4};
    EXPECT_FLOAT_EQ(VectorNormalize(v), 5.0f);
    ExpectNear(v, {0.6f, 0.0f, 0.8f});
    Vector tiny = {3e-10f, 0, -4e-10f};
    EXPECT_FLOAT_EQ(VectorNormalize(tiny), 5e-10f);
    ExpectNear(tiny, {0.6f, 0.0f, -0.8f});
    // The squared length 1e-40 is still a (subnormal) float, so this is normalised too.
    Vector subnormal = {0, 1e-20f, 0};
    EXPECT_NEAR(VectorNormalize(subnormal), 1e-20f, 1e-24f);
    ExpectNear(subnormal, {0.0f, 1.0f, 0.0f}, 1e-4f);
    // Here the squared length rounds to 0 as a float: the vector counts as zero and stays.
    Vector vanishing = {1e-30f, 0, 0};
    EXPECT_EQ(VectorNormalize(vanishing), 0.0f);
    EXPECT_EQ(vanishing.x, 1e-30f);
    Vector zero = {0, 0, 0};
    EXPECT_EQ(VectorNormalize(zero), 0.0f);
    ExpectNear(zero, {0, 0, 0}, 0);
}

TEST(VectorMaths, DotSumsZThenYThenX) {
    const float big = 1073741824.0f;  // 2^30: the y and z products (2^60) cancel
    // Summed z first, the cancellation happens before the 1 is added and the 1 survives.
    EXPECT_EQ(VectorDot({1, big, big}, {1, big, -big}), 1.0f);
    // The same terms with x and y swapped: now the 1 is absorbed by -2^60 first.
    EXPECT_EQ(VectorDot({big, 1, big}, {big, 1, -big}), 0.0f);
}

TEST(VectorMaths, CrossAndComponentOperationsKeepArgumentOrder) {
    Vector out;
    VectorCross(out, {1, 2, 3}, {4, 5, 6});
    ExpectNear(out, {-3, 6, -3}, 0);
    VectorCross(out, {1, 0, 0}, {0, 1, 0});  // no sign change for the left-handed world
    ExpectNear(out, {0, 0, 1}, 0);
    VectorSubtract({5, 7, 9}, {1, 2, 3}, out);
    ExpectNear(out, {4, 5, 6}, 0);
    VectorAdd({5, 7, 9}, {1, 2, -3}, out);
    VectorScale(out, -0.5f);
    ExpectNear(out, {-3, -4.5f, -3}, 0);
    EXPECT_FLOAT_EQ(VectorLength({2, -3, 6}), 7.0f);
}

TEST(VectorMaths, RotateGivesUnitResultAndAllowsAliasing) {
    Vector out;
    VectorRotate(out, {2, 0, 0}, {0, 0, 2}, kHalfPi);
    ExpectNear(out, {0, 1, 0});  // unit length: the 2 is not kept
    VectorRotate(out, {1, 0, 0}, {0, 1, 0}, kHalfPi);
    ExpectNear(out, {0, 0, -1});

    const Vector v = {1, 2, 3};
    const Vector axis = {0.3f, -1, 0.5f};
    Vector separate;
    VectorRotate(separate, v, axis, 0.7f);
    EXPECT_NEAR(VectorLength(separate), 1.0f, 1e-6f);
    // The component along the axis is what a rotation keeps.
    Vector unitV = v, unitAxis = axis;
    VectorNormalize(unitV);
    VectorNormalize(unitAxis);
    EXPECT_NEAR(VectorDot(separate, unitAxis), VectorDot(unitV, unitAxis), 1e-6f);

    Vector inPlace = v, axisAlias = axis;
    VectorRotate(inPlace, inPlace, axis, 0.7f);
    VectorRotate(axisAlias, v, axisAlias, 0.7f);
    ExpectNear(inPlace, separate, 0);
    ExpectNear(axisAlias, separate, 0);
    Vector zero = {0, 0, 0};
    VectorRotate(zero, zero, axis, 0.7f);
    ExpectNear(zero, {0, 0, 0}, 0);
}

TEST(MatrixMaths, ApplyAndApplyRotation) {
    Matrix m = RotationScaleTranslation({0, 0, 1}, kHalfPi, {2, 3, 1}, {10, 20, 30});
    Vector out;
    MatrixApply(m, {1, 1, 1}, out);  // x -> 2y, y -> -3x, z -> z, then the translation
    ExpectNear(out, {7, 22, 31}, 1e-5f);
    MatrixApplyRotation(m, {1, 1, 1}, out);
    ExpectNear(out, {-3, 2, 1}, 1e-5f);
}

TEST(MatrixMaths, PreAndPostMultiplyChainLeftToRightAndAllowSelf) {
    const Matrix a = RotationScaleTranslation({1, 2, 3}, 0.4f, {1, 2, 0.5f}, {1, -2, 3});
    const Matrix b = RotationScaleTranslation({-1, 0, 1}, 1.1f, {3, 1, 1}, {-5, 4, 0.25f});
    const Vector p = {0.5f, -1.5f, 2};
    Vector viaA, viaB, viaAThenB, viaBThenA, got;
    MatrixApply(a, p, viaA);
    MatrixApply(b, viaA, viaAThenB);
    MatrixApply(b, p, viaB);
    MatrixApply(a, viaB, viaBThenA);

    Matrix post = a, pre = a;
    MatrixPostMultiply(post, b);  // a then b
    MatrixPreMultiply(pre, b);    // b then a
    MatrixApply(post, p, got);
    ExpectNear(got, viaAThenB, 1e-5f);
    MatrixApply(pre, p, got);
    ExpectNear(got, viaBThenA, 1e-5f);
    for (const Matrix* m : {&post, &pre}) {
        EXPECT_EQ((*m)[3] + (*m)[7] + (*m)[11], 0.0f);
        EXPECT_EQ((*m)[15], 1.0f);
    }

    // The product with itself, b being m: must equal the product with a separate copy.
    Matrix expected, selfPre = a, selfPost = a;
    MatrixMultiply(expected, WithAffineColumn(a), WithAffineColumn(a));
    MatrixPreMultiply(selfPre, selfPre);
    MatrixPostMultiply(selfPost, selfPost);
    for (int i = 0; i < 16; ++i) {
        EXPECT_FLOAT_EQ(selfPre[i], expected[i]) << i;
        EXPECT_FLOAT_EQ(selfPost[i], expected[i]) << i;
    }
}

TEST(MatrixMaths, MultiplyAffineWritesOnlyTheAffineElements) {
    const Matrix a = RotationScaleTranslation({0, 1, 0}, 0.3f, {2, 2, 2}, {1, 2, 3});
    const Matrix b = RotationScaleTranslation({1, 0, 0}, -0.8f, {1, 3, 1}, {-4, 0, 6});
    Matrix out, expected;
    for (int i = 0; i < 16; ++i) out[i] = 100.0f + float(i);
    MatrixMultiplyAffine(out, a, b);
    MatrixMultiply(expected, WithAffineColumn(a), WithAffineColumn(b));
    for (int i = 0; i < 16; ++i) {
        if (i % 4 == 3)
            EXPECT_EQ(out[i], 100.0f + float(i)) << i;
        else
            EXPECT_FLOAT_EQ(out[i], expected[i]) << i;
    }
}

TEST(MatrixMaths, FullMultiplyAndProjectiveApplyUseTheFourthColumn) {
    Matrix projection;
    MatrixIdentity(projection);
    projection[3] = projection[11] = 1.0f;
    projection[15] = 2.0f;
    projection[12] = 6.0f;
    Vector out;
    MatrixApplyProjective(projection, {2, 4, 4}, out);  // w = 2 + 4 + 2 = 8
    ExpectNear(out, {1, 0.5f, 0.5f}, 0);

    // (p . a) . projection == p . (a * projection) for an affine a.
    const Matrix a =
        WithAffineColumn(RotationScaleTranslation({1, 1, 0}, 0.6f, {1, 2, 3}, {0.5f, 1, 2}));
    const Vector p = {1, -2, 0.5f};
    Matrix product;
    Vector step, expected;
    MatrixMultiply(product, a, projection);
    MatrixApply(a, p, step);
    MatrixApplyProjective(projection, step, expected);
    MatrixApplyProjective(product, p, out);
    ExpectNear(out, expected, 1e-5f);

    // With the projection first its fourth column feeds every row of the product.
    MatrixMultiply(product, projection, a);
    MatrixApplyProjective(projection, p, step);
    MatrixApply(a, step, expected);
    MatrixApplyProjective(product, p, out);
    ExpectNear(out, expected, 1e-5f);
}

TEST(MatrixMaths, InverseUndoesTranslationFirstThenRotation) {
    const Vector translation = {10, -20, 30};
    const Matrix m = RotationScaleTranslation({1, -2, 0.5f}, 2.0f, {2, 0.5f, 3}, translation);
    InverseMatrix inv;
    ASSERT_TRUE(MatrixInverse(m, inv));
    // The 3x3 part is the true inverse; row 3 is only the negated translation.
    for (int row = 0; row < 3; ++row)
        for (int col = 0; col < 3; ++col) {
            double sum = 0;
            for (int k = 0; k < 3; ++k) sum += double(inv[row * 4 + k]) * m[k * 4 + col];
            EXPECT_NEAR(sum, row == col ? 1.0 : 0.0, 2e-6) << row << "," << col;
        }
    const float lastColumnAndRow[8] = {0, 0, 0, 1, -10, 20, -30, 1};
    const int at[8] = {3, 7, 11, 15, 12, 13, 14, 15};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(inv[at[i]], lastColumnAndRow[i]) << at[i];

    const Vector p = {1.5f, -2, 3.25f};
    Vector transformed, back;
    MatrixApply(m, p, transformed);
    const Vector before = transformed;
    MatrixApplyInverse(inv, transformed, back);
    ExpectNear(back, p, 1e-5f);
    // The point itself has lost the translation.
    ExpectNear(transformed, {before.x - 10, before.y + 20, before.z - 30}, 1e-5f);

    // A singular matrix gives false and the identity.
    const Matrix flat = RotationScaleTranslation({1, 2, 3}, 0.5f, {1, 0, 1}, {4, 5, 6});
    for (float& e : inv.m) e = 7.0f;
    EXPECT_FALSE(MatrixInverse(flat, inv));
    for (int i = 0; i < 16; ++i) EXPECT_EQ(inv[i], i % 5 == 0 ? 1.0f : 0.0f) << i;
}
