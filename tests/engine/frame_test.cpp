#include <gtest/gtest.h>

#include <cmath>

#include "engine/scene/entity.h"
#include "engine/scene/render_list.h"

namespace {

void ExpectNear(const Vector& v, float x, float y, float z, float tolerance = 1e-5f) {
    EXPECT_NEAR(v.x, x, tolerance);
    EXPECT_NEAR(v.y, y, tolerance);
    EXPECT_NEAR(v.z, z, tolerance);
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
        top = new CFrame(nullptr);
        top->SetMatrix(topMatrix);
        mid = new CFrame(top);
        mid->SetMatrix(midMatrix);
        leaf = new CFrame(mid);
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
    CFrame* top;
    CFrame* mid;
    CFrame* leaf;
};

}  // namespace

TEST(FrameOrientation, LookingAlongPlusZFlipsXAndZ) {
    CFrame frame(nullptr);
    Vector dir;
    frame.GetDirection(dir);
    ExpectNear(dir, 0, 0, -1, 0);  // the identity rotation looks along -z

    frame.matrixValid = 1;
    frame.SetOrientation(Vector{0, 0, 1}, Vector{0, 1, 0});
    EXPECT_EQ(frame.matrixValid, 0);
    const float expected[9] = {-1, 0, 0, 0, 1, 0, 0, 0, -1};
    for (int i = 0; i < 9; ++i) EXPECT_EQ(frame.rotation[i], expected[i]) << i;
    frame.GetDirection(dir);
    EXPECT_EQ(dir.x, 0.0f);
    EXPECT_EQ(dir.y, 0.0f);
    EXPECT_EQ(dir.z, 1.0f);

    frame.SetDirection(Vector{3, 0, 0});  // normalised, with up (0, 1, 0)
    frame.GetDirection(dir);
    ExpectNear(dir, 1, 0, 0, 0);
    Vector up;
    frame.GetOrientation(nullptr, &up);
    ExpectNear(up, 0, 1, 0, 0);
}

TEST(FrameOrientation, OnlySetOrientationMakesUpPerpendicular) {
    const Vector dir{0, 0, 1}, slantedUp{0, 1, 1};
    const float half = 0.70710678f;

    CFrame plain(nullptr);
    plain.SetOrientation(dir, slantedUp);
    ExpectNear(Row(plain, 1), 0, 1, 0);
    ExpectNear(Row(plain, 2), 0, 0, -1, 0);  // dir is kept exactly
    EXPECT_NEAR(VectorDot(Row(plain, 1), Row(plain, 2)), 0.0f, 1e-6f);

    CFrame in(nullptr);
    in.SetOrientationIn(nullptr, dir, slantedUp);
    ExpectNear(Row(in, 1), 0, half, half);
    ExpectNear(Row(in, 2), 0, 0, -1, 0);
    ExpectNear(Row(in, 0), -1, 0, 0);  // y x z, normalised
    EXPECT_NEAR(VectorDot(Row(in, 1), Row(in, 2)), -half, 1e-6f);
    Vector up;
    in.GetOrientation(nullptr, &up);
    ExpectNear(up, 0, half, half);
}

TEST(FrameOrientation, DirectionsAreCarriedThroughARotatedScaledChain) {
    RotatedChain chain;
    const Vector worldDir{1, 2, -2};  // length 3
    chain.leaf->SetOrientationIn(nullptr, worldDir, Vector{0, 1, 0});
    Vector dir, up;
    chain.leaf->GetOrientationIn(nullptr, &dir, &up);
    // Scales come back in an unnormalised result, so compare the direction only.
    VectorNormalize(dir);
    ExpectNear(dir, 1.0f / 3, 2.0f / 3, -2.0f / 3);
    Vector upDirection = up;
    VectorNormalize(upDirection);
    ExpectNear(upDirection, 0, 1, 0);

    // The local direction is the row as stored, independent of the chain.
    Vector local;
    chain.leaf->GetDirection(local);
    ExpectNear(local, -chain.leaf->rotation[6], -chain.leaf->rotation[7], -chain.leaf->rotation[8],
               0);
    Vector placedPos, placedDir, placedUp;
    chain.leaf->GetPlacementIn(nullptr, placedPos, placedDir, placedUp);
    Vector expectedDir;
    chain.leaf->GetDirectionIn(nullptr, expectedDir);
    ExpectNear(placedDir, expectedDir.x, expectedDir.y, expectedDir.z, 0);
    ExpectNear(placedUp, up.x, up.y, up.z, 0);
    Vector world = chain.WorldOf(chain.leaf->position);
    ExpectNear(placedPos, world.x, world.y, world.z, 1e-4f);
    Vector shortPos, shortDir;
    chain.leaf->GetPlacementIn(chain.mid, shortPos, shortDir);  // own parent: local values
    ExpectNear(shortPos, 4, -1, 2, 0);
    ExpectNear(shortDir, local.x, local.y, local.z, 0);
}

