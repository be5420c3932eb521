#include "tool/raycast/literal_walk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "engine/mesh/mesh.h"
#include "tests/support/bake_fixture.h"
#include "tests/support/hand_mesh.h"
#include "tool/maps/mesh_builder.h"

namespace {

// A square at height y over [x0, x1] x [z0, z1], its visible side up (or down), every vertex with
// the given normal.
CMesh* Floor(float y, float x0, float x1, float z0, float z1, Vector normal = {0, 1, 0},
             bool visibleUp = true) {
    MeshBuilder builder;
    builder.AddQuad({x0, y, z0}, {x1, y, z0}, {x1, y, z1}, {x0, y, z1},
                    {0, visibleUp ? 1.0f : -1.0f, 0});
    CMesh* mesh = builder.Build(nullptr, "floor");
    for (int32_t i = 0; i < mesh->vertexCount; ++i) mesh->vertices[i].normal = normal;
    return mesh;
}

CMesh* Box(Vector lo, Vector hi) {
    MeshBuilder builder;
    builder.AddBox(lo, hi);
    return builder.Build(nullptr, "box");
}

Vector Unit(double x, double y, double z) {
    double length = std::sqrt(x * x + y * y + z * z);
    return {float(x / length), float(y / length), float(z / length)};
}

const Vector Up = {0, 1, 0};

void SetCorners(RayTriangle& triangle, const float (&corners)[3][2]) {
    for (int k = 0; k < 3; ++k) std::copy(corners[k], corners[k] + 2, triangle.Corner[k]);
}

// Makes the record's first triangle (the box's top, in the plane y = top) cover the whole plane, so
// that any ray that crosses the plane is blocked if the triangle is tested at all.
void CoverTheWholePlane(RayMesh* record) {
    ASSERT_EQ(record->Triangles[0].Axes, 8);
    SetCorners(record->Triangles[0], {{-1e5f, -1e5f}, {1e5f, -1e5f}, {0, 1e5f}});
}

// Heights of the line o + t d where its xz projection crosses the record's circle, near first.
void CircleCrossings(const RayMesh& record, Vector o, Vector d, double* nearY, double* farY) {
    double A = o.x - record.CentreX, B = o.z - record.CentreZ;
    double qa = double(d.x) * d.x + double(d.z) * d.z;
    double qb = 2 * (A * d.x + B * d.z), qc = A * A + B * B - record.RadiusSquared;
    double root = std::sqrt(qb * qb - 4 * qa * qc);
    *nearY = o.y + d.y * (-qb - root) / (2 * qa);
    *farY = o.y + d.y * (-qb + root) / (2 * qa);
}

class RayQueryTest : public ::testing::Test {
protected:
    void TearDown() override { FreeAll(); }
    void FreeAll() {
        table.Free();
        for (CMesh* mesh : meshes) delete mesh;
        meshes.clear();
        state = {};
    }
    RayMesh* Add(CMesh* mesh) {
        meshes.push_back(mesh);
        return table.AddMesh(mesh);
    }
    bool Down(float x, float z, float from = 100.0f, float to = -100.0f) {
        return RayCastDown(table, state, x, from, z, x, to, z);
    }
    bool Light(float ox, float oy, float oz, Vector d, CrossingRule rule = CrossingRule::HalfOpen) {
        return RayCastToLight(table, state, ox, oy, oz, d.x, d.y, d.z, rule);
    }
    bool Light(Vector o, Vector d) { return Light(o.x, o.y, o.z, d); }
    void ExpectNormal(Vector expected, double tolerance = 0.0) {
        EXPECT_NEAR(state.Ground.Normal.x, expected.x, tolerance);
        EXPECT_NEAR(state.Ground.Normal.y, expected.y, tolerance);
        EXPECT_NEAR(state.Ground.Normal.z, expected.z, tolerance);
    }

