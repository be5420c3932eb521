// The fast core against the literal walk on the same few sample rows of a bake's grid, one thread
// each. A whole literal bake of the larger maps would take minutes; a few rows spread over the
// map give its rate. The benchmark's time is the literal walk's.
#include <benchmark/benchmark.h>

#include <chrono>
#include <vector>

#include "bench/bench_maps.h"
#include "bench/bench_registry.h"
#include "tool/bake/bake_pass.h"
#include "tool/bake/sample_grid.h"

namespace {

using Clock = std::chrono::steady_clock;

// The fast core finishes a few rows in milliseconds: it repeats them until its time is readable.
constexpr double FastMinSeconds = 0.05;

// Rows spread evenly over the grid, away from its edges.
std::vector<int> SpreadRows(int rows, int count) {
    std::vector<int> picked;
    for (int i = 1; i <= count; ++i) picked.push_back(int(int64_t(rows) * i / (count + 1)));
    return picked;
}

// Seconds to sample the rows once; the rows' values go to out.
double TimeRows(const SampleGrid& grid, const RayCore& core, const std::vector<int>& rows,
                std::vector<std::vector<uint32_t>>& out) {
    Clock::time_point start = Clock::now();
    out.clear();
    for (int row : rows) out.push_back(SampleRow(grid, core, row));
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void SpeedUp(benchmark::State& state, BenchMapId id, int oversample) {
    const BenchMap& map = GetBenchMap(id);
    const BenchIndex& index = GetBenchIndex(id);
    const BakeLayout layout = LayOutBake(BenchSettings(map, oversample));
    const SampleGrid grid = {layout.rows, layout.columns, layout.oversample, layout.step,
                             index.light};
    const RayCore literal = {&index.table, nullptr, CrossingRule::HalfOpen};
    const RayCore fast = {&index.table, &index.fast, CrossingRule::HalfOpen};
    const std::vector<int> rows = SpreadRows(layout.rows, map.literalRows);
    const double samplesPerPass = double(rows.size()) * layout.columns;

    double literalSeconds = 0, fastSeconds = 0, literalSamples = 0, fastSamples = 0;
    std::vector<std::vector<uint32_t>> literalValues, fastValues;
    for (auto _ : state) {
        double seconds = TimeRows(grid, literal, rows, literalValues);
        state.SetIterationTime(seconds);
        literalSeconds += seconds;
        literalSamples += samplesPerPass;
        double spent = 0;
        do {
            spent += TimeRows(grid, fast, rows, fastValues);
            fastSamples += samplesPerPass;
        } while (spent < FastMinSeconds);
        fastSeconds += spent;
        // A rate of wrong answers would compare nothing.
        if (fastValues != literalValues) {
            state.SkipWithError("the cores disagree on these rows");
            break;
        }
    }
    double literalRate = literalSamples / literalSeconds, fastRate = fastSamples / fastSeconds;
    state.counters["rows"] = double(rows.size());
    state.counters["triangles"] = double(map.triangles);
    state.counters["literal samples/s"] = literalRate;
    state.counters["fast samples/s"] = fastRate;
    state.counters["speed-up"] = fastRate / literalRate;
}

}  // namespace

void RegisterSpeedUpBenchmarks() {
    for (int id = 0; id < GeneratedMapCount; ++id)
        for (int oversample : BenchOversamples) {
            // One row of the million-triangle map takes the literal walk some 8 s at oversample
            // 1 and four times that at 4; the rate per sample hardly changes with oversample.
            if (id == MillionOneMesh && oversample > 1) continue;
            benchmark::RegisterBenchmark(BenchName("SpeedUp", BenchMapId(id), oversample).c_str(),
                                         SpeedUp, BenchMapId(id), oversample)
                ->Iterations(1)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        }
}
