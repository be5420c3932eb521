#include "tool/raycast.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "base/diagnostics.h"
#include "engine/mesh/mesh.h"
#include "tests/support/hand_mesh.h"
#include "tool/mesh_builder.h"

namespace {


RayTriangle Build(Vector corners[3]) {
    RayTriangle triangle = {};
    RayBuildTriangle(&triangle, corners);
    return triangle;
}

RayTriangle Build(Vector p0, Vector p1, Vector p2) {
    Vector corners[3] = {p0, p1, p2};
    return Build(corners);
}

double Distance(const Vector& a, const Vector& b) {
    double dx = double(a.x) - b.x, dy = double(a.y) - b.y, dz = double(a.z) - b.z;
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

class RayBuildTest : public ::testing::Test {
protected:
    void SetUp() override { RayTableBegin(); }
    void TearDown() override {
        RayTableFree();
        for (CMesh* mesh : roots) delete mesh;
    }
    CMesh* Own(CMesh* mesh) {
        roots.push_back(mesh);
        return mesh;
    }
    std::vector<CMesh*> roots;
};

TEST(RayBuildTriangle, StoredNormalFollowsTheWinding) {
    RayTriangle up = Build({0, 0, 0}, {1, 0, 0}, {0, 0, 1});
    EXPECT_EQ(up.Normal.x, 0.0f);
    EXPECT_EQ(up.Normal.y, 1.0f);
    EXPECT_EQ(up.Normal.z, 0.0f);
    EXPECT_EQ(up.D, 0.0f);
    EXPECT_EQ(up.Axes, 8);

    RayTriangle down = Build({1, 0, 0}, {0, 0, 0}, {0, 0, 1});
    EXPECT_EQ(down.Normal.y, -1.0f);
    EXPECT_EQ(down.Axes, 8);

    // A slanted plane away from the origin: unit normal, and the plane holds the ungrown corners.
    Vector p[3] = {{3, 1, -2}, {5, 2, -1}, {4, 6, -7}};
    Vector original[3] = {p[0], p[1], p[2]};
    RayTriangle slanted = Build(p);
    EXPECT_NEAR(VectorLength(slanted.Normal), 1.0, 1e-6);
    for (const Vector& corner : original)
        EXPECT_NEAR(VectorDot(slanted.Normal, corner) + slanted.D, 0.0, 1e-5);
}

TEST(RayBuildTriangle, AxesDropTheDominantNormalComponent) {
    // Plane x = 2: corners as (z, y).
    Vector wall[3] = {{2, 0, 0}, {2, 1, 0}, {2, 0, 1}};
    RayTriangle x = Build(wall);
    EXPECT_EQ(x.Axes, 6);
    EXPECT_NEAR(x.D, -2.0f * x.Normal.x, 1e-6);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(x.Corner[i][0], wall[i].z);
        EXPECT_EQ(x.Corner[i][1], wall[i].y);
    }

    // Plane z = -3: corners as (x, y).
    Vector front[3] = {{0, 0, -3}, {1, 0, -3}, {0, 1, -3}};
    RayTriangle z = Build(front);
    EXPECT_EQ(z.Axes, 4);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(z.Corner[i][0], front[i].x);
        EXPECT_EQ(z.Corner[i][1], front[i].y);
    }

    // Ground: corners as (x, z).
    Vector ground[3] = {{0, 4, 0}, {1, 4, 0}, {0, 4, 1}};
    RayTriangle y = Build(ground);
    EXPECT_EQ(y.Axes, 8);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(y.Corner[i][0], ground[i].x);
        EXPECT_EQ(y.Corner[i][1], ground[i].z);
    }
}

TEST(RayBuildTriangle, AxesTiesGoToXThenY) {
    // Normal -(1, 1, 0)/sqrt 2: x and y equal.
    RayTriangle xy = Build({1, 0, 0}, {0, 1, 0}, {0, 1, 1});
    ASSERT_EQ(std::fabs(xy.Normal.x), std::fabs(xy.Normal.y));
    EXPECT_EQ(xy.Axes, 6);

    // Normal along (1, 10, 10): y and z equal, x smaller.
    RayTriangle yz = Build({0, 0, 0}, {0, 1, -1}, {10, -1, 0});
    ASSERT_EQ(yz.Normal.y, yz.Normal.z);
    ASSERT_LT(std::fabs(yz.Normal.x), std::fabs(yz.Normal.y));
    EXPECT_EQ(yz.Axes, 8);

    // Normal along (10, 1, 10): x and z equal.
    RayTriangle xz = Build({0, 0, 0}, {1, -10, 0}, {0, -10, 1});
    ASSERT_EQ(std::fabs(xz.Normal.x), std::fabs(xz.Normal.z));
    EXPECT_EQ(xz.Axes, 6);
}

