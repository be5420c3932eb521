// Each file of benchmarks registers its own; main runs them in this order, whole bakes first.
#pragma once

void RegisterBakeBenchmarks();
void RegisterSpeedUpBenchmarks();
void RegisterQueryBenchmarks();
void RegisterViewerBenchmarks();