    RayTable table;
    RayQueryState state;
    std::vector<CMesh*> meshes;
};

TEST_F(RayQueryTest, MissesKeepTheGround) {
    state.Ground = {{1, 2, 3}, {0, 0, 1}};
    EXPECT_TRUE(Down(5, -5));  // empty table
    EXPECT_TRUE(Light(5, 0, -5, Up));
    EXPECT_EQ(state.LastBlocker, nullptr);

    // Ground beyond the target is no hit either.
    Add(Floor(-25000, -100, 100, -100, 100));
    EXPECT_TRUE(Down(5, 5, 10000, -20000));
    EXPECT_EQ(state.Ground.Position.y, 2.0f);
    EXPECT_EQ(state.Ground.Normal.z, 1.0f);
    ASSERT_FALSE(Down(5, 5, 10000, -30000));
    EXPECT_EQ(state.Ground.Position.y, -25000.0f);
}

TEST_F(RayQueryTest, GroundIsFoundFromAboveOnlyOnItsVisibleSide) {
    Add(HandMesh(nullptr, {At(1, 0, 0), At(0, 0, 0), At(0, 0, 1)}, {{0, 1, 2}}));
    ASSERT_FALSE(Down(0.25f, 0.25f, 10, -10));
    EXPECT_EQ(state.Ground.Position.x, 0.25f);
    EXPECT_EQ(state.Ground.Position.y, 0.0f);
    EXPECT_EQ(state.Ground.Position.z, 0.25f);
    ExpectNormal({0, 1, 0});
    EXPECT_TRUE(Down(2, 2, 10, -10));
    FreeAll();

    state.Ground = {{7, 7, 7}, {0, 0, 1}};
    Add(HandMesh(nullptr, {At(0, 0, 0), At(1, 0, 0), At(0, 0, 1)}, {{0, 1, 2}}));
    EXPECT_TRUE(Down(0.25f, 0.25f, 10, -10));
    EXPECT_EQ(state.Ground.Position.y, 7.0f);
    FreeAll();

    // A wall in the plane x = 0.5, either winding, met in its plane from above and from within.
    Add(HandMesh(nullptr, {At(0.5f, 0, 0), At(0.5f, 1, 0), At(0.5f, 0, 1)},
                 {{0, 1, 2}, {2, 1, 0}}));
    EXPECT_TRUE(Down(0.5f, 0.25f, 10, -10));
    EXPECT_TRUE(Down(0.5f, 0.25f, 0.5f, -10));
}

TEST_F(RayQueryTest, NearestGroundWinsAndTiesKeepTheEarlierRecordThenTriangle) {
    for (bool upperFirst : {false, true}) {
        SCOPED_TRACE(upperFirst ? "upper first" : "lower first");
        CMesh* lower = Floor(0, 0, 10, -10, 0, {1, 0, 0});
        CMesh* upper = Floor(5, 0, 10, -10, 0, {0, 0, 1});
        Add(upperFirst ? lower : upper);
        Add(upperFirst ? upper : lower);
        ASSERT_FALSE(Down(3, -6));
        EXPECT_EQ(state.Ground.Position.y, 5.0f);
        ExpectNormal({0, 0, 1});
        ASSERT_FALSE(Down(3, -6, 4, -100));  // between the floors only the lower one is below
        EXPECT_EQ(state.Ground.Position.y, 0.0f);
        FreeAll();
    }

    // Coincident faces: the record that stands first (added last) wins, and within one record
    // the earlier face.
    std::vector<MeshVertex> vertices = {At(4, 1, 0, {1, 0, 0}), At(0, 1, 0, {1, 0, 0}),
                                        At(0, 1, 4, {1, 0, 0}), At(4, 1, 0, {0, 0, 1}),
                                        At(0, 1, 0, {0, 0, 1}), At(0, 1, 4, {0, 0, 1})};
    Add(HandMesh(nullptr, vertices, {{0, 1, 2}}));
    Add(HandMesh(nullptr, vertices, {{3, 4, 5}}));
    ASSERT_FALSE(Down(1, 1));
    ExpectNormal({0, 0, 1});
    Add(HandMesh(nullptr, vertices, {{0, 1, 2}, {3, 4, 5}}));
    ASSERT_FALSE(Down(1, 1));
    ExpectNormal({1, 0, 0});
    Add(HandMesh(nullptr, vertices, {{3, 4, 5}, {0, 1, 2}}));
    ASSERT_FALSE(Down(1, 1));
    ExpectNormal({0, 0, 1});
}

TEST_F(RayQueryTest, GroundNormalBlendsTheVertexNormals) {
    // Every component non-zero, and corners away from the axes, so no term drops out.
    const Vector n[3] = {{0.48f, 0.6f, 0.64f}, {0.36f, 0.48f, 0.8f}, {0.8f, 0.36f, 0.48f}};
    // The first triangle grows c1 and c2 to the same x, the second does not: both ways of finding
    // the crossing on edge c1 c2.
    const Vector triangles[2][3] = {{{100, 0, -20}, {0, 0, -70}, {0, 0, 30}},
                                    {{200, 0, -30}, {220, 0, 50}, {300, 0, -40}}};
    // Barycentric weights: corner 0, the middle of edge c1 c2, inside.
    const double weights[][3] = {
        {1, 0, 0}, {0, 0.5, 0.5}, {0.2, 0.3, 0.5}, {0.6, 0.3, 0.1}, {0.1, 0.8, 0.1}};
    for (int t = 0; t < 2; ++t) {
        const Vector* c = triangles[t];
        RayMesh* record =
            Add(HandMesh(nullptr, {{c[0], n[0]}, {c[1], n[1]}, {c[2], n[2]}}, {{0, 1, 2}}));
        ASSERT_NE(record, nullptr);
        const RayTriangle& triangle = record->Triangles[0];
        ASSERT_EQ(triangle.Corner[1][0] == triangle.Corner[2][0], t == 0);
        for (const auto& w : weights) {
            SCOPED_TRACE(testing::Message() << t << ": " << w[0] << " " << w[1] << " " << w[2]);
            float x = float(w[0] * c[0].x + w[1] * c[1].x + w[2] * c[2].x);
            float z = float(w[0] * c[0].z + w[1] * c[1].z + w[2] * c[2].z);
            ASSERT_FALSE(Down(x, z));
            EXPECT_EQ(state.Ground.Position.x, x);
            EXPECT_EQ(state.Ground.Position.y, 0.0f);
            EXPECT_EQ(state.Ground.Position.z, z);
            auto blend = [&](int i) {
                return w[0] * (&n[0].x)[i] + w[1] * (&n[1].x)[i] + w[2] * (&n[2].x)[i];
            };
            ExpectNormal(Unit(blend(0), blend(1), blend(2)), 2e-4);
        }
        FreeAll();
    }
}

// Both record tests are inclusive; the ground's inside test is half open: with the corners
// (0, 0), (10, 0), (0, 10) the edge from c0 to c1 belongs to the triangle, the other two do not.
TEST_F(RayQueryTest, GroundBoxIsInclusiveAndTheTriangleOwnsOneEdge) {
    RayMesh* record = Add(Floor(0, -20, 20, -20, 20));
    ASSERT_NE(record, nullptr);
    for (uint32_t i = 0; i < record->TriangleCount; ++i)
        SetCorners(record->Triangles[i], {{0, 0}, {10, 0}, {0, 10}});
    EXPECT_FALSE(Down(2, 5));
    EXPECT_FALSE(Down(5, 0));
    EXPECT_TRUE(Down(0, 5));
    EXPECT_TRUE(Down(5, 5));
    EXPECT_TRUE(Down(8, 5));

    record->MinX = record->MaxX = 3;
    record->MinZ = record->MaxZ = 2;
    EXPECT_FALSE(Down(3, 2));
    EXPECT_TRUE(Down(3.0001f, 2));
    EXPECT_TRUE(Down(3, 2.0001f));
    EXPECT_TRUE(Down(2.9999f, 2));
    EXPECT_TRUE(Down(3, 1.9999f));
}

TEST_F(RayQueryTest, LightIsBlockedByATriangleAheadFromEitherSide) {
    for (bool visibleUp : {true, false}) {
        SCOPED_TRACE(visibleUp ? "visible up" : "visible down");
        Add(Floor(10, 0, 10, -10, 0, Up, visibleUp));
        EXPECT_FALSE(Light(3, 0, -6, Up));
        EXPECT_TRUE(Light(3, 20, -6, Up));
        EXPECT_FALSE(Light(3, 20, -6, {0, -1, 0}));
        EXPECT_TRUE(Light(13, 0, -6, Up));
        EXPECT_FALSE(Light(-20, 0, -6, Unit(23, 10, 0)));
        FreeAll();
    }
}

TEST_F(RayQueryTest, RayOutsideTheCylinderTestsNoTriangle) {
    RayMesh* record = Add(Box({-1, 0, -1}, {1, 1, 1}));
    ASSERT_NE(record, nullptr);
    ASSERT_GT(record->RadiusSquared, 1.3 * 1.3);
    EXPECT_TRUE(Light(1.3f, -5, 0, Up));  // inside the circle, beside the box
    EXPECT_FALSE(Light(0.5f, -5, 0.5f, Up));

    CoverTheWholePlane(record);
    EXPECT_TRUE(Light(5, -5, 0, Up));
    EXPECT_TRUE(Light(-3, -5, -3, Up));
    // Passes x = 0 under the top at z = 5, far outside the circle, and crosses y = 1 at x = 10.
    EXPECT_TRUE(Light(-20, -0.5f, 5, Unit(20, 1, 0)));
    EXPECT_FALSE(Light(1.3f, -5, 0, Up));
    FreeAll();

    // Over the top at both crossings of the circle, the mesh is passed over.
    record = Add(Box({-1, 0, -1}, {1, 1, 1}));
    ASSERT_NE(record, nullptr);
    const Vector o = {-20, 1.5f, 0};
    const Vector clears = Unit(40, -0.5, 0);  // down to y = 1 only at x = 20
    const Vector dips = Unit(21.3, -0.5, 0);  // down to y = 1 at x = 1.3, in the circle
    double nearY, farY;
    CircleCrossings(*record, o, clears, &nearY, &farY);
    ASSERT_GT(farY, record->Top);
    CircleCrossings(*record, o, dips, &nearY, &farY);
    ASSERT_LE(farY, record->Top);
    EXPECT_TRUE(Light(o, clears));  // the box lies under the whole path of both
    EXPECT_TRUE(Light(o, dips));
    CoverTheWholePlane(record);
    EXPECT_TRUE(Light(o, clears));
    EXPECT_FALSE(Light(o, dips));
}

TEST_F(RayQueryTest, LowSunIsBlockedByAMeshWhoseCircleLiesToOneSide) {
    RayMesh* record = Add(Box({-1, 0, -1}, {1, 1.05f, 1}));
    ASSERT_NE(record, nullptr);
    struct Case {
        Vector o, d;
        bool nearOver, farOver;  // the line's height at the circle's crossings against Top
    };
    const Case cases[] = {
        {{-20, 0, 0}, Unit(19, 1, 0), false, true},      // rising: meets the side x = -1 at y 1
        {{-20, 2, 0}, Unit(20, -0.95, 0), true, false},  // falling: meets the top at x = 0
        {{15, 0.25f, 12}, Unit(-15, 0.5, -12), false, false},  // slanted in z too
    };
    for (const Case& c : cases) {
        double nearY, farY;
        CircleCrossings(*record, c.o, c.d, &nearY, &farY);
        ASSERT_EQ(nearY > record->Top, c.nearOver);
        ASSERT_EQ(farY > record->Top, c.farOver);
        EXPECT_FALSE(Light(c.o, c.d));
        state.LastBlocker = nullptr;
    }
}

TEST_F(RayQueryTest, LastBlockerIsTriedFirstButNeverChangesAnAnswer) {
    RayMesh* a = Add(Floor(10, 0, 10, -10, 0));
    RayMesh* b = Add(Floor(10, 20, 30, -10, 0));
    ASSERT_TRUE(a && b);
    auto in = [](const RayMesh* record, const RayTriangle* triangle) {
        return triangle && triangle >= record->Triangles &&
               triangle < record->Triangles + record->TriangleCount;
    };
    EXPECT_FALSE(Light(3, 0, -6, Up));
    const RayTriangle* blocker = state.LastBlocker;
    ASSERT_TRUE(in(a, blocker));

    // With a's triangles skipped, only the cached blocker can answer, and it ignores Skip.
    for (uint32_t i = 0; i < a->TriangleCount; ++i) a->Triangles[i].Skip = 1;
    EXPECT_FALSE(Light(3, 0, -6, Up));
    EXPECT_TRUE(Light(3, 20, -6, Up));
    EXPECT_EQ(state.LastBlocker, blocker);  // kept until replaced
    EXPECT_FALSE(Light(25, 0, -6, Up));
    ASSERT_TRUE(in(b, state.LastBlocker));
    EXPECT_TRUE(Light(3, 0, -6, Up));  // a skipped, b's triangle misses
    FreeAll();

    // With its top out of reach the record is passed over by the walk, so its cached triangle
    // must not block the same ray either.
    RayMesh* roof = Add(Floor(10, 0, 10, -10, 0));
    const Vector d = Unit(0.1, 1, 0);
    EXPECT_FALSE(Light(3, 0, -6, d));
    ASSERT_NE(state.LastBlocker, nullptr);
    roof->Top = -1e6f;
    EXPECT_TRUE(Light(3, 0, -6, d));
}

TEST_F(RayQueryTest, ZeroAreaTrianglesAndZeroDirectionsNeverHit) {
    RayMesh* record = Add(HandMesh(nullptr, {At(0, 0, 0), At(2, 0, 0), At(4, 0, 0), At(-2, -1, -3)},
                                   {{0, 1, 2}, {2, 1, 0}, {3, 3, 3}}));
    ASSERT_NE(record, nullptr);
    for (uint32_t i = 0; i < record->TriangleCount; ++i)
        ASSERT_EQ(VectorLength(record->Triangles[i].Normal), 0.0f) << i;
    EXPECT_TRUE(Down(2, 0));
    EXPECT_TRUE(Down(-2, -3));
    EXPECT_TRUE(Light(2, -5, 0, Up));
    EXPECT_TRUE(Light(-2, -5, -3, Up));
    EXPECT_TRUE(Light(-2, 5, -3, {0, -1, 0}));
    EXPECT_TRUE(Light(-1, 0, 0, {1, 0, 0}));
    EXPECT_EQ(state.LastBlocker, nullptr);
    FreeAll();

    Add(Box({-1, -1, -1}, {1, 1, 1}));
    // Normals with every component of one sign make the den test meet -0 rather than +0.
    Add(HandMesh(nullptr, {At(1, 0, 0), At(0, 1, 0), At(0, 0, 1)}, {{0, 1, 2}, {2, 1, 0}}));
    EXPECT_FALSE(Light(0.25f, 0.25f, 0.25f, Up));
    for (float origin : {0.25f, -0.25f, 0.3f})
        for (float zero : {0.0f, -0.0f}) {
            EXPECT_TRUE(Light(origin, origin, origin, {zero, zero, zero})) << origin;
        }
}

TEST_F(RayQueryTest, MeshesBeyond32768VerticesKeepTheirIndices) {
    // Cut to 16 bits, the indices 65537.. would read vertices 1.., and 40000.. would turn negative.
    std::vector<MeshVertex> vertices(70000, At(0, 0, 0, {0, 0, 1}));
    auto place = [&](uint32_t first, float x0, Vector normal) {
        vertices[first] = At(x0 + 10, 0, 0, normal);
        vertices[first + 1] = At(x0, 0, 0, normal);
        vertices[first + 2] = At(x0, 0, 10, normal);
    };
    place(65537, 0, {1, 0, 0});
    place(40000, 50, {0, 1, 0});
    RayMesh* record =
        Add(HandMesh(nullptr, vertices, {{65537, 65538, 65539}, {40000, 40001, 40002}}));
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->Triangles[0].Vertex[0], 65537u);
    EXPECT_EQ(record->Triangles[1].Vertex[2], 40002u);
    ASSERT_FALSE(Down(2, 2));
    ExpectNormal({1, 0, 0});
    ASSERT_FALSE(Down(52, 2));
    ExpectNormal({0, 1, 0});
}