TEST(RayBuildTriangle, CornersGrowByAThousandthAwayFromTheCentroid) {
    // Centroid at the origin, corner 0 three units from it.
    Vector corners[3] = {{3, 0, 0}, {-1.5f, 0, 2}, {-1.5f, 0, -2}};
    Build(corners);
    EXPECT_FLOAT_EQ(corners[0].x, 3.001f);
    EXPECT_EQ(corners[0].y, 0.0f);
    EXPECT_EQ(corners[0].z, 0.0f);
    EXPECT_NEAR(Distance(corners[1], {0, 0, 0}), 2.501, 1e-6);

    // Off the origin and slanted: each corner moves 0.001 further out along its own line.
    Vector original[3] = {{3, 1, -2}, {5, 2, -1}, {4, 6, -7}};
    Vector grown[3] = {original[0], original[1], original[2]};
    Build(grown);
    // The centroid is not a stored value and keeps double precision (12 * 0.33333334f is not a
    // float); the corner is rounded to float at each step.
    const double cx = 12 * double(0.33333334f), cy = 9 * double(0.33333334f),
                 cz = -10 * double(0.33333334f);
    Vector centre = {float(cx), float(cy), float(cz)};
    for (int i = 0; i < 3; ++i) {
        Vector p = {float(original[i].x - cx), float(original[i].y - cy),
                    float(original[i].z - cz)};
        Vector w = p;
        VectorNormalize(w);
        p = {float(p.x + w.x * 0.001), float(p.y + w.y * 0.001), float(p.z + w.z * 0.001)};
        EXPECT_EQ(grown[i].x, float(p.x + cx)) << "corner " << i;
        EXPECT_EQ(grown[i].y, float(p.y + cy)) << "corner " << i;
        EXPECT_EQ(grown[i].z, float(p.z + cz)) << "corner " << i;
    }
    for (int i = 0; i < 3; ++i) {
        double before = Distance(original[i], centre);
        double after = Distance(grown[i], centre);
        EXPECT_NEAR(after - before, 0.001, 1e-5) << "corner " << i;
        // Same line: the outward moves are parallel to the corner's offset from the centroid.
        Vector offset, step, cross;
        VectorSubtract(original[i], centre, offset);
        VectorSubtract(grown[i], original[i], step);
        VectorCross(cross, offset, step);
        EXPECT_LT(VectorLength(cross) / (before * 0.001), 0.02) << "corner " << i;
    }
}

TEST(RayBuildTriangle, ZeroAreaLeavesAZeroNormal) {
    RayTriangle line = Build({0, 0, 0}, {2, 0, 0}, {4, 0, 0});
    EXPECT_EQ(line.Normal.x, 0.0f);
    EXPECT_EQ(line.Normal.y, 0.0f);
    EXPECT_EQ(line.Normal.z, 0.0f);
    RayTriangle point = Build({-2, -1, -3}, {-2, -1, -3}, {-2, -1, -3});
    EXPECT_EQ(VectorLength(point.Normal), 0.0f);
}

TEST_F(RayBuildTest, RecordHoldsTheFacesInOrder) {
    CMesh* mesh = Own(HandMesh(nullptr, {At(0, 0, 0), At(4, 0, 0), At(4, 0, -4), At(0, 1, -4)},
                               {{0, 1, 2}, {3, 2, 0}, {1, 3, 0}}));
    RayMesh* record = RayTableAddMesh(mesh);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->Mesh, mesh);
    ASSERT_EQ(record->TriangleCount, 3u);
    for (uint32_t f = 0; f < 3; ++f) {
        const RayTriangle& triangle = record->Triangles[f];
        const MeshFace& face = mesh->faces[0][f];
        Vector corners[3];
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(triangle.Vertex[k], face.vertex[k]) << "face " << f;
            corners[k] = mesh->vertices[face.vertex[k]].position;
        }
        RayTriangle expected = Build(corners);
        EXPECT_EQ(triangle.Normal.y, expected.Normal.y) << "face " << f;
        EXPECT_EQ(triangle.D, expected.D) << "face " << f;
        EXPECT_EQ(triangle.Corner[2][1], expected.Corner[2][1]) << "face " << f;
        EXPECT_EQ(triangle.Skip, 0) << "face " << f;
    }
}

