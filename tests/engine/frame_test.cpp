#include <gtest/gtest.h>

#include "engine/scene/entity.h"
#include "engine/scene/render_list.h"

namespace {

void ExpectNear(const Vector& v, const Vector& expected, float tolerance = 1e-4f) {
    EXPECT_NEAR(v.x, expected.x, tolerance);
    EXPECT_NEAR(v.y, expected.y, tolerance);
    EXPECT_NEAR(v.z, expected.z, tolerance);
}

Vector Row(const CFrame& f, int row) {
    return Vector{f.rotation[row * 3], f.rotation[row * 3 + 1], f.rotation[row * 3 + 2]};
}

Matrix Affine(const Vector& x, const Vector& y, const Vector& z, const Vector& t) {
    Matrix m;
    const Vector rows[4] = {x, y, z, t};
    for (int r = 0; r < 4; ++r) {
        m[r * 4] = rows[r].x, m[r * 4 + 1] = rows[r].y, m[r * 4 + 2] = rows[r].z;
        m[r * 4 + 3] = r == 3 ? 1.0f : 0.0f;
    }
    return m;
}

// Grandparent: a quarter turn about z, scaled by 2; parent: a quarter turn about x with a
// different scale per axis. Neither is orthonormal, so any transposed or mis-ordered product shows.
const Matrix TopMatrix = Affine({0, 2, 0}, {-2, 0, 0}, {0, 0, 2}, {5, -3, 7});
const Matrix MidMatrix = Affine({1, 0, 0}, {0, 0, 3}, {0, -0.5f, 0}, {1, 2, 3});

Vector Through(const Matrix& m, const Vector& p) {
    Vector out;
    MatrixApply(m, p, out);
    return out;
}

}  // namespace

TEST(Frame, OrientationLooksAlongMinusRowTwoAndOnlySetOrientationStraightensUp) {
    CFrame frame(nullptr);
    Vector dir, up;
    frame.GetDirection(dir);
    ExpectNear(dir, {0, 0, -1}, 0);  // the identity rotation looks along -z
    frame.matrixValid = 1;
    frame.SetOrientation(Vector{0, 0, 1}, Vector{0, 1, 1});  // a slanted up
    EXPECT_EQ(frame.matrixValid, 0);
    const float expected[9] = {-1, 0, 0, 0, 1, 0, 0, 0, -1};
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(frame.rotation[i], expected[i], 1e-6f) << i;
    frame.SetDirection(Vector{3, 0, 0});  // normalised, with up (0, 1, 0)
    frame.GetOrientation(&dir, &up);
    ExpectNear(dir, {1, 0, 0}, 0);
    ExpectNear(up, {0, 1, 0}, 0);

    CFrame in(nullptr);
    in.SetOrientationIn(nullptr, Vector{0, 0, 1}, Vector{0, 1, 1});
    ExpectNear(Row(in, 1), {0, 0.70710678f, 0.70710678f});
    ExpectNear(Row(in, 2), {0, 0, -1}, 0);
    ExpectNear(Row(in, 0), {-1, 0, 0});  // y x z, normalised
}

TEST(Frame, PlacementRoundTripsThroughARotatedScaledChain) {
    CFrame top(nullptr);
    CFrame* mid = new CFrame(&top);
    CFrame* leaf = new CFrame(mid);
    top.SetMatrix(TopMatrix);
    mid->SetMatrix(MidMatrix);
    leaf->SetPosition(4.0f, -1.0f, 2.0f);
    const Vector expected = Through(TopMatrix, Through(MidMatrix, {4, -1, 2}));
    Vector world, inTop;
    leaf->GetPositionIn(nullptr, world);
    ExpectNear(world, expected);
    leaf->SetPosition(0.0f, 0.0f, 0.0f);
    leaf->SetPositionIn(nullptr, world);
    ExpectNear(leaf->position, {4, -1, 2});
    leaf->GetPositionIn(&top, inTop);
    leaf->SetPositionIn(&top, inTop);
    ExpectNear(leaf->position, {4, -1, 2});
    Matrix toWorld, toTop;
    leaf->GetTransform(toWorld, nullptr);
    ExpectNear(Through(toWorld, {0, 0, 0}), expected);
    leaf->GetTransform(toTop, &top);
    ExpectNear(Through(toTop, {0, 0, 0}), Through(MidMatrix, {4, -1, 2}));

    leaf->SetOrientationIn(nullptr, Vector{1, 2, -2}, Vector{0, 1, 0});
    Vector dir, up, pos, placedDir, placedUp;
    leaf->GetOrientationIn(nullptr, &dir, &up);
    leaf->GetPlacementIn(nullptr, pos, placedDir, placedUp);
    ExpectNear(placedDir, dir, 0);
    ExpectNear(placedUp, up, 0);
    ExpectNear(pos, expected);
    VectorNormalize(dir);  // scales come back in an unnormalised result
    VectorNormalize(up);
    ExpectNear(dir, {1.0f / 3, 2.0f / 3, -2.0f / 3});
    ExpectNear(up, {0, 1, 0});

    // The walk caches world matrices; a moved ancestor must not leave GetTransform stale.
    RenderList list;
    top.Collect(&list, 1);
    Matrix cached, walked;
    leaf->GetWorldMatrix(cached);
    leaf->GetTransform(walked, nullptr);
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(walked[i], cached[i], 1e-4f) << i;
    top.SetPosition(105.0f, -3.0f, 7.0f);
    leaf->GetTransform(walked, nullptr);
    EXPECT_NEAR(walked[12], cached[12] + 100.0f, 1e-4f);
}

TEST(Frame, SingularChainLeavesThePlacementAndSetMatrixIgnoresTheFourthColumn) {
    CFrame parent(nullptr);
    parent.SetMatrix(Affine({1, 0, 0}, {0, 0, 0}, {0, 0, 1}, {0, 0, 0}));  // y squashed flat
    CFrame* child = new CFrame(&parent);
    child->SetPosition(1.0f, 2.0f, 3.0f);
    child->SetOrientation(Vector{1, 0, 0}, Vector{0, 1, 0});
    const Vector before = Row(*child, 2);
    Vector target{5, 5, 5};
    child->matrixValid = 1;
    child->SetPositionIn(nullptr, target);
    ExpectNear(child->position, {1, 2, 3}, 0);
    EXPECT_EQ(child->matrixValid, 0);
    child->matrixValid = 1;
    child->SetOrientationIn(nullptr, Vector{0, 0, 1}, Vector{0, 1, 0});
    ExpectNear(Row(*child, 2), before, 0);
    EXPECT_EQ(child->matrixValid, 0);
    child->SetPositionIn(&parent, 7.0f, 8.0f, 9.0f);  // relative to its parent: the identity
    ExpectNear(child->position, {7, 8, 9}, 0);

    Matrix m = Affine({0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {4, 5, 6}), local;
    const Matrix expected = m;
    m[3] = m[7] = m[11] = m[15] = 9.0f;
    parent.SetMatrix(m);
    parent.GetLocalMatrix(local);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(local[i], expected[i]) << i;
}
