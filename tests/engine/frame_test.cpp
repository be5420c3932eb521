#include <gtest/gtest.h>

#include "engine/scene/entity.h"
#include "engine/scene/render_list.h"

namespace {

void ExpectNear(const Vector& v, const Vector& expected, float tolerance = 1e-5f) {
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
        m[r * 4] = rows[r].x;
        m[r * 4 + 1] = rows[r].y;
        m[r * 4 + 2] = rows[r].z;
        m[r * 4 + 3] = r == 3 ? 1.0f : 0.0f;
    }
    return m;
}

// Grandparent: a quarter turn about z, scaled by 2; parent: a quarter turn about x with a
// different scale per axis. Neither is orthonormal, so any transposed or mis-ordered product shows.
struct RotatedChain {
    RotatedChain() {
        top->SetMatrix(topMatrix);
        mid->SetMatrix(midMatrix);
        leaf->SetPosition(4.0f, -1.0f, 2.0f);
    }
    ~RotatedChain() { delete top; }
    Vector WorldOf(const Vector& p) const {
        Vector inTop, world;
        MatrixApply(midMatrix, p, inTop);
        MatrixApply(topMatrix, inTop, world);
        return world;
    }
    Matrix topMatrix = Affine({0, 2, 0}, {-2, 0, 0}, {0, 0, 2}, {5, -3, 7});
    Matrix midMatrix = Affine({1, 0, 0}, {0, 0, 3}, {0, -0.5f, 0}, {1, 2, 3});
    CFrame* top = new CFrame(nullptr);
    CFrame* mid = new CFrame(top);
    CFrame* leaf = new CFrame(mid);
};

}  // namespace

TEST(FrameOrientation, LookingAlongPlusZFlipsXAndZ) {
    CFrame frame(nullptr);
    Vector dir;
    frame.GetDirection(dir);
    ExpectNear(dir, {0, 0, -1}, 0);  // the identity rotation looks along -z

    frame.matrixValid = 1;
    frame.SetOrientation(Vector{0, 0, 1}, Vector{0, 1, 0});
    EXPECT_EQ(frame.matrixValid, 0);
    const float expected[9] = {-1, 0, 0, 0, 1, 0, 0, 0, -1};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(frame.rotation[i], expected[i]) << i;

    frame.SetDirection(Vector{3, 0, 0});  // normalised, with up (0, 1, 0)
    Vector up;
    frame.GetOrientation(&dir, &up);
    ExpectNear(dir, {1, 0, 0}, 0);
    ExpectNear(up, {0, 1, 0}, 0);
}

TEST(FrameOrientation, OnlySetOrientationMakesUpPerpendicular) {
    const Vector dir{0, 0, 1}, slantedUp{0, 1, 1};
    const float half = 0.70710678f;

    CFrame plain(nullptr);
    plain.SetOrientation(dir, slantedUp);
    ExpectNear(Row(plain, 1), {0, 1, 0});
    ExpectNear(Row(plain, 2), {0, 0, -1}, 0);  // dir is kept exactly

    CFrame in(nullptr);
    in.SetOrientationIn(nullptr, dir, slantedUp);
    ExpectNear(Row(in, 1), {0, half, half});
    ExpectNear(Row(in, 2), {0, 0, -1}, 0);
    ExpectNear(Row(in, 0), {-1, 0, 0});  // y x z, normalised
}

TEST(FrameOrientation, DirectionsAreCarriedThroughARotatedScaledChain) {
    RotatedChain chain;
    chain.leaf->SetOrientationIn(nullptr, Vector{1, 2, -2}, Vector{0, 1, 0});
    Vector dir, up;
    chain.leaf->GetOrientationIn(nullptr, &dir, &up);
    // Scales come back in an unnormalised result, so compare the direction only.
    VectorNormalize(dir);
    ExpectNear(dir, {1.0f / 3, 2.0f / 3, -2.0f / 3});
    Vector upDirection = up;
    VectorNormalize(upDirection);
    ExpectNear(upDirection, {0, 1, 0});

    Vector pos, placedDir, placedUp;
    chain.leaf->GetPlacementIn(nullptr, pos, placedDir, placedUp);
    chain.leaf->GetDirectionIn(nullptr, dir);
    ExpectNear(placedDir, dir, 0);
    ExpectNear(placedUp, up, 0);
    ExpectNear(pos, chain.WorldOf(chain.leaf->position), 1e-4f);
    // Relative to its own parent: the local values, the direction being the row as stored.
    chain.leaf->GetPlacementIn(chain.mid, pos, placedDir);
    ExpectNear(pos, {4, -1, 2}, 0);
    ExpectNear(placedDir, {-Row(*chain.leaf, 2).x, -Row(*chain.leaf, 2).y, -Row(*chain.leaf, 2).z},
               0);
}