TEST_F(RayBuildTest, TopUsesTruePositionsAndTheBoxGrownOnes) {
    MeshBuilder builder;
    builder.AddBox({2, 0, -6}, {4, 5, -3});
    CMesh* box = Own(builder.Build(nullptr, "box"));
    RayMesh* record = RayTableAddMesh(box);
    ASSERT_NE(record, nullptr);
    // The side faces grow above y = 5; Top must not follow them.
    EXPECT_EQ(record->Top, 5.0f);
    EXPECT_LT(record->MinX, 2.0f);
    EXPECT_GT(record->MinX, 2.0f - 0.0011f);
    EXPECT_GT(record->MaxX, 4.0f);
    EXPECT_LT(record->MaxX, 4.0f + 0.0011f);
    EXPECT_LT(record->MinZ, -6.0f);
    EXPECT_GT(record->MinZ, -6.0f - 0.0011f);
    EXPECT_GT(record->MaxZ, -3.0f);
    EXPECT_LT(record->MaxZ, -3.0f + 0.0011f);
    EXPECT_NEAR(record->CentreX, 3.0, 1e-4);
    EXPECT_NEAR(record->CentreZ, -4.5, 1e-4);
    // Margin on the square: 1.01 * (1 + 2.25) with the growth, not (1.01 * sqrt(3.25))^2.
    EXPECT_GT(record->RadiusSquared, 1.01 * 3.25);
    EXPECT_LT(record->RadiusSquared, 1.01 * 3.26);
}

TEST_F(RayBuildTest, SharedVertexKeepsTheLastFacesGrownCorner) {
    // Two faces share vertices 0 and 2; each grows them in its own direction.
    CMesh* mesh = Own(HandMesh(nullptr, {At(0, 0, 0), At(6, 0, 0), At(6, 0, -6), At(0, 0, -9)},
                               {{0, 1, 2}, {0, 2, 3}}));
    RayMesh* record = RayTableAddMesh(mesh);
    ASSERT_NE(record, nullptr);

    Vector first[3] = {{0, 0, 0}, {6, 0, 0}, {6, 0, -6}};
    Vector second[3] = {{0, 0, 0}, {6, 0, -6}, {0, 0, -9}};
    Build(first);
    Build(second);
    const Vector* work[4] = {&second[0], &first[1], &second[1], &second[2]};
    double sumX = 0.0, sumZ = 0.0;
    float minX = work[0]->x, maxZ = work[0]->z;
    for (const Vector* p : work) {
        sumX += p->x;
        sumZ += p->z;
        minX = std::fmin(minX, p->x);
        maxZ = std::fmax(maxZ, p->z);
    }
    EXPECT_EQ(record->CentreX, sumX / 4);
    EXPECT_EQ(record->CentreZ, sumZ / 4);
    EXPECT_EQ(record->MinX, minX);
    EXPECT_EQ(record->MaxZ, maxZ);
    double r = 1.0;
    for (const Vector* p : work) {
        double dx = record->CentreX - p->x, dz = record->CentreZ - p->z;
        r = std::fmax(r, dx * dx + dz * dz);
    }
    EXPECT_EQ(record->RadiusSquared, r * 1.01);
}

TEST_F(RayBuildTest, TinyMeshGetsTheSmallestCircle) {
    CMesh* mesh = Own(HandMesh(
        nullptr, {At(500, 7, -300), At(500.01f, 7, -300), At(500, 7, -300.01f)}, {{0, 1, 2}}));
    RayMesh* record = RayTableAddMesh(mesh);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->RadiusSquared, 1.01);
    EXPECT_NEAR(record->CentreX, 500.0033, 1e-3);
    EXPECT_NEAR(record->CentreZ, -300.0033, 1e-3);
}

TEST_F(RayBuildTest, UnusedVertexRaisesTopButNotTheBounds) {
    CMesh* plain =
        Own(HandMesh(nullptr, {At(10, -7, -2), At(20, -7, -2), At(20, -8, -12)}, {{0, 1, 2}}));
    // The same face behind a vertex 0 that stands far off and high, and that no face uses.
    CMesh* stray = Own(
        HandMesh(nullptr, {At(1000, 80, -1000), At(10, -7, -2), At(20, -7, -2), At(20, -8, -12)},
                 {{1, 2, 3}}));
    RayMesh* expected = RayTableAddMesh(plain);
    RayMesh* record = RayTableAddMesh(stray);
    ASSERT_NE(expected, nullptr);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(expected->Top, -7.0f);
    EXPECT_EQ(record->Top, 80.0f);
    EXPECT_EQ(record->MinX, expected->MinX);
    EXPECT_EQ(record->MaxX, expected->MaxX);
    EXPECT_EQ(record->MinZ, expected->MinZ);
    EXPECT_EQ(record->MaxZ, expected->MaxZ);
    EXPECT_EQ(record->CentreX, expected->CentreX);
    EXPECT_EQ(record->CentreZ, expected->CentreZ);
    EXPECT_EQ(record->RadiusSquared, expected->RadiusSquared);
}

