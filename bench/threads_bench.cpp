// What it costs to hand work to threads: those that wait, threads made for each call, OpenMP. Times
// are the caller's, of 16 parts of `work` steps each; 0: nothing but the handing over.
#include "core/parallel.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <thread>
#include <vector>

namespace {

constexpr std::int32_t parts = 16;

void work(std::int64_t steps) {
  for (std::int64_t i = 0; i < steps; ++i) benchmark::DoNotOptimize(i);
}

void waiting_threads(benchmark::State& state) {
  const auto threads = static_cast<std::int32_t>(state.range(0));
  for (auto _ : state) {
    qx::parallel(parts, threads, [&](std::int32_t, std::int32_t) { work(state.range(1)); });
  }
}

void threads_for_each_call(benchmark::State& state) {
  for (auto _ : state) {
    std::atomic<std::int32_t> next = 0;
    const auto run = [&] {
      while (next.fetch_add(1) < parts) work(state.range(1));
    };
    std::vector<std::thread> others;
    for (std::int64_t i = 1; i < state.range(0); ++i) others.emplace_back(run);
    run();
    for (std::thread& other : others) other.join();
  }
}

#ifdef _OPENMP
void openmp(benchmark::State& state) {
  const auto threads = static_cast<int>(state.range(0));
  for (auto _ : state) {
#pragma omp parallel for schedule(dynamic, 1) num_threads(threads)
    for (std::int32_t part = 0; part < parts; ++part) work(state.range(1));
  }
}
BENCHMARK(openmp)->ArgsProduct({{1, 2, 8}, {0, 10000}})->UseRealTime();
#endif

BENCHMARK(waiting_threads)->ArgsProduct({{1, 2, 8}, {0, 10000}})->UseRealTime();
BENCHMARK(threads_for_each_call)->ArgsProduct({{1, 2, 8}, {0, 10000}})->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
