// Single queries of each core on random points of the 128-cell map: which of the two rays of a
// sample costs what, and how much the fast core saves on each.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "bench/bench_maps.h"
#include "bench/bench_registry.h"

namespace {

constexpr BenchMapId QueryMap = Chunked128;
constexpr size_t PointCount = 4096;  // a power of two, cycled through

struct QueryPoints {
    std::vector<Vector> above;   // over the map, where the ground rays start
    std::vector<Vector> ground;  // just off the ground under them, where the light rays start
};

// Random points with ground under them, found once by the fast core.
const QueryPoints& Points() {
    static const QueryPoints points = [] {
        const BenchIndex& index = GetBenchIndex(QueryMap);
        FastRayQuery query(index.fast);
        std::mt19937 random(12345);
        std::uniform_real_distribution<float> across(0.0f, GetBenchMap(QueryMap).cells * 32.0f);
        QueryPoints made;
        while (made.above.size() < PointCount) {
            float x = across(random), z = -across(random);
            if (query.CastDown(x, 10000.0f, z, x, -20000.0f, z)) continue;
            const RayGroundState& g = query.Ground();
            made.above.push_back({x, 10000.0f, z});
            made.ground.push_back({g.Position.x + g.Normal.x * 0.01f,
                                   g.Position.y + g.Normal.y * 0.01f,
                                   g.Position.z + g.Normal.z * 0.01f});
        }
        return made;
    }();
    return points;
}

template <typename Query>
Query MakeQuery(const BenchIndex& index);
template <>
LiteralRayQuery MakeQuery(const BenchIndex& index) {
    return LiteralRayQuery(index.table, index.light, CrossingRule::HalfOpen);
}
template <>
FastRayQuery MakeQuery(const BenchIndex& index) {
    return FastRayQuery(index.fast);
}

void SetRayRate(benchmark::State& state) {
    state.counters["rays/s"] =
        benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

template <typename Query>
void GroundQuery(benchmark::State& state) {
    const std::vector<Vector>& above = Points().above;
    Query query = MakeQuery<Query>(GetBenchIndex(QueryMap));
    size_t i = 0;
    for (auto _ : state) {
        const Vector& p = above[i++ & (PointCount - 1)];
        benchmark::DoNotOptimize(query.CastDown(p.x, p.y, p.z, p.x, -20000.0f, p.z));
    }
    SetRayRate(state);
}

template <typename Query>
void LightQuery(benchmark::State& state) {
    const std::vector<Vector>& ground = Points().ground;
    Query query = MakeQuery<Query>(GetBenchIndex(QueryMap));
    size_t i = 0;
    for (auto _ : state) {
        const Vector& p = ground[i++ & (PointCount - 1)];
        benchmark::DoNotOptimize(query.CastToLight(p.x, p.y, p.z));
    }
    SetRayRate(state);
}

}  // namespace

void RegisterQueryBenchmarks() {
    const double minSeconds = 0.3;
    benchmark::RegisterBenchmark("GroundQuery/literal/chunks128", GroundQuery<LiteralRayQuery>)
        ->MinTime(minSeconds);
    benchmark::RegisterBenchmark("GroundQuery/fast/chunks128", GroundQuery<FastRayQuery>)
        ->MinTime(minSeconds);
    benchmark::RegisterBenchmark("LightQuery/literal/chunks128", LightQuery<LiteralRayQuery>)
        ->MinTime(minSeconds);
    benchmark::RegisterBenchmark("LightQuery/fast/chunks128", LightQuery<FastRayQuery>)
        ->MinTime(minSeconds);
}
