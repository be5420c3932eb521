#include <gtest/gtest.h>

#include <vector>

#include "engine/scene/entity.h"
#include "engine/scene/render_list.h"

namespace {

void ExpectNear(const Vector& v, const Vector& expected, float tolerance = 1e-4f) {
    EXPECT_NEAR(v.x, expected.x, tolerance);
    EXPECT_NEAR(v.y, expected.y, tolerance);
    EXPECT_NEAR(v.z, expected.z, tolerance);
}

// Rows x, y, z and the translation, three numbers each.
Matrix Affine(std::initializer_list<float> rows) {
    Matrix m;
    for (int i = 0; i < 16; ++i)
        m[i] = i % 4 == 3 ? float(i == 15) : rows.begin()[i / 4 * 3 + i % 4];
    return m;
}

Vector Through(const Matrix& m, const Vector& p) {
    Vector out;
    MatrixApply(m, p, out);
    return out;
}

}  // namespace

TEST(Frame, LooksAlongMinusRowTwoAndOnlySetOrientationStraightensUp) {
    CFrame frame(nullptr), in(nullptr);
    Vector dir;
    frame.GetDirection(dir);
    ExpectNear(dir, {0, 0, -1}, 0);
    frame.matrixValid = 1;
    frame.SetOrientation(Vector{0, 0, 1}, Vector{0, 1, 1});  // a slanted up
    EXPECT_EQ(frame.matrixValid, 0);
    const float expected[9] = {-1, 0, 0, 0, 1, 0, 0, 0, -1};
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(frame.rotation[i], expected[i], 1e-6f) << i;
    in.SetOrientationIn(nullptr, Vector{0, 0, 1}, Vector{0, 1, 1});
    const float kept[9] = {-1, 0, 0, 0, 0.70710678f, 0.70710678f, 0, 0, -1};  // y x z, normalised
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(in.rotation[i], kept[i], 1e-6f) << i;
}

// Grandparent: a quarter turn about z, scaled by 2; parent: a quarter turn about x with a
// different scale per axis. Neither is orthonormal, so any transposed or mis-ordered product shows.
TEST(Frame, PlacementRoundTripsThroughARotatedScaledChainAndAMovedAncestor) {
    const Matrix topMatrix = Affine({0, 2, 0, -2, 0, 0, 0, 0, 2, 5, -3, 7});
    const Matrix midMatrix = Affine({1, 0, 0, 0, 0, 3, 0, -0.5f, 0, 1, 2, 3});
    CFrame top(nullptr);
    CFrame* mid = new CFrame(&top);
    CFrame* leaf = new CFrame(mid);
    top.SetMatrix(topMatrix);
    mid->SetMatrix(midMatrix);
    leaf->SetPosition(4.0f, -1.0f, 2.0f);
    const Vector expected = Through(topMatrix, Through(midMatrix, {4, -1, 2}));
    Vector world, inTop, dir, up;
    leaf->GetPositionIn(nullptr, world);
    ExpectNear(world, expected);
    leaf->SetPosition(0.0f, 0.0f, 0.0f);
    leaf->SetPositionIn(nullptr, world);
    ExpectNear(leaf->position, {4, -1, 2});
    leaf->GetPositionIn(&top, inTop);
    ExpectNear(inTop, Through(midMatrix, {4, -1, 2}));
    leaf->SetOrientationIn(nullptr, Vector{1, 2, -2}, Vector{0, 1, 0});
    leaf->GetOrientationIn(nullptr, &dir, &up);
    VectorNormalize(dir);  // scales come back in an unnormalised result
    VectorNormalize(up);
    ExpectNear(dir, {1.0f / 3, 2.0f / 3, -2.0f / 3});
    ExpectNear(up, {0, 1, 0});

    RenderList list;  // the walk caches world matrices; a moved ancestor must not leave them stale
    top.Collect(&list, 1);
    Matrix cached, walked;
    leaf->GetWorldMatrix(cached);
    ExpectNear(Through(cached, {0, 0, 0}), expected);
    top.SetPosition(105.0f, -3.0f, 7.0f);
    leaf->GetTransform(walked, nullptr);
    ExpectNear(Through(walked, {0, 0, 0}), {expected.x + 100, expected.y, expected.z});

    Matrix flat = Affine({1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}), local;  // y squashed flat
    flat[3] = flat[7] = flat[11] = flat[15] = 9.0f;  // the fourth column is ignored
    mid->SetMatrix(flat);
    mid->GetLocalMatrix(local);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(local[i], i % 4 == 3 ? float(i == 15) : flat[i]) << i;
    leaf->SetPosition(1.0f, 2.0f, 3.0f);
    leaf->SetPositionIn(nullptr, world);  // a singular chain leaves the placement
    ExpectNear(leaf->position, {1, 2, 3}, 0);
    const std::vector<float> rotation(leaf->rotation, leaf->rotation + 9);
    leaf->SetOrientationIn(nullptr, Vector{1, 0, 0}, Vector{0, 1, 0});
    EXPECT_EQ(std::vector<float>(leaf->rotation, leaf->rotation + 9), rotation);
}
