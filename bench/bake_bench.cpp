// Whole bakes through the fast core, as the command line runs them: wall time on every core.
#include <benchmark/benchmark.h>

#include "bench/bench_maps.h"
#include "bench/bench_registry.h"
#include "engine/texture/texture.h"
#include "tool/bake/bake_pass.h"

namespace {

void BakeWhole(benchmark::State& state, BenchMapId id, int oversample) {
    const BenchMap& map = GetBenchMap(id);
    BakeJob job;
    job.settings = BenchSettings(map, oversample);
    job.mesh = map.mesh;
    job.shadowMapPath = "/dev/null";  // written in place: the file costs next to nothing
    double samples = 0, tableSeconds = 0, indexSeconds = 0;
    BakeStatistics last;
    for (auto _ : state) {
        BakeResult result = BakeShadowMap(job);
        job.texture = result.texture;  // reused by the next iteration
        last = result.statistics;
        if (!result.texture || !last.filesWritten || last.literalWalk) {
            state.SkipWithError("the bake did not run through the fast core to the end");
            break;
        }
        samples += double(last.samples);
        tableSeconds += last.tableSeconds;
        indexSeconds += last.indexSeconds;
    }
    if (job.texture) FreeTexture(job.texture);

    using benchmark::Counter;
    state.counters["samples/s"] = Counter(samples, Counter::kIsRate);
    state.counters["samples"] = double(last.samples);
    state.counters["triangles"] = double(last.triangles);
    state.counters["tableSeconds"] = Counter(tableSeconds, Counter::kAvgIterations);
    state.counters["indexSeconds"] = Counter(indexSeconds, Counter::kAvgIterations);
    state.counters["indexBytes"] =
        Counter(double(last.indexBytes), Counter::kDefaults, Counter::kIs1024);
}

}  // namespace

void RegisterBakeBenchmarks() {
    // The large bakes take seconds each: a couple of iterations, not a minimum time.
    const int iterations[GeneratedMapCount] = {4, 3, 2, 2};
    for (int id = 0; id < GeneratedMapCount; ++id)
        for (int oversample : BenchOversamples)
            benchmark::RegisterBenchmark(BenchName("Bake", BenchMapId(id), oversample).c_str(),
                                         BakeWhole, BenchMapId(id), oversample)
                ->Iterations(iterations[id])
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
}
