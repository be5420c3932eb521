// The ray cores: the literal walk on scenes drawn by hand, then seeded random tests (the fast core
// against the literal walk, the walk against terrains). TENEBRIX_TEST_INTENSITY=N runs N times as
// much.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/bake_fixture.h"
#include "tests/support/hand_mesh.h"
#include "tests/support/random_map.h"
#include "tests/support/report_capture.h"
#include "tool/maps/mesh_builder.h"
#include "tool/raycast/fast_raycast.h"
#include "tool/raycast/literal_walk.h"

namespace {

const Vector Up = {0, 1, 0};

// A square at height y over [x0, x1] x [z0, z1], visible up, every vertex with the given normal.
CMesh* Floor(float y, float x0, float x1, float z0, float z1, Vector normal = Up) {
    MeshBuilder builder;
    builder.AddQuad({x0, y, z0}, {x1, y, z0}, {x1, y, z1}, {x0, y, z1}, Up);
    CMesh* mesh = builder.Build(nullptr, "floor");
    for (int32_t i = 0; i < mesh->vertexCount; ++i) mesh->vertices[i].normal = normal;
    return mesh;
}

Vector Unit(double x, double y, double z) {
    double length = std::sqrt(x * x + y * y + z * z);
    return {float(x / length), float(y / length), float(z / length)};
}

void SetCorners(RayTriangle& triangle, const float (&corners)[3][2]) {
    for (int k = 0; k < 3; ++k) std::copy(corners[k], corners[k] + 2, triangle.Corner[k]);
    for (int k = 0; k < 3; ++k) std::copy(corners[k], corners[k] + 2, triangle.GroundCorner[k]);
}

// The projection keeps the two coordinates across the normal's largest component (ties go to x,
// then y); each corner grows 0.001 away from the centroid, which keeps double precision while the
// corner is rounded to float at each step.
TEST(RayBuildTriangle, ProjectionAxesAndCornersGrownByAThousandth) {
    const std::tuple<const char*, std::array<Vector, 3>, int, int, int> rows[] = {
        // what, corners, Axes and the coordinates (x 0, y 1, z 2) it keeps
        {"ground", {{{0, 0, 0}, {1, 0, 0}, {0, 0, 1}}}, 8, 0, 2},
        {"wall x = 2", {{{2, 0, 0}, {2, 1, 0}, {2, 0, 1}}}, 6, 2, 1},
        {"front z = -3", {{{0, 0, -3}, {1, 0, -3}, {0, 1, -3}}}, 4, 0, 1},
        {"tie x y", {{{1, 0, 0}, {0, 1, 0}, {0, 1, 1}}}, 6, 2, 1},
        {"tie y z", {{{0, 0, 0}, {0, 1, -1}, {10, -1, 0}}}, 8, 0, 2},
        {"tie x z", {{{0, 0, 0}, {1, -10, 0}, {0, -10, 1}}}, 6, 2, 1},
        {"slanted", {{{3, 1, -2}, {5, 2, -1}, {4, 6, -7}}}, 8, 0, 2},
    };
    for (const auto& [what, p, axes, a, b] : rows) {
        std::array<Vector, 3> grown = p;
        RayTriangle t = {};
        RayBuildTriangle(&t, grown.data());
        EXPECT_EQ(t.Axes, axes) << what;
        double c[3];
        for (int k = 0; k < 3; ++k)
            c[k] = (double((&p[0].x)[k]) + (&p[1].x)[k] + (&p[2].x)[k]) * (1 / 3.0f);
        for (int i = 0; i < 3; ++i) {
            Vector d = {float(p[i].x - c[0]), float(p[i].y - c[1]), float(p[i].z - c[2])}, w = d;
            VectorNormalize(w);
            const float g[3] = {float(float(d.x + w.x * 0.001) + c[0]),
                                float(float(d.y + w.y * 0.001) + c[1]),
                                float(float(d.z + w.z * 0.001) + c[2])};
            EXPECT_EQ(std::tuple(grown[i].x, grown[i].y, grown[i].z, t.Corner[i][0],
                                 t.Corner[i][1], t.GroundCorner[i][0], t.GroundCorner[i][1]),
                      std::tuple(g[0], g[1], g[2], g[a], g[b], p[i].x, p[i].z))
                << what << " " << i;
        }
    }
}

class RayQuery : public ::testing::Test {
protected:
    RayMesh* Add(CMesh* mesh) {
        meshes.emplace_back(mesh);
        RayMesh* record = table.AddMesh(mesh);
        EXPECT_NE(record, nullptr);
        return record;
    }
    bool Down(float x, float z, float from = 100, float to = -100,
              CrossingRule rule = CrossingRule::HalfOpen) {
        return RayCastDown(table, state, x, from, z, x, to, z, nullptr, rule);
    }
    bool Light(Vector o, Vector d, CrossingRule rule = CrossingRule::HalfOpen) {
        return RayCastToLight(table, state, o.x, o.y, o.z, d.x, d.y, d.z, rule);
    }