TEST(FramePlacement, PositionRoundTripsThroughARotatedScaledChain) {
    RotatedChain chain;
    Vector world;
    chain.leaf->GetPositionIn(nullptr, world);
    const Vector expected = chain.WorldOf(Vector{4, -1, 2});
    ExpectNear(world, expected, 1e-4f);

    chain.leaf->SetPosition(0.0f, 0.0f, 0.0f);
    chain.leaf->SetPositionIn(nullptr, world);
    ExpectNear(chain.leaf->position, {4, -1, 2});
    Vector inTop;
    chain.leaf->GetPositionIn(chain.top, inTop);
    chain.leaf->SetPositionIn(chain.top, inTop);
    ExpectNear(chain.leaf->position, {4, -1, 2});

    // The transforms to the world and to the grandparent agree with the point arithmetic.
    Matrix toWorld, toTop;
    Vector viaMatrix, inMid;
    chain.leaf->GetTransform(toWorld, nullptr);
    MatrixApply(toWorld, Vector{0, 0, 0}, viaMatrix);
    ExpectNear(viaMatrix, expected, 1e-4f);
    EXPECT_EQ(toWorld[3], 0.0f);
    EXPECT_EQ(toWorld[15], 1.0f);
    chain.leaf->GetTransform(toTop, chain.top);
    MatrixApply(toTop, Vector{0, 0, 0}, viaMatrix);
    MatrixApply(chain.midMatrix, Vector{4, -1, 2}, inMid);
    ExpectNear(viaMatrix, inMid);
}

TEST(FramePlacement, TransformFollowsAMovedAncestorBeforeTheWalk) {
    RotatedChain chain;
    RenderList list;
    chain.top->Collect(&list, 1);
    Matrix cached, walked;
    chain.leaf->GetWorldMatrix(cached);
    chain.leaf->GetTransform(walked, nullptr);
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(walked[i], cached[i], 1e-4f) << i;

    chain.top->SetPosition(105.0f, -3.0f, 7.0f);  // stale caches below must not be used
    chain.leaf->GetTransform(walked, nullptr);
    EXPECT_NEAR(walked[12], cached[12] + 100.0f, 1e-4f);
    EXPECT_NEAR(walked[13], cached[13], 1e-4f);
}

TEST(FramePlacement, SingularChainLeavesThePlacementButInvalidates) {
    CFrame parent(nullptr);
    parent.SetMatrix(Affine({1, 0, 0}, {0, 0, 0}, {0, 0, 1}, {0, 0, 0}));  // y squashed flat
    CFrame* child = new CFrame(&parent);
    child->SetPosition(1.0f, 2.0f, 3.0f);
    child->SetOrientation(Vector{1, 0, 0}, Vector{0, 1, 0});
    const Vector before = Row(*child, 2);

    child->matrixValid = 1;
    Vector target{5, 5, 5};
    child->SetPositionIn(nullptr, target);
    ExpectNear(child->position, {1, 2, 3}, 0);
    EXPECT_EQ(child->matrixValid, 0);
    child->matrixValid = 1;
    child->SetOrientationIn(nullptr, Vector{0, 0, 1}, Vector{0, 1, 0});
    ExpectNear(Row(*child, 2), before, 0);
    EXPECT_EQ(child->matrixValid, 0);

    // Relative to its own parent the chain is the identity, so that still works.
    child->SetPositionIn(&parent, 7.0f, 8.0f, 9.0f);
    ExpectNear(child->position, {7, 8, 9}, 0);
}

TEST(FrameMatrix, SetMatrixIgnoresTheFourthColumn) {
    const Matrix expected = Affine({0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {4, 5, 6});
    Matrix m = expected;
    m[3] = m[7] = m[11] = m[15] = 9.0f;
    CFrame frame(nullptr);
    frame.matrixValid = 1;
    frame.SetMatrix(m);
    EXPECT_EQ(frame.matrixValid, 0);
    Matrix local;
    frame.GetLocalMatrix(local);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(local[i], expected[i]) << i;
}
