#include <benchmark/benchmark.h>

#include "agent/Fit.h"

namespace {

/// Load at which random keys meet the first refusal, and the moves made until then. The search is
/// complete, so the load is that of the best possible arrangement.
void LoadAtFirstRefusal(benchmark::State& state) {
  const U8 ways = static_cast<U8>(state.range(0));
  const U32 rows = static_cast<U32>(state.range(1));
  std::mt19937 random(7);
  double entries = 0;
  double moves = 0;
  for (auto _ : state) {
    const auto fill = VelaAgent::fillRandomly(rows, ways, random);
    entries += fill.entries;
    moves += static_cast<double>(fill.moves) / fill.entries;
  }
  state.counters["load"] = entries / ways / rows / static_cast<double>(state.iterations());
  state.counters["moves_per_insert"] = moves / static_cast<double>(state.iterations());
}
BENCHMARK(LoadAtFirstRefusal)
    ->ArgNames({"ways", "rows"})
    ->Args({2, 2048})
    ->Args({3, 4096})
    ->Args({4, 1024})
    ->Args({2, 65536})
    ->Args({3, 65536})
    ->Args({4, 32768})
    ->Unit(benchmark::kMillisecond);

}  // namespace
