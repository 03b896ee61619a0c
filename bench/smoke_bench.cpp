#include <benchmark/benchmark.h>
static void Noop(benchmark::State& state) { for (auto _ : state) benchmark::DoNotOptimize(0); }
BENCHMARK(Noop);