    std::vector<std::unique_ptr<CMesh>> meshes;  // outlive the table
    RayTable table;
    RayQueryState state;
};

TEST_F(RayQuery, GroundIsTheNearestVisibleSideWithinReachAndAMissKeepsTheLastHit) {
    const RayGroundState kept = {{7, 7, 7}, {0, 0, 1}};
    state.Ground = kept;
    EXPECT_TRUE(Down(5, -5));  // empty table
    EXPECT_TRUE(Light({5, 0, -5}, Up));
    Add(HandMesh(nullptr, {At(1, 0, 0), At(0, 0, 0), At(0, 0, 1)}, {{0, 1, 2}}));
    Add(HandMesh(nullptr, {At(10, 0, 0), At(11, 0, 0), At(10, 0, 1)}, {{0, 1, 2}}));  // seen below
    // A wall in the plane x = 20.5, both windings, met in its plane from above and from within.
    Add(HandMesh(nullptr, {At(20.5f, 0, 0), At(20.5f, 1, 0), At(20.5f, 0, 1)},
                 {{0, 1, 2}, {2, 1, 0}}));
    Add(Floor(-25000, 100, 300, -100, 100));
    // Two floors in each order of the list: the nearer wins either way.
    Add(Floor(0, 400, 410, -10, 0, {1, 0, 0}));
    Add(Floor(5, 400, 410, -10, 0, {0, 0, 1}));
    Add(Floor(5, 500, 510, -10, 0, {0, 0, 1}));
    Add(Floor(0, 500, 510, -10, 0, {1, 0, 0}));
    // Coincident faces: the record that stands first (added last) wins, and within one record the
    // earlier face.
    std::vector<MeshVertex> v;
    for (Vector n : {Vector{1, 0, 0}, Vector{0, 0, 1}})
        v.insert(v.end(), {At(604, 1, 0, n), At(600, 1, 0, n), At(600, 1, 4, n)});
    Add(HandMesh(nullptr, v, {{0, 1, 2}}));
    Add(HandMesh(nullptr, v, {{3, 4, 5}}));
    for (MeshVertex& vertex : v) vertex.position.x += 100;
    Add(HandMesh(nullptr, v, {{0, 1, 2}, {3, 4, 5}}));
    for (MeshVertex& vertex : v) vertex.position.x += 100;
    Add(HandMesh(nullptr, v, {{3, 4, 5}, {0, 1, 2}}));
    // Cut to 16 bits, the indices 65537.. would read vertices 1.., and 40000.. would turn negative.
    v.assign(70000, At(0, 0, 0, {0, 0, 1}));
    for (auto [i, x, n] : {std::tuple(65537, 900.0f, Vector{1, 0, 0}), {40000, 950.0f, Up}})
        v[i] = At(x + 10, 0, 0, n), v[i + 1] = At(x, 0, 0, n), v[i + 2] = At(x, 0, 10, n);
    Add(HandMesh(nullptr, v, {{65537, 65538, 65539}, {40000, 40001, 40002}}));
    // Zero area: a line, both ways round, and a point.
    Add(HandMesh(nullptr, {At(1000, 0, 0), At(1002, 0, 0), At(1004, 0, 0), At(998, -1, -3)},
                 {{0, 1, 2}, {2, 1, 0}, {3, 3, 3}}));
    const std::tuple<float, float, float, float, float, Vector> rows[] = {
        // x, z, from, to, ground y (NAN: a miss), normal
        {0.25f, 0.25f, 10, -10, 0, Up},      {2, 2, 10, -10, NAN, {}},
        {10.25f, 0.25f, 10, -10, NAN, {}},   {20.5f, 0.25f, 10, -10, NAN, {}},
        {20.5f, 0.25f, 0.5f, -10, NAN, {}},  {150, 0, 10000, -20000, NAN, {}},  // beyond the target
        {150, 0, 10000, -30000, -25000, Up}, {403, -6, 100, -100, 5, {0, 0, 1}},
        {403, -6, 4, -100, 0, {1, 0, 0}},  // between the floors only the lower one is below
        {503, -6, 100, -100, 5, {0, 0, 1}},  {503, -6, 4, -100, 0, {1, 0, 0}},
        {601, 1, 100, -100, 1, {0, 0, 1}},   {701, 1, 100, -100, 1, {1, 0, 0}},
        {801, 1, 100, -100, 1, {0, 0, 1}},   {902, 2, 100, -100, 0, {1, 0, 0}},
        {952, 2, 100, -100, 0, Up},          {1002, 0, 100, -100, NAN, {}},
        {998, -3, 100, -100, NAN, {}},
    };
    for (const auto& [x, z, from, to, y, normal] : rows) {
        state.Ground = kept;
        bool miss = Down(x, z, from, to);
        const RayGroundState expected = miss ? kept : RayGroundState{{x, y, z}, normal};
        EXPECT_EQ(miss, std::isnan(y)) << x << " " << z << " from " << from << " to " << to;
        EXPECT_EQ(std::memcmp(&state.Ground, &expected, sizeof expected), 0) << x << " " << z;
    }
    // Zero-area triangles never block either.
    for (float x : {1002.0f, 998.0f}) EXPECT_TRUE(Light({x, -5, x == 998 ? -3.0f : 0}, Up)) << x;
    EXPECT_TRUE(Light({999, 0, 0}, {1, 0, 0}));
}

TEST_F(RayQuery, GroundNormalBlendsTheVertexNormals) {
    // Every component non-zero, and corners away from the axes, so no term drops out.
    const Vector n[3] = {{0.48f, 0.6f, 0.64f}, {0.36f, 0.48f, 0.8f}, {0.8f, 0.36f, 0.48f}};
    // The first triangle grows c1 and c2 to the same x, the second does not: both ways of finding
    // the crossing on edge c1 c2.
    const Vector corners[2][3] = {{{100, 0, -20}, {0, 0, -70}, {0, 0, 30}},
                                  {{200, 0, -30}, {220, 0, 50}, {300, 0, -40}}};
    const double weights[][3] = {
        {1, 0, 0}, {0, 0.5, 0.5}, {0.2, 0.3, 0.5}, {0.6, 0.3, 0.1}, {0.1, 0.8, 0.1}};
    for (const auto& c : corners) {
        const RayTriangle& t =
            Add(HandMesh(nullptr, {{c[0], n[0]}, {c[1], n[1]}, {c[2], n[2]}}, {{0, 1, 2}}))
                ->Triangles[0];
        ASSERT_EQ(t.Corner[1][0] == t.Corner[2][0], &c == corners);
        for (const auto& w : weights) {
            auto mix = [&](const Vector* v, int i) {
                return w[0] * (&v[0].x)[i] + w[1] * (&v[1].x)[i] + w[2] * (&v[2].x)[i];
            };
            float x = float(mix(c, 0)), z = float(mix(c, 2));
            ASSERT_FALSE(Down(x, z)) << x << " " << z;
            EXPECT_EQ(std::tuple(state.Ground.Position.x, state.Ground.Position.z),
                      std::tuple(x, z));
            const Vector expected = Unit(mix(n, 0), mix(n, 1), mix(n, 2));
            for (int i = 0; i < 3; ++i)
                EXPECT_NEAR((&state.Ground.Normal.x)[i], (&expected.x)[i], 2e-4) << x << " " << z;
        }
        table.Free();
    }
}

// A box whose top is made to cover its whole plane: a ray that crosses y = top is blocked if and
// only if the record passes the cylinder test.
TEST_F(RayQuery, CylinderTestPassesOverMeshesBesideOrUnderTheRay) {
    MeshBuilder builder;
    builder.AddBox({-1, 0, -1}, {1, 1.05f, 1});
    RayMesh* record = Add(builder.Build(nullptr, "box"));
    ASSERT_GT(record->RadiusSquared, 1.3 * 1.3);
    ASSERT_EQ(record->Triangles[0].Axes, RayAxesXZ);
    SetCorners(record->Triangles[0], {{-1e5f, -1e5f}, {1e5f, -1e5f}, {0, 1e5f}});
    const std::tuple<Vector, Vector, bool> rows[] = {
        {{5, -5, 0}, Up, false},
        {{-3, -5, -3}, Up, false},
        {{1.3f, -5, 0}, Up, true},                    // inside the circle, beside the box
        {{-20, -0.5f, 5}, Unit(20, 1, 0), false},     // crosses the top's plane far from the circle
        {{-20, 1.55f, 0}, Unit(40, -0.5, 0), false},  // over the top at both crossings
        {{-20, 1.55f, 0}, Unit(21.3, -0.5, 0), true},  // under it at the far crossing
        {{-20, 0, 0}, Unit(19, 1, 0), true},           // under at the near crossing
        {{-20, 2, 0}, Unit(20, -0.95, 0), true},
        {{15, 0.25f, 12}, Unit(-15, 0.5, -12), true},  // under at both, slanted in z too
    };
    for (const auto& [o, d, tested] : rows) {
        state.LastBlocker = nullptr;
        EXPECT_EQ(Light(o, d), !tested) << o.x << " " << o.y << " " << o.z << " " << d.x;
    }
    // A zero direction meets no plane; normals with every component of one sign make the den test
    // meet -0 rather than +0.
    Add(HandMesh(nullptr, {At(1, 0, 0), At(0, 1, 0), At(0, 0, 1)}, {{0, 1, 2}, {2, 1, 0}}));
    EXPECT_FALSE(Light({0.25f, 0.25f, 0.25f}, {1, 0, 0}));
    for (float o : {0.25f, -0.25f, 0.3f})
        for (float zero : {0.0f, -0.0f}) EXPECT_TRUE(Light({o, o, o}, {zero, zero, zero})) << o;
}

TEST_F(RayQuery, AFaceIndexOutOfRangeGivesNoRecord) {
    ReportCapture reports;
    meshes.emplace_back(
        HandMesh(nullptr, {At(0, 0, 0), At(1, 0, 0), At(0, 0, -1)}, {{0, 1, 2}, {0, 3, 2}}));
    EXPECT_EQ(table.AddMesh(meshes.back().get()), nullptr);
    EXPECT_EQ(table.First(), nullptr);
    EXPECT_EQ(reports.Take().size(), 1u);
}

// A cell of a steep terrain far from the origin, cut along its diagonal into two faces whose
// normals are mostly x. A ray straight down onto the diagonal finds ground; decided in the faces'
// own plane alone, where the hit point carries the rounding of t, it fell between them.
TEST_F(RayQuery, ARayOnTheEdgeOfASteepFaceFindsGround) {
    Add(HandMesh(nullptr,
                 {At(7880, 58.395f, -88), At(7888, 66.95f, -88), At(7888, 64.41f, -96),
                  At(7880, 56.2f, -96)},
                 {{0, 1, 2}, {0, 2, 3}}));
    ASSERT_EQ(table.First()->Triangles[1].Axes, RayAxesZY);
    EXPECT_FALSE(Down(7884, -92, 10000, -20000));
    EXPECT_NEAR(state.Ground.Position.y, (58.395f + 64.41f) / 2, 1e-3);
    EXPECT_TRUE(RayCastDown(table, state, 7884, 10000, -92, 7884, -20000, -92, nullptr,
                            CrossingRule::Closed));
}

// Triangles in the plane y = 10 (a = x, b = z). The ground's box is inclusive; its inside test in
// the triangle's plane is half open: of the corners (0, 0), (10, 0), (0, 10) only the edge c0-c1
// is the triangle's, which is all the rule as first written takes; seen from above, every edge is.
// A light ray level with a vertex crosses both its edges under the closed rule, one under the
// half-open rule.
TEST_F(RayQuery, HandDrawnTrianglesOwnTheirEdgesByTheCrossingRule) {
    RayMesh* record = Add(Floor(10, -1000, 1000, -1000, 1000));
    for (int i = 0; i < 2; ++i) SetCorners(record->Triangles[i], {{0, 0}, {10, 0}, {0, 10}});
    EXPECT_LT(record->MinX, -1000);  // the box holds the grown corners
    const std::tuple<float, float, bool, bool> edges[] = {
        // x, z, found, found as first written
        {2, 5, 1, 1},    {5, 0, 1, 1}, {0, 5, 1, 0}, {5, 5, 1, 0},
        {8, 5, 0, 0},    {0, 0, 1, 0}, {0, 10, 1, 0}, {-0.001f, 5, 0, 0},
        {5, -0.001f, 0, 0}};
    for (auto [x, z, hit, asWritten] : edges) {
        EXPECT_EQ(!Down(x, z), hit) << x << " " << z;
        EXPECT_EQ(!Down(x, z, 100, -100, CrossingRule::Closed), asWritten) << x << " " << z;
    }
    record->MinX = record->MaxX = 3;
    record->MinZ = record->MaxZ = 2;
    const std::tuple<float, float, bool> box[] = {
        {3, 2, 1}, {3.0001f, 2, 0}, {3, 2.0001f, 0}, {2.9999f, 2, 0}, {3, 1.9999f, 0}};
    for (auto [x, z, hit] : box) EXPECT_EQ(!Down(x, z), hit) << x << " " << z;

    record->Triangles[1].Skip = 1;
    // A kite whose middle corner (10, 5) is level with neither other, flat bottom, flat top.
    const float shapes[3][3][2] = {
        {{0, 0}, {10, 5}, {0, 10}}, {{0, 0}, {10, 0}, {5, 10}}, {{0, 10}, {10, 10}, {5, 0}}};
    const std::tuple<const char*, int, float, float, bool, bool> rows[] = {
        // what, shape, a, b, blocked under the half-open rule, under the closed rule
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
    for (const auto& [what, shape, a, b, halfOpen, closed] : rows) {
        SetCorners(record->Triangles[0], shapes[shape]);
        EXPECT_EQ(!Light({a, 0, b}, Up, CrossingRule::HalfOpen), halfOpen) << what;
        EXPECT_EQ(!Light({a, 0, b}, Up, CrossingRule::Closed), closed) << what;
    }
}

// The ghost and the hole in a bake: a kite at y 50, its grown middle corner level with sample row 0,
// the sun overhead. Column 6 (x 192) lies beside the kite, column 7 (x 224) under it.
using RayBake = BakeFixture;
TEST_F(RayBake, ClosedRuleShadowsBesideAKiteAndLightsUnderIt) {
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
    EXPECT_NE(halfOpen[6], halfOpen[7]);
    std::swap(closed[6], closed[7]);
    EXPECT_TRUE(closed == halfOpen && halfOpen[6] == halfOpen[0]);
}

int Intensity() {
    const char* text = std::getenv("TENEBRIX_TEST_INTENSITY");
    return std::max(1, text ? std::atoi(text) : 1);
}

const Vector Lights[] = {
    {0.0f, 1.0f, 0.0f},     // overhead: a and b of a flat triangle exact
    {0.55f, 0.45f, 0.35f},  // afternoon
    {-1.0f, 0.05f, 0.2f},   // grazing
    {0.3f, -0.2f, -0.7f},   // below the horizon
    {0.0f, 0.0f, 0.0f},     // zero
    {1.0f, 0.3f, 0.0f},     // d.z exactly 0: b of a flat triangle exact
    {0.0f, 0.4f, -1.0f},    // d.x exactly 0
    {1.0f, 1.0f, 0.0f},     // diagonal
};

// Literal walk against the fast core at 1, 2 and 4 threads (the same shadow map and height file
// bytes), then both queries at every point of a grid over the map and a border round it.
TEST_F(RayBake, FastCoreBakesAndAnswersAsTheLiteralWalkOnRandomMaps) {
    ReportCapture quiet;  // the zero light is warned about
    ShadowSettings.TextureSize = 512;
    ShadowSettings.Oversample = 4;
    ShadowSettings.WriteHeightData = 1;
    const int threadCounts[] = {1, 2, 4};
    const int maps = 50 * Intensity();
    auto bake = [&](CMesh* map) {
        std::string bytes = Bake(map);
        return bytes + ReadWholeFile(dir->File("texture.dah"));
    };
    int lit = 0, shadowed = 0;
    for (int seed = 1; seed <= maps; ++seed) {
        const int cells = 2 + seed % 5, light = seed % 8;
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", light " << light);
        std::unique_ptr<CMesh> map(BuildRandomMap(uint32_t(seed), cells));
        ShadowSettings.Light = Lights[light];
        ShadowSettings.MapCellsX = cells;
        ShadowSettings.MapCellsY = cells - seed % 2;
        core = {true, CrossingRule::HalfOpen, threadCounts[seed % 3]};
        const std::string literal = bake(map.get());
        ASSERT_GT(literal.size(), 512u * 512u);
        for (int threads : threadCounts) {
            core = {false, CrossingRule::HalfOpen, threads};
            std::string fast = bake(map.get());
            ASSERT_FALSE(stats.literalWalk);
            ASSERT_TRUE(fast == literal) << threads << " threads";
        }
        RayTable table;
        table.AddTree(map.get());
        Vector d = Lights[light];
        VectorNormalize(d);
        FastRayTable fast;
        fast.Build(table, d);
        FastRayQuery query(fast);
        RayQueryState state;
        const float span = cells * 32.0f;
        for (float z = span / 8; z > -span * 9 / 8; z -= 2)
            for (float x = -span / 8; x < span * 9 / 8; x += 2) {
                bool miss = RayCastDown(table, state, x, 10000.0f, z, x, -20000.0f, z);
                ASSERT_EQ(query.CastDown(x, 10000.0f, z, x, -20000.0f, z), miss) << x << ", " << z;
                ASSERT_EQ(std::memcmp(&query.Ground(), &state.Ground, sizeof state.Ground), 0)
                    << x << ", " << z;
                const Vector& n = state.Ground.Normal;
                float ox = miss ? x : float(x + n.x * 0.01);
                float oy = miss ? 0.0f : float(state.Ground.Position.y + n.y * 0.01);
                float oz = miss ? z : float(z + n.z * 0.01);
                bool free = RayCastToLight(table, state, ox, oy, oz, d.x, d.y, d.z);
                ASSERT_EQ(query.CastToLight(ox, oy, oz), free) << x << ", " << z;
                ++(free ? lit : shadowed);
            }
    }
    EXPECT_GT(lit, 0);  // the maps exercise both answers
    EXPECT_GT(shadowed, 0);
}

Vector RandomDirection(std::mt19937& random) {
    std::normal_distribution<double> normal(0.0, 1.0);
    for (;;) {
        double x = normal(random), y = normal(random), z = normal(random);
        double length = std::sqrt(x * x + y * y + z * z);
        if (length > 1e-6) return {float(x / length), float(y / length), float(z / length)};
    }
}

float Hills(float x, float z) {
    return float(6.0 + 2.5 * std::sin(x * 0.37) * std::cos(z * 0.23) + 0.05 * x);
}
float Ridges(float x, float z) {
    return float(3.0 * std::sin(x * 0.9) + 2.0 * std::cos(z * 1.3) + 0.8 * x);
}

// Rays aimed exactly at a terrain's vertices and shared edges hit: growing each triangle closes the
// cracks rounding opens. Grazing rays are left out; there rounding moves the hit past the growth.
TEST(RayRandom, RaysAimedAtVerticesAndSharedEdgesHit) {
    RayTable table;
    RayQueryState state;
    std::mt19937 random(0x5eed0005u);
    const int fractions = 3 * Intensity();
    struct Terrain {
        const char* name;
        float (*height)(float, float);
        float x0, z0, cell;
        double tolerance;  // 0.001 times the largest change of slope across an edge, and more
    };
    for (const Terrain& terrain : {Terrain{"hills", Hills, 13.3f, -7.1f, 1.7f, 2e-3},
                                   Terrain{"ridges", Ridges, -3.9f, 21.7f, 1.3f, 6e-3}}) {
        MeshBuilder builder;
        builder.AddTerrain(terrain.x0, terrain.z0, 14, 14, terrain.cell, terrain.height);
        std::unique_ptr<CMesh> mesh(builder.Build(nullptr, terrain.name));
        const RayMesh* record = table.AddMesh(mesh.get());
        const MeshVertex* v = mesh->vertices;
        float lowest = v[0].position.y;
        for (int32_t i = 0; i < mesh->vertexCount; ++i) lowest = std::min(lowest, v[i].position.y);

        // Every vertex, and points along every edge two faces share, with the faces they lie on.
        std::vector<std::pair<Vector, std::vector<uint32_t>>> targets(size_t(mesh->vertexCount));
        std::map<std::pair<uint32_t, uint32_t>, std::vector<uint32_t>> edges;
        for (int32_t i = 0; i < mesh->vertexCount; ++i) targets[size_t(i)].first = v[i].position;
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f)
            for (int k = 0; k < 3; ++k) {
                uint32_t a = mesh->faces[0][f].vertex[k], b = mesh->faces[0][f].vertex[(k + 1) % 3];
                targets[a].second.push_back(f);
                edges[{std::min(a, b), std::max(a, b)}].push_back(f);
            }
        for (const auto& [edge, faces] : edges) {
            if (faces.size() != 2) continue;
            const Vector &a = v[edge.first].position, &b = v[edge.second].position;
            for (int n = 0; n <= fractions; ++n) {
                double f = n == 0 ? 0.5 : std::uniform_real_distribution<double>(0, 1)(random);
                targets.push_back(
                    {{float(a.x + f * (double(b.x) - a.x)), float(a.y + f * (double(b.y) - a.y)),
                      float(a.z + f * (double(b.z) - a.z))},
                     faces});
            }
        }

        for (const auto& [p, faces] : targets) {
            SCOPED_TRACE(testing::Message() << terrain.name << std::setprecision(9) << " at " << p.x
                                            << " " << p.y << " " << p.z);
            ASSERT_FALSE(RayCastDown(table, state, p.x, 100, p.z, p.x, -100, p.z));
            ASSERT_NEAR(state.Ground.Position.y, p.y, terrain.tolerance);
            ASSERT_FALSE(RayCastToLight(table, state, p.x, lowest - 5, p.z, 0, 1, 0));
            Vector d;
            bool grazes;
            do {
                d = RandomDirection(random);
                grazes = false;
                for (uint32_t f : faces)
                    grazes |= std::fabs(VectorDot(d, record->Triangles[f].Normal)) < 0.25f;
            } while (grazes);
            float ox = float(p.x - 2.0 * d.x), oy = float(p.y - 2.0 * d.y),
                  oz = float(p.z - 2.0 * d.z);
            ASSERT_FALSE(RayCastToLight(table, state, ox, oy, oz, d.x, d.y, d.z))
                << d.x << " " << d.y << " " << d.z;
        }
        table.Free();
        state = {};  // its blocker stood in the table
    }
}

}  // namespace