TEST_F(RayBuildTest, MeshWithoutFacesGivesNoRecordButItsChildrenDo) {
    CMesh* root = Own(new CMesh(nullptr));
    EXPECT_EQ(RayTableAddMesh(root), nullptr);
    EXPECT_EQ(RayTable.First, nullptr);

    // Children stand newest first: root -> b -> (g), a. The walk goes depth first.
    CMesh* a = HandMesh(root, {At(0, 0, 0), At(1, 0, 0), At(0, 0, -1)}, {{0, 1, 2}});
    CMesh* b = HandMesh(root, {At(5, 0, 0), At(6, 0, 0), At(5, 0, -1)}, {{0, 1, 2}});
    CMesh* g = HandMesh(b, {At(9, 0, 0), At(8, 0, 0), At(9, 0, -1)}, {{0, 1, 2}});
    new CMesh(g);  // a faceless leaf
    RayTableAddTree(root);
    std::vector<CMesh*> order;
    for (RayMesh* record = RayTable.First; record; record = record->Next)
        order.push_back(record->Mesh);
    EXPECT_EQ(order, (std::vector<CMesh*>{a, g, b}));
}

TEST_F(RayBuildTest, NewRecordsGoToTheFront) {
    CMesh* a = Own(HandMesh(nullptr, {At(0, 0, 0), At(1, 0, 0), At(0, 0, -1)}, {{0, 1, 2}}));
    CMesh* b = Own(HandMesh(nullptr, {At(3, 0, 0), At(4, 0, 0), At(3, 0, -1)}, {{0, 1, 2}}));
    CMesh* c = Own(HandMesh(nullptr, {At(6, 0, 0), At(7, 0, 0), At(6, 0, -1)}, {{0, 1, 2}}));
    RayMesh* ra = RayTableAddMesh(a);
    RayMesh* rb = RayTableAddMesh(b);
    RayMesh* rc = RayTableAddMesh(c);
    EXPECT_EQ(RayTable.First, rc);
    ASSERT_NE(rc, nullptr);
    EXPECT_EQ(rc->Next, rb);
    ASSERT_NE(rb, nullptr);
    EXPECT_EQ(rb->Next, ra);
    ASSERT_NE(ra, nullptr);
    EXPECT_EQ(ra->Next, nullptr);
    EXPECT_EQ(ra->Mesh, a);
}

TEST_F(RayBuildTest, FreeEmptiesTheTableAndLeavesTheBlocker) {
    RayTableFree();
    EXPECT_EQ(RayTable.First, nullptr);

    CMesh* mesh = Own(HandMesh(nullptr, {At(0, 0, 0), At(1, 0, 0), At(0, 0, -1)}, {{0, 1, 2}}));
    RayTableAddMesh(mesh);
    RayTableAddMesh(mesh);
    RayTriangle* marker = RayTable.First->Triangles;
    RayTable.LastBlocker = marker;
    RayTableFree();  // the leak checker sees whether both records and their arrays went
    EXPECT_EQ(RayTable.First, nullptr);
    EXPECT_EQ(RayTable.LastBlocker, marker);
    RayTableBegin();
    EXPECT_EQ(RayTable.LastBlocker, nullptr);
}

uint32_t LastErrorCode;
int ErrorCount;
void CountError(uint32_t code, const char*) {
    LastErrorCode = code;
    ++ErrorCount;
}

TEST_F(RayBuildTest, FaceIndexOutOfRangeGivesNoRecord) {
    CMesh* mesh =
        Own(HandMesh(nullptr, {At(0, 0, 0), At(1, 0, 0), At(0, 0, -1)}, {{0, 1, 2}, {0, 3, 2}}));
    ErrorCount = 0;
    CorvaneErrorHandler previous = CorvaneSetErrorHandler(CountError);
    RayMesh* record = RayTableAddMesh(mesh);
    CorvaneSetErrorHandler(previous);
    EXPECT_EQ(record, nullptr);
    EXPECT_EQ(RayTable.First, nullptr);
    EXPECT_EQ(ErrorCount, 1);
    EXPECT_EQ(LastErrorCode, uint32_t(CorvaneCodeAssertion));
}

}  // namespace