TEST(FramePlacement, PositionRoundTripsThroughARotatedScaledChain) {
    RotatedChain chain;
    Vector world;
    chain.leaf->GetPositionIn(nullptr, world);
    Vector expected = chain.WorldOf(Vector{4, -1, 2});
    ExpectNear(world, expected.x, expected.y, expected.z, 1e-4f);

    chain.leaf->SetPosition(0.0f, 0.0f, 0.0f);
    chain.leaf->SetPositionIn(nullptr, world);
    ExpectNear(chain.leaf->position, 4, -1, 2, 1e-5f);

    Vector inTop;
    chain.leaf->GetPositionIn(chain.top, inTop);
    chain.leaf->SetPositionIn(chain.top, inTop);
    ExpectNear(chain.leaf->position, 4, -1, 2, 1e-5f);

    // The transform to the world and to the grandparent agree with the point arithmetic.
    Matrix toWorld;
    chain.leaf->GetTransform(toWorld, nullptr);
    Vector origin{0, 0, 0}, viaMatrix;
    MatrixApply(toWorld, origin, viaMatrix);
    ExpectNear(viaMatrix, expected.x, expected.y, expected.z, 1e-4f);
    EXPECT_EQ(toWorld[3], 0.0f);
    EXPECT_EQ(toWorld[15], 1.0f);
    Matrix toTop;
    chain.leaf->GetTransform(toTop, chain.top);
    MatrixApply(toTop, origin, viaMatrix);
    MatrixApply(chain.midMatrix, Vector{4, -1, 2}, expected);
    ExpectNear(viaMatrix, expected.x, expected.y, expected.z, 1e-5f);
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
    float before[9];
    for (int i = 0; i < 9; ++i) before[i] = child->rotation[i];

    child->matrixValid = 1;
    Vector target{5, 5, 5};
    child->SetPositionIn(nullptr, target);
    ExpectNear(child->position, 1, 2, 3, 0);
    EXPECT_EQ(child->matrixValid, 0);

    child->matrixValid = 1;
    child->SetOrientationIn(nullptr, Vector{0, 0, 1}, Vector{0, 1, 0});
    for (int i = 0; i < 9; ++i) EXPECT_EQ(child->rotation[i], before[i]) << i;
    EXPECT_EQ(child->matrixValid, 0);

    // Relative to its own parent the chain is the identity, so that still works.
    child->SetPositionIn(&parent, 7.0f, 8.0f, 9.0f);
    ExpectNear(child->position, 7, 8, 9, 0);
}

TEST(FrameMatrix, SetMatrixIgnoresTheFourthColumn) {
    Matrix m = Affine({0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {4, 5, 6});
    m[3] = 9.0f;
    m[7] = 9.0f;
    m[11] = 9.0f;
    m[15] = 9.0f;
    CFrame frame(nullptr);
    frame.matrixValid = 1;
    frame.SetMatrix(m);
    EXPECT_EQ(frame.matrixValid, 0);
    Matrix local;
    frame.GetLocalMatrix(local);
    const Matrix expected = Affine({0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {4, 5, 6});
    for (int i = 0; i < 16; ++i) EXPECT_EQ(local[i], expected[i]) << i;
}

TEST(FrameClone, CopiesRotationAndKeepsEachChildsClass) {
    CFrame source(nullptr);
    source.SetName("frame");
    source.SetOrientation(Vector{1, 0, 0}, Vector{0, 1, 0});
    source.SetPosition(1.0f, 2.0f, 3.0f);
    CFrame* a = new CFrame(&source);
    a->SetName("a");
    a->SetDirection(Vector{0, 0, 1});
    CEntity* b = new CEntity(&source);  // list: b, a
    b->SetName("b");

    CFrame* copy = source.Clone(nullptr, 0);
    EXPECT_EQ(copy->kind, EntityKindFrame);
    EXPECT_EQ(copy->parent, nullptr);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(copy->rotation[i], source.rotation[i]) << i;
    ExpectNear(copy->position, 1, 2, 3, 0);
    ASSERT_NE(copy->firstChild, nullptr);
    EXPECT_STREQ(copy->firstChild->name, "a");
    CFrame* copiedA = dynamic_cast<CFrame*>(copy->firstChild);
    ASSERT_NE(copiedA, nullptr);
    EXPECT_EQ(copiedA->rotation[8], a->rotation[8]);
    ASSERT_NE(copy->firstChild->nextSibling, nullptr);
    EXPECT_STREQ(copy->firstChild->nextSibling->name, "b");
    EXPECT_EQ(dynamic_cast<CFrame*>(copy->firstChild->nextSibling), nullptr);
    delete copy;
}
