#include <benchmark/benchmark.h>

#include "bench/bench_registry.h"

int main(int argc, char** argv) {
    RegisterBakeBenchmarks();
    RegisterSpeedUpBenchmarks();
    RegisterQueryBenchmarks();
    RegisterViewerBenchmarks();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