// A triangle of the plane y = 10 (a = x, b = z) drawn by hand, crossed by a ray straight up at
// (a, b). The closed rule counts a crossing level with a vertex on both of its edges: a ghost far
// outside, a hole inside. The half-open rule counts it on one, and a flat edge under neither.
TEST_F(RayQueryTest, CrossingLevelWithAVertexCountsOnceOnlyUnderTheHalfOpenRule) {
    RayMesh* record = Add(Floor(10, -1000, 1000, -1000, 1000));
    ASSERT_NE(record, nullptr);
    record->Triangles[1].Skip = 1;
    // A kite whose middle corner (10, 5) is level with neither other, flat bottom, flat top.
    const float shapes[3][3][2] = {
        {{0, 0}, {10, 5}, {0, 10}}, {{0, 0}, {10, 0}, {5, 10}}, {{0, 10}, {10, 10}, {5, 0}}};
    struct Case {
        const char* what;
        int shape;
        float a, b;
        bool halfOpen, closed;
    };
    const Case cases[] = {
        {"inside", 0, 2, 3, true, true},
        {"outside", 0, -100, 3, false, false},
        {"level with the middle corner, outside", 0, -100, 5, false, true},
        {"level with the middle corner, inside", 0, 5, 5, true, false},
        {"level with the middle corner, beyond it", 0, 20, 5, false, false},
        {"level with the top corner, outside", 0, -100, 10, false, true},
        {"level with the bottom corner, outside", 0, -100, 0, false, false},
        {"level with a flat bottom edge, outside", 1, -100, 0, false, false},
        {"on a flat bottom edge", 1, 5, 0, true, true},
        {"on a flat top edge", 2, 5, 10, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        SetCorners(record->Triangles[0], shapes[c.shape]);
        EXPECT_EQ(!Light(c.a, 0, c.b, Up, CrossingRule::HalfOpen), c.halfOpen);
        EXPECT_EQ(!Light(c.a, 0, c.b, Up, CrossingRule::Closed), c.closed);
    }
}

// The ghost and the hole in a bake: a kite at y 50 whose middle corner stays level with sample
// row 0 when grown (it lies level with the centroid), over flat ground, the sun overhead.
// Column 6 (x 192) lies beside the kite, column 7 (x 224) under it; nothing else differs.
using RayCrossingBake = BakeFixture;
TEST_F(RayCrossingBake, ClosedRuleShadowsBesideAKiteAndLightsUnderIt) {
    std::unique_ptr<CMesh> ground(FlatGround(nullptr, 256.0f));
    MeshBuilder builder;  // visible from below, so the ground rays pass it
    builder.AddTriangle({200, 50, 16}, {240, 50, 0}, {200, 50, -16}, {0, -1, 0});
    builder.Build(ground.get(), "kite");
    ShadowSettings.Light = Up;
    ShadowSettings.TextureSize = 256;  // a sample every 32 units
    ShadowSettings.MapCellsX = ShadowSettings.MapCellsY = 8;
    std::string halfOpen = Bake(ground.get());
    core.crossing = CrossingRule::Closed;
    std::string closed = Bake(ground.get());
    EXPECT_TRUE(stats.literalWalk);
    const uint8_t lit = FileByte(halfOpen, 0, 0);
    EXPECT_EQ(FileByte(halfOpen, 0, 6), lit);
    EXPECT_NE(FileByte(halfOpen, 0, 7), lit);
    EXPECT_NE(FileByte(closed, 0, 6), lit);
    EXPECT_EQ(FileByte(closed, 0, 7), lit);
    std::swap(closed[6], closed[7]);
    EXPECT_TRUE(closed == halfOpen);
}

}  // namespace
