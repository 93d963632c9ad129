#include <benchmark/benchmark.h>

#include <random>

#include "Keel/Cuckoo.h"

namespace {

using namespace Keel::Cuckoo;

class Item final : public HashItem {
 public:
  Item(std::mt19937& random, U32 rows) {
    for (U32& row : rows_) row = static_cast<U32>(random()) % rows;
  }
  bool isEqual(const HashItem& other) const override { return &other == this; }
  U32 getHash(U8 way) const override { return rows_[way]; }
  std::string toStrep() const override { return "Item"; }

 private:
  U32 rows_[maxWays];
};

struct NoHardware final : RowWriter {
  bool hashItemWrite(HashItem&, CuckooLocation) override { return true; }
};

/// Load at which random keys meet the first refusal, and the moves made until then. The search is
/// complete, so the load is that of the best possible arrangement.
void LoadAtFirstRefusal(benchmark::State& state) {
  const U8 ways = static_cast<U8>(state.range(0));
  const U32 rows = static_cast<U32>(state.range(1));
  std::mt19937 random(7);
  NoHardware hardware;
  double load = 0;
  double moves = 0;
  for (auto _ : state) {
    Table table(rows, ways);
    std::vector<Orb::Ptr<Item>> items;
    do {
      items.push_back(Orb::make<Item>(random, rows));
    } while (table.insert(*items.back(), hardware).outcome == Outcome::placed);
    load += static_cast<double>(table.size()) / table.capacity();
    moves += static_cast<double>(table.moves()) / table.size();
  }
  state.counters["load"] = load / static_cast<double>(state.iterations());
  state.counters["moves_per_insert"] = moves / static_cast<double>(state.iterations());
}
BENCHMARK(LoadAtFirstRefusal)
    ->ArgNames({"ways", "rows"})
    ->Args({2, 2048})
    ->Args({3, 4096})
    ->Args({4, 1024})
    ->Args({2, 65536})
    ->Args({3, 65536})
    ->Args({4, 65536})
    ->Unit(benchmark::kMillisecond);

}  // namespace
