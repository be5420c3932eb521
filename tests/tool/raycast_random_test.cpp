// Seeded random tests of both ray cores. The fast core against the literal walk under the
// half-open rule: every answer bit for bit, and whole bakes byte for byte at any number of
// threads, on maps of varied shape and under lights that meet the edge cases of both cores'
// arithmetic. The literal walk against terrains whose answers are known. TENEBRIX_TEST_INTENSITY=N
// runs N times as much.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/bake_fixture.h"
#include "tests/support/random_map.h"
#include "tests/support/report_capture.h"
#include "tool/maps/mesh_builder.h"
#include "tool/raycast/fast_raycast.h"

namespace {

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

using FastRayCore = BakeFixture;

// Each map is baked through the literal walk at one of 1, 2 or 4 threads, and through the fast
// core at each; the shadow map and the height file must be the same bytes. Samples lie on the
// 4-unit lattice that the maps snap many vertices to. Then both queries of a sample at every point
// of a finer grid over the map and a border round it, through both cores, bit for bit; where there
// is no ground the light ray starts at height 0, often outside the fast core's grids.
TEST_F(FastRayCore, BakesAndAnswersAsTheLiteralWalkOnRandomMaps) {
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

double Uniform(std::mt19937& random, double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(random);
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

// Rays aimed exactly at a terrain's vertices and at points of its shared edges find the terrain:
// the growth of every triangle closes the cracks that rounding would open. A ray that grazes the
// faces it is aimed at is left out: near parallel to a plane its rounding moves the hit further
// than the growth covers.
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

        // Every vertex, and points along every edge that two faces share, with the faces they lie
        // on.
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
                double f = n == 0 ? 0.5 : Uniform(random, 0, 1);
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
