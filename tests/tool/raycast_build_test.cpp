#include "tool/raycast/ray_table.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/hand_mesh.h"
#include "tests/support/report_capture.h"
#include "tool/maps/mesh_builder.h"

namespace {

TEST(RayBuildTriangle, NormalPlaneAndProjectionAxes) {
    struct Row {
        const char* what;
        Vector p[3];
        int axes, a, b;  // expected Axes and the coordinates (x 0, y 1, z 2) it keeps
        float normalY;   // NAN: not checked
    } rows[] = {
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
    for (const Row& r : rows) {
        SCOPED_TRACE(r.what);
        Vector grown[3] = {r.p[0], r.p[1], r.p[2]};
        RayTriangle t = {};
        RayBuildTriangle(&t, grown);
        EXPECT_NEAR(VectorLength(t.Normal), 1.0, 1e-6);
        for (const Vector& corner : r.p) EXPECT_NEAR(VectorDot(t.Normal, corner) + t.D, 0.0, 1e-5);
        if (!std::isnan(r.normalY)) {
            EXPECT_EQ(t.Normal.y, r.normalY);
        }
        if (r.axes < 0) continue;
        EXPECT_EQ(t.Axes, r.axes);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(t.Corner[i][0], (&grown[i].x)[r.a]) << i;
            EXPECT_EQ(t.Corner[i][1], (&grown[i].x)[r.b]) << i;
        }
    }
}

TEST(RayBuildTriangle, CornersGrowByAThousandthAwayFromTheCentroid) {
    // Exact bits: the centroid keeps double precision (12 * 0.33333334f is not a float); the
    // corner is rounded to float at each step.
    const Vector original[3] = {{3, 1, -2}, {5, 2, -1}, {4, 6, -7}};
    Vector grown[3] = {original[0], original[1], original[2]};
    RayTriangle t = {};
    RayBuildTriangle(&t, grown);
    const double third = double(0.33333334f), cx = 12 * third, cy = 9 * third, cz = -10 * third;
    for (int i = 0; i < 3; ++i) {
        Vector p = {float(original[i].x - cx), float(original[i].y - cy), float(original[i].z - cz)};
        Vector w = p;
        VectorNormalize(w);
        EXPECT_EQ(grown[i].x, float(float(p.x + w.x * 0.001) + cx)) << i;
        EXPECT_EQ(grown[i].y, float(float(p.y + w.y * 0.001) + cy)) << i;
        EXPECT_EQ(grown[i].z, float(float(p.z + w.z * 0.001) + cz)) << i;
    }
}

class RayBuild : public ::testing::Test {
protected:
    void TearDown() override { table.Free(); }
    RayMesh* Add(CMesh* mesh) {
        meshes.emplace_back(mesh);
        return table.AddMesh(mesh);
    }
    RayTable table;
    std::vector<std::unique_ptr<CMesh>> meshes;
};

// Top comes from every vertex, the box and circle only from the grown corners of used vertices.
TEST_F(RayBuild, RecordBoundsHoldTheGrownFacesAndTopEveryVertex) {
    MeshBuilder builder;
    builder.AddBox({2, 0, -6}, {4, 5, -3});
    RayMesh* box = Add(builder.Build(nullptr, "box"));
    EXPECT_EQ(box->Top, 5.0f);  // though the side faces grow above y = 5
    EXPECT_LT(box->MinX, 2.0f);
    EXPECT_GT(box->MaxZ, -3.0f);
    RayMesh* tiny = Add(HandMesh(
        nullptr, {At(500, 7, -300), At(500.01f, 7, -300), At(500, 7, -300.01f)}, {{0, 1, 2}}));
    EXPECT_EQ(tiny->RadiusSquared, 1.01);  // the smallest circle
    RayMesh* plain =
        Add(HandMesh(nullptr, {At(10, -7, -2), At(20, -7, -2), At(20, -8, -12)}, {{0, 1, 2}}));
    RayMesh* stray = Add(HandMesh(
        nullptr, {At(1000, 80, -1000), At(10, -7, -2), At(20, -7, -2), At(20, -8, -12)},
        {{1, 2, 3}}));
    EXPECT_EQ(plain->Top, -7.0f);
    EXPECT_EQ(stray->Top, 80.0f);
    auto bounds = [](const RayMesh* m) {
        return std::tuple(m->MinX, m->MaxX, m->MinZ, m->MaxZ, m->CentreX, m->CentreZ,
                          m->RadiusSquared);
    };
    EXPECT_EQ(bounds(stray), bounds(plain));
}

TEST_F(RayBuild, TreeWalkSkipsFacelessMeshesAndPutsNewRecordsFirst) {
    CMesh* root = new CMesh(nullptr);
    meshes.emplace_back(root);
    EXPECT_EQ(table.AddMesh(root), nullptr);
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
    table.Free();
    EXPECT_EQ(table.First(), nullptr);
}

TEST_F(RayBuild, FaceIndexOutOfRangeGivesNoRecord) {
    ReportCapture reports;
    EXPECT_EQ(Add(HandMesh(nullptr, {At(0, 0, 0), At(1, 0, 0), At(0, 0, -1)}, {{0, 1, 2}, {0, 3, 2}})),
              nullptr);
    EXPECT_EQ(table.First(), nullptr);
    std::vector<std::string> texts = reports.Take();
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_EQ(texts[0].rfind("E" + std::to_string(CorvaneCodeAssertion) + ":", 0), 0u) << texts[0];
}

}  // namespace
