#include "tool/raycast/ray_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "base/diagnostics.h"
#include "engine/mesh/mesh.h"
#include "tests/support/hand_mesh.h"
#include "tool/maps/mesh_builder.h"

namespace {

RayTriangle Build(Vector corners[3]) {
    RayTriangle triangle = {};
    RayBuildTriangle(&triangle, corners);
    return triangle;
}

double Distance(const Vector& a, const Vector& b) {
    double dx = double(a.x) - b.x, dy = double(a.y) - b.y, dz = double(a.z) - b.z;
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

class RayBuildTest : public ::testing::Test {
protected:
    void TearDown() override {
        table.Free();
        for (CMesh* mesh : roots) delete mesh;
    }
    RayMesh* Add(std::vector<MeshVertex> vertices, std::vector<HandFace> faces) {
        roots.push_back(HandMesh(nullptr, vertices, faces));
        return table.AddMesh(roots.back());
    }
    RayTable table;
    std::vector<CMesh*> roots;
};

TEST(RayBuildTriangle, NormalAndProjectionAxes) {
    struct Case {
        const char* what;
        Vector p[3];
        int axes, a, b;  // expected Axes and the coordinates (x 0, y 1, z 2) it keeps
        float normalY;   // NAN: not checked
    };
    const Case cases[] = {
        {"ground up", {{0, 0, 0}, {1, 0, 0}, {0, 0, 1}}, 8, 0, 2, 1.0f},
        {"ground down", {{1, 0, 0}, {0, 0, 0}, {0, 0, 1}}, 8, 0, 2, -1.0f},
        {"raised ground", {{0, 4, 0}, {1, 4, 0}, {0, 4, 1}}, 8, 0, 2, 1.0f},
        {"wall x = 2", {{2, 0, 0}, {2, 1, 0}, {2, 0, 1}}, 6, 2, 1, 0.0f},
        {"front z = -3", {{0, 0, -3}, {1, 0, -3}, {0, 1, -3}}, 4, 0, 1, 0.0f},
        // Ties between the largest components go to x, then y.
        {"tie x y", {{1, 0, 0}, {0, 1, 0}, {0, 1, 1}}, 6, 2, 1, NAN},
        {"tie y z", {{0, 0, 0}, {0, 1, -1}, {10, -1, 0}}, 8, 0, 2, NAN},
        {"tie x z", {{0, 0, 0}, {1, -10, 0}, {0, -10, 1}}, 6, 2, 1, NAN},
        {"slanted", {{3, 1, -2}, {5, 2, -1}, {4, 6, -7}}, -1, 0, 0, NAN},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Vector grown[3] = {c.p[0], c.p[1], c.p[2]};
        RayTriangle t = Build(grown);
        EXPECT_NEAR(VectorLength(t.Normal), 1.0, 1e-6);
        // The plane holds the ungrown corners.
        for (const Vector& corner : c.p) EXPECT_NEAR(VectorDot(t.Normal, corner) + t.D, 0.0, 1e-5);
        if (!std::isnan(c.normalY)) {
            EXPECT_EQ(t.Normal.y, c.normalY);
        }
        if (std::string(c.what).rfind("tie", 0) == 0) {  // make sure the case is one
            float n[3] = {std::fabs(t.Normal.x), std::fabs(t.Normal.y), std::fabs(t.Normal.z)};
            std::sort(n, n + 3);
            ASSERT_EQ(n[1], n[2]);
        }
        if (c.axes < 0) continue;
        EXPECT_EQ(t.Axes, c.axes);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(t.Corner[i][0], (&grown[i].x)[c.a]) << i;
            EXPECT_EQ(t.Corner[i][1], (&grown[i].x)[c.b]) << i;
        }
    }
    // Zero area leaves a zero normal.
    Vector line[3] = {{0, 0, 0}, {2, 0, 0}, {4, 0, 0}};
    Vector point[3] = {{-2, -1, -3}, {-2, -1, -3}, {-2, -1, -3}};
    EXPECT_EQ(VectorLength(Build(line).Normal), 0.0f);
    EXPECT_EQ(VectorLength(Build(point).Normal), 0.0f);
}

TEST(RayBuildTriangle, CornersGrowByAThousandthAwayFromTheCentroid) {
    // Exact bits: the centroid is never stored and keeps double precision (12 * 0.33333334f is
    // not a float); the corner is rounded to float at each step.
    const Vector original[3] = {{3, 1, -2}, {5, 2, -1}, {4, 6, -7}};
    Vector grown[3] = {original[0], original[1], original[2]};
    Build(grown);
    const double third = double(0.33333334f), cx = 12 * third, cy = 9 * third, cz = -10 * third;
    const Vector centre = {float(cx), float(cy), float(cz)};
    for (int i = 0; i < 3; ++i) {
        Vector p = {float(original[i].x - cx), float(original[i].y - cy),
                    float(original[i].z - cz)};
        Vector w = p;
        VectorNormalize(w);
        p = {float(p.x + w.x * 0.001), float(p.y + w.y * 0.001), float(p.z + w.z * 0.001)};
        EXPECT_EQ(grown[i].x, float(p.x + cx)) << i;
        EXPECT_EQ(grown[i].y, float(p.y + cy)) << i;
        EXPECT_EQ(grown[i].z, float(p.z + cz)) << i;
        EXPECT_NEAR(Distance(grown[i], centre) - Distance(original[i], centre), 0.001, 1e-5) << i;
    }
}

TEST_F(RayBuildTest, SharedVertexKeepsTheLastFacesGrownCorner) {
    RayMesh* record =
        Add({At(0, 0, 0), At(6, 0, 0), At(6, 0, -6), At(0, 0, -9)}, {{0, 1, 2}, {0, 2, 3}});
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

TEST_F(RayBuildTest, TopTakesEveryVertexAndTheBoundsOnlyUsedOnes) {
    MeshBuilder builder;  // the side faces grow above y = 5
    builder.AddBox({2, 0, -6}, {4, 5, -3});
    roots.push_back(builder.Build(nullptr, "box"));
    RayMesh* box = table.AddMesh(roots.back());
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->Top, 5.0f);
    EXPECT_LT(box->MinX, 2.0f);
    EXPECT_GT(box->MaxZ, -3.0f);

    RayMesh* tiny =
        Add({At(500, 7, -300), At(500.01f, 7, -300), At(500, 7, -300.01f)}, {{0, 1, 2}});
    ASSERT_NE(tiny, nullptr);
    EXPECT_EQ(tiny->RadiusSquared, 1.01);  // the smallest circle
    EXPECT_NEAR(tiny->CentreX, 500.0033, 1e-3);

    // A vertex no face uses raises Top but leaves the bounds alone.
    RayMesh* plain = Add({At(10, -7, -2), At(20, -7, -2), At(20, -8, -12)}, {{0, 1, 2}});
    RayMesh* stray =
        Add({At(1000, 80, -1000), At(10, -7, -2), At(20, -7, -2), At(20, -8, -12)}, {{1, 2, 3}});
    ASSERT_TRUE(plain && stray);
    EXPECT_EQ(plain->Top, -7.0f);
    EXPECT_EQ(stray->Top, 80.0f);
    auto bounds = [](const RayMesh* r) {
        return std::tuple(r->MinX, r->MaxX, r->MinZ, r->MaxZ, r->CentreX, r->CentreZ,
                          r->RadiusSquared);
    };
    EXPECT_EQ(bounds(stray), bounds(plain));
}

TEST_F(RayBuildTest, TreeWalkSkipsFacelessMeshesAndPutsNewRecordsFirst) {
    CMesh* root = new CMesh(nullptr);
    roots.push_back(root);
    EXPECT_EQ(table.AddMesh(root), nullptr);
    EXPECT_EQ(table.First(), nullptr);

    // Children stand newest first: root -> b -> (g), a. The walk goes depth first.
    CMesh* a = HandMesh(root, {At(0, 0, 0), At(1, 0, 0), At(0, 0, -1)}, {{0, 1, 2}});
    CMesh* b = HandMesh(root, {At(5, 0, 0), At(6, 0, 0), At(5, 0, -1)}, {{0, 1, 2}});
    CMesh* g = HandMesh(b, {At(9, 0, 0), At(8, 0, 0), At(9, 0, -1)}, {{0, 1, 2}});
    new CMesh(g);  // a faceless leaf
    table.AddTree(root);
    std::vector<CMesh*> order;
    for (const RayMesh* record = table.First(); record; record = record->Next)
        order.push_back(record->Mesh);
    EXPECT_EQ(order, (std::vector<CMesh*>{a, g, b}));
    EXPECT_EQ(table.TriangleCount(), 3u);

    table.Free();  // the leak checker sees the records go
    EXPECT_EQ(table.First(), nullptr);
    EXPECT_EQ(table.TriangleCount(), 0u);
}

uint32_t LastErrorCode;
int ErrorCount;
void CountError(uint32_t code, const char*) {
    LastErrorCode = code;
    ++ErrorCount;
}

TEST_F(RayBuildTest, FaceIndexOutOfRangeGivesNoRecord) {
    ErrorCount = 0;
    CorvaneErrorHandler previous = CorvaneSetErrorHandler(CountError);
    RayMesh* record = Add({At(0, 0, 0), At(1, 0, 0), At(0, 0, -1)}, {{0, 1, 2}, {0, 3, 2}});
    CorvaneSetErrorHandler(previous);
    EXPECT_EQ(record, nullptr);
    EXPECT_EQ(table.First(), nullptr);
    EXPECT_EQ(ErrorCount, 1);
    EXPECT_EQ(LastErrorCode, uint32_t(CorvaneCodeAssertion));
}

}  // namespace
