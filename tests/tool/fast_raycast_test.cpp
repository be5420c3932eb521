// The fast core against the literal walk under the half-open rule: every answer bit for bit, and
// whole bakes byte for byte at any number of threads, on maps of varied shape and under lights
// that meet the edge cases of both cores' arithmetic. TENEBRIX_TEST_INTENSITY=N runs N times as
// many maps.
#include "tool/raycast/fast_raycast.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "tests/support/bake_fixture.h"
#include "tests/support/random_map.h"
#include "tests/support/report_capture.h"
#include "tool/maps/demo_map.h"

namespace {

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

struct Answers {
    int lit = 0, shadowed = 0;
};

// Both queries of a bake's sample at every point of a grid over the map and a border around it,
// through both cores; stops at the first that differs in any bit. Where there is no ground the
// light ray starts at height 0, often outside the fast core's grids.
void CompareQueries(CMesh* map, Vector light, float span, float step, Answers& answers) {
    VectorNormalize(light);
    RayTable table;
    table.AddTree(map);
    FastRayTable fast;
    fast.Build(table, light);
    FastRayQuery query(fast);
    RayQueryState state;
    for (float z = span / 8; z > -span * 9 / 8; z -= step)
        for (float x = -span / 8; x < span * 9 / 8; x += step) {
            bool miss = RayCastDown(table, state, x, 10000.0f, z, x, -20000.0f, z);
            ASSERT_EQ(query.CastDown(x, 10000.0f, z, x, -20000.0f, z), miss) << x << ", " << z;
            ASSERT_EQ(std::memcmp(&query.Ground(), &state.Ground, sizeof state.Ground), 0)
                << x << ", " << z;
            const Vector& n = state.Ground.Normal;
            float ox = miss ? x : float(x + n.x * 0.01);
            float oy = miss ? 0.0f : float(state.Ground.Position.y + n.y * 0.01);
            float oz = miss ? z : float(z + n.z * 0.01);
            bool free = RayCastToLight(table, state, ox, oy, oz, light.x, light.y, light.z);
            ASSERT_EQ(query.CastToLight(ox, oy, oz), free) << x << ", " << z;
            ++(free ? answers.lit : answers.shadowed);
        }
}

using FastRayCore = BakeFixture;

TEST_F(FastRayCore, AnswersAsTheLiteralWalkOnTheDemoMap) {
    std::unique_ptr<CMesh> map(BuildDemoMap());
    Answers answers;
    for (const Vector& light : Lights) {
        SCOPED_TRACE(testing::Message() << "light " << light.x << " " << light.y << " " << light.z);
        CompareQueries(map.get(), light, DemoMapCells * 32.0f, 12.0f, answers);
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(answers.lit, 0);
    EXPECT_GT(answers.shadowed, 0);
}

// Each map is baked through the literal walk at one of 1, 2 or 4 threads, and through the fast
// core at each; the shadow map and the height file must be the same bytes. Samples lie on the
// 4-unit lattice that the maps snap many vertices to.
TEST_F(FastRayCore, BakesAndAnswersAsTheLiteralWalkOnRandomMaps) {
    ReportCapture quiet;  // the zero light is warned about
    ShadowSettings.TextureSize = 512;
    ShadowSettings.Oversample = 4;
    ShadowSettings.WriteHeightData = 1;
    const int threadCounts[] = {1, 2, 4};
    const char* intensity = std::getenv("TENEBRIX_TEST_INTENSITY");
    const int maps = 50 * std::max(1, intensity ? std::atoi(intensity) : 1);
    auto bake = [&](CMesh* map) {
        std::string bytes = Bake(map);
        return bytes + ReadWholeFile(dir->File("texture.dah"));
    };
    Answers answers;
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
        CompareQueries(map.get(), Lights[light], cells * 32.0f, 2.0f, answers);
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(answers.lit, 0);  // the maps exercise both answers
    EXPECT_GT(answers.shadowed, 0);
}

}  // namespace
