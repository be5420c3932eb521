// Speed of the ray-cast core and the bake pass on the demo map. Rates are reported as counters:
// rays per second for each query, samples per second for whole passes.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <vector>

#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "tool/run/app_state.h"
#include "tool/bake/bake_pass.h"
#include "tool/maps/demo_map.h"
#include "tool/raycast/fast_raycast.h"
#include "tool/raycast/ray_table.h"
#include "tool/bake/shadow_settings.h"

namespace {

constexpr float MapSpan = DemoMapCells * 32.0f;

struct DemoTable {
    DemoTable() : map(BuildDemoMap()) {
        RayTableBegin();
        RayTableAddTree(map);
    }
    ~DemoTable() {
        RayTableFree();
        delete map;
    }
    CMesh* map;
};

std::vector<Vector> RandomPoints(size_t count) {
    std::mt19937 random(12345);
    std::uniform_real_distribution<float> across(0.0f, MapSpan);
    std::vector<Vector> points(count);
    for (Vector& p : points) p = {across(random), 0.0f, -across(random)};
    return points;
}

void GroundQuery(benchmark::State& state) {
    DemoTable table;
    std::vector<Vector> points = RandomPoints(4096);
    size_t i = 0;
    for (auto _ : state) {
        const Vector& p = points[i++ & 4095];
        benchmark::DoNotOptimize(RayCastDown(p.x, 10000.0f, p.z, p.x, -20000.0f, p.z));
    }
    state.counters["rays/s"] = benchmark::Counter(double(state.iterations()),
                                                  benchmark::Counter::kIsRate);
}
BENCHMARK(GroundQuery);

void LightQuery(benchmark::State& state) {
    DemoTable table;
    std::vector<Vector> points = RandomPoints(4096);
    for (Vector& p : points) {  // start each light ray on the ground, as the bake does
        RayCastDown(p.x, 10000.0f, p.z, p.x, -20000.0f, p.z);
        p = RayGround.Position;
        p.y += 0.01f;
    }
    Vector light = {0.55f, 0.45f, 0.35f};
    VectorNormalize(light);
    size_t i = 0;
    for (auto _ : state) {
        const Vector& p = points[i++ & 4095];
        benchmark::DoNotOptimize(RayCastToLight(p.x, p.y, p.z, light.x, light.y, light.z));
    }
    state.counters["rays/s"] = benchmark::Counter(double(state.iterations()),
                                                  benchmark::Counter::kIsRate);
}
BENCHMARK(LightQuery);

// The accelerated core on the same rays: it answers as the literal walk does.
void FastQueries(benchmark::State& state) {
    DemoTable table;
    Vector light = {0.55f, 0.45f, 0.35f};
    VectorNormalize(light);
    FastRayTable fast;
    fast.Build(RayTable, light);
    FastRayQuery query(fast);
    std::vector<Vector> points = RandomPoints(4096);
    size_t i = 0;
    for (auto _ : state) {
        const Vector& p = points[i++ & 4095];
        if (!query.CastDown(p.x, 10000.0f, p.z, p.x, -20000.0f, p.z)) {
            const Vector& g = query.ground.Position;
            benchmark::DoNotOptimize(query.CastToLight(g.x, g.y + 0.01f, g.z));
        }
    }
    state.counters["samples/s"] = benchmark::Counter(double(state.iterations()),
                                                     benchmark::Counter::kIsRate);
}
BENCHMARK(FastQueries);

// A whole pass over the demo map at texture size 2048 (512 x 512 samples at oversample 1).
void BakeDemoMap(benchmark::State& state) {
    CMesh* map = BuildDemoMap();
    ShadowSettings = DefaultShadowSettings();
    ShadowSettings.MapCellsX = ShadowSettings.MapCellsY = DemoMapCells;
    ShadowSettings.Oversample = int32_t(state.range(0));
    uint64_t samples = 0;
    for (auto _ : state) {
        char name[260] = "/dev/null";  // written in place: only the pass is timed
        BakeStatistics stats;
        BakeShadowMap(map, name, &stats);
        samples += stats.samples;
    }
    state.counters["samples/s"] = benchmark::Counter(double(samples),
                                                     benchmark::Counter::kIsRate);
    FreeTexture(ShadowTexture);
    ShadowTexture = nullptr;
    delete map;
}
// Wall time: the samples run on worker threads.
BENCHMARK(BakeDemoMap)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
