#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <numeric>
#include <random>
#include <unordered_map>

#include "Started.h"
#include "VelaSwitchTable/VelaTableNatDynMatch.h"
#include "VelaSwitchTable/VelaTableNatMatch.h"

// Flows into and out of the NAT match tables of a switch with two pipelines, against load.

namespace {

using VelaSwitch::NatMatchKey;

constexpr U32 batch = 32;
constexpr U32 batches = 64;

struct HashKey {
  std::size_t operator()(const NatMatchKey& key) const { return Orb::hashOf(key); }
};

/// A kind of translation: its table, and how many entries that holds.
template <class TableType, auto tableIs, U32 rows>
struct KindOf {
  using Table = TableType;
  using Result = typename Table::Result;
  static constexpr U32 capacity = rows;
  static Orb::Ptr<Table> table() { return tableIs("nat", 0); }
};

struct Static : KindOf<VelaSwitchTable::NatMatchTable, VelaSwitchTable::NatMatchTableIs, 3 * 4096> {
  static NatMatchKey key(std::mt19937& random) {
    NatMatchKey key;
    key.natType = U8{1};
    key.srcIp = Ipnet::IpAddr(static_cast<U32>(random()));
    key.sport = static_cast<U16>(random());
    return key;
  }
};

struct Dynamic
    : KindOf<VelaSwitchTable::NatDynMatchTable, VelaSwitchTable::NatDynMatchTableIs, 4 * 1024> {
  static NatMatchKey key(std::mt19937& random) {
    NatMatchKey key = Static::key(random);
    key.natType = U8{0};
    key.dstIp = Ipnet::IpAddr(static_cast<U32>(random()));
    key.dport = static_cast<U16>(random());
    return key;
  }
};

template <class Kind>
const std::vector<NatMatchKey>& keys() {
  static const std::vector<NatMatchKey> all = [] {
    std::mt19937 random(5);
    std::vector<NatMatchKey> made(Kind::capacity + batch * batches);
    for (NatMatchKey& key : made) key = Kind::key(random);
    return made;
  }();
  return all;
}

template <class Kind>
struct Rig : VelaBench::Started<typename Kind::Table> {
  Rig() : VelaBench::Started<typename Kind::Table>(Kind::table()) {}
  void in(U32 first, U32 end) {
    typename Kind::Result result;
    result.valid = true;
    for (U32 i = first; i < end; ++i) {
      result.natRewriteId = static_cast<U16>(i % 4096);
      this->table->entryIs(keys<Kind>()[i], result);
    }
  }
  void out(U32 first, U32 end) {
    for (U32 i = first; i < end; ++i) this->table->entryDel(keys<Kind>()[i]);
  }
};

template <class Action>
double seconds(const Action& action) {
  const auto begin = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

/// A batch in and out again, while the table is as full as the argument (per cent) says.
template <class Kind>
void NatFlows(benchmark::State& state) {
  const U32 base = Kind::capacity * static_cast<U32>(state.range(0)) / 100;
  Rig<Kind> rig;
  rig.in(0, base);
  const auto& engine = rig.table->profileConvertor().physicalTable().engine();
  const U64 moves = engine.moves();
  double in = 0;
  double out = 0;
  double flows = 0;
  U32 round = 0;
  for (auto _ : state) {
    const U32 first = base + batch * (round++ % batches);
    const double took = seconds([&] { rig.in(first, first + batch); });
    in += took;
    out += seconds([&] { rig.out(first, first + batch); });
    flows += batch;
    state.SetIterationTime(took);
  }
  state.counters["ns_per_item"] = in * 1e9 / flows;
  state.counters["in_per_s"] = flows / in;
  state.counters["out_per_s"] = flows / out;
  state.counters["moves_per_flow"] = static_cast<double>(engine.moves() - moves) / flows;
}
BENCHMARK(NatFlows<Static>)->Arg(10)->Arg(50)->Arg(75)->Arg(85)->UseManualTime();
BENCHMARK(NatFlows<Dynamic>)->Arg(10)->Arg(50)->Arg(75)->Arg(90)->UseManualTime();

/// Three quarters of a table's rows, from an empty table on.
template <class Kind>
void NatFill(benchmark::State& state) {
  constexpr U32 entries = Kind::capacity * 3 / 4;
  double took = 0;
  for (auto _ : state) {
    Rig<Kind> rig;
    took = seconds([&] { rig.in(0, entries); });
    state.SetIterationTime(took);
  }
  state.counters["ns_per_item"] = took * 1e9 / entries;
}
BENCHMARK(NatFill<Static>)->UseManualTime()->Iterations(5);
BENCHMARK(NatFill<Dynamic>)->UseManualTime()->Iterations(5);

/// The same into the standard map.
template <class Kind>
void NatMapFill(benchmark::State& state) {
  constexpr U32 entries = Kind::capacity * 3 / 4;
  double took = 0;
  for (auto _ : state) {
    std::unordered_map<NatMatchKey, typename Kind::Result, HashKey> map;
    took = seconds([&] {
      for (U32 i = 0; i < entries; ++i) map.emplace(keys<Kind>()[i], typename Kind::Result{});
    });
    state.SetIterationTime(took);
  }
  state.counters["ns_per_item"] = took * 1e9 / entries;
}
BENCHMARK(NatMapFill<Static>)->UseManualTime()->Iterations(5);
BENCHMARK(NatMapFill<Dynamic>)->UseManualTime()->Iterations(5);

// What it costs that hits stay with entries: hit bits are read before rows are written.

enum Hits : U8 {
  untracked,  ///< The table has no hit bits to read.
  tracked,
  busy,  ///< All rows are polled, and hit again, between one batch and the next.
};

template <Hits hits>
struct HitRig : VelaBench::Started<Static::Table, VelaBench::CountingSwitch> {
  HitRig() : Started(Static::table(), createTables) {}

  /// An inactive table has no hit bits to read; its rows are written all the same.
  static void createTables(Static::Table& table) {
    if (hits != untracked) return table.doCreateHwTable();
    VelaSwitchApi::SwTableProfileConvertor& convertor = *table.profileConvertorPtr();
    convertor.doCreateHwTables(VelaSwitchApi::TableState::inactive);
    convertor.doInitTableStats();
    convertor.doInitHwReadInfo();
    table.doInitStatus();
  }

  void in(U32 key) {
    Static::Result result;
    result.valid = true;
    table->entryIs(keys<Static>()[key], result);
  }
  void out(U32 key) { table->entryDel(keys<Static>()[key]); }
  const Keel::Cuckoo::Table& engine() const {
    return table->profileConvertor().physicalTable().engine();
  }
  void pollAndHitAll() {
    const U64 reads = chip.hitReads;
    table->profileConvertorPtr()->pollHitBits(Orb::Seconds(1));
    chip.hitReads = reads;  // Those of polls are not what is measured.
    for (U32 pipeline = 0; pipeline < types->profile().pipelines(); ++pipeline) {
      auto* rows = chip.chip.find("NatMatch", 0, pipeline);
      for (U32 row = 0; row <= rows->lastIndex; ++row) rows->hit(row) = 1;
    }
  }
};

/// Counts from the moment it is made.
template <Hits hits>
struct Counts {
  explicit Counts(const HitRig<hits>& of) : rig(of) {}
  void report(benchmark::State& state, double took, double operations) const {
    const auto written = static_cast<double>(rig.chip.rowWrites - rowWrites);
    const auto read = static_cast<double>(rig.chip.hitReads - hitReads);
    state.counters["ns_per_item"] = took * 1e9 / operations;
    state.counters["moves_per_op"] = static_cast<double>(rig.engine().moves() - moves) / operations;
    state.counters["rows_per_op"] = written / operations;
    state.counters["reads_per_op"] = read / operations;
    state.counters["reads_per_row"] = read / written;
  }
  const HitRig<hits>& rig;
  U64 rowWrites = rig.chip.rowWrites;
  U64 hitReads = rig.chip.hitReads;
  U64 moves = rig.engine().moves();
};

/// Any flow goes and another comes, in a table that is as full as the argument (per cent) says.
template <Hits hits>
void NatChurn(benchmark::State& state) {
  const U32 base = Static::capacity * static_cast<U32>(state.range(0)) / 100;
  HitRig<hits> rig;
  std::vector<U32> order(keys<Static>().size());
  std::iota(order.begin(), order.end(), 0);
  for (U32 i = 0; i < base; ++i) rig.in(order[i]);
  std::mt19937 random(7);
  std::vector<std::pair<U32, U32>> swaps(batch);
  double took = 0;
  double operations = 0;
  const Counts<hits> counts(rig);
  for (auto _ : state) {
    for (auto& [gone, come] : swaps) {
      U32& present = order[random() % base];
      U32& absent = order[base + random() % (order.size() - base)];
      std::swap(present, absent);
      gone = absent;
      come = present;
    }
    if constexpr (hits == busy) rig.pollAndHitAll();
    const double batchTook = seconds([&] {
      for (const auto& [gone, come] : swaps) {
        rig.out(gone);
        rig.in(come);
      }
    });
    took += batchTook;
    operations += 2 * batch;
    state.SetIterationTime(batchTook);
  }
  counts.report(state, took, operations);
}
BENCHMARK(NatChurn<untracked>)->Arg(70)->Arg(85)->UseManualTime()->Iterations(1000);
BENCHMARK(NatChurn<tracked>)->Arg(70)->Arg(85)->UseManualTime()->Iterations(1000);
BENCHMARK(NatChurn<busy>)->Arg(70)->Arg(85)->UseManualTime()->Iterations(100);

/// Flows into an empty table until it is as full as the argument (per cent) says; the fastest of
/// several, since a fill is too short to average out what else the machine does.
template <Hits hits>
void NatFresh(benchmark::State& state) {
  const U32 entries = Static::capacity * static_cast<U32>(state.range(0)) / 100;
  double fastest = std::numeric_limits<double>::infinity();
  for (auto _ : state) {
    HitRig<hits> rig;
    const Counts<hits> counts(rig);
    const double took = seconds([&] {
      for (U32 key = 0; key < entries; ++key) rig.in(key);
    });
    state.SetIterationTime(took);
    fastest = std::min(fastest, took);
    counts.report(state, fastest, entries);
    state.counters["reads_per_row_at_start"] =
        static_cast<double>(counts.hitReads) / static_cast<double>(counts.rowWrites);
  }
}
BENCHMARK(NatFresh<untracked>)->Arg(50)->Arg(70)->UseManualTime()->Iterations(7);
BENCHMARK(NatFresh<tracked>)->Arg(50)->Arg(70)->UseManualTime()->Iterations(7);

/// A flow that has a row goes out of a full table and comes back, while as many as the argument
/// says wait for room: looking for the one that comes in goes the further the fewer wait.
void NatGoing(benchmark::State& state) {
  const auto waiting = static_cast<U32>(state.range(0));
  HitRig<tracked> rig;
  U32 present = 0;
  while (rig.engine().waiting().size() <= waiting) rig.in(present++);
  rig.out(--present);
  std::mt19937 random(7);
  double going = 0;
  double removals = 0;
  for (auto _ : state) {
    auto flow = static_cast<U32>(random() % present);
    while (!rig.table->cachedItem(keys<Static>()[flow])->placed()) {
      flow = static_cast<U32>(random() % present);
    }
    const double took = seconds([&] { rig.out(flow); });
    rig.in(flow);
    going += took;
    ++removals;
    state.SetIterationTime(took);
  }
  state.counters["ns_per_item"] = going * 1e9 / removals;
  state.counters["present"] = present;
}
BENCHMARK(NatGoing)->Arg(0)->Arg(1)->Arg(64)->Arg(1024)->UseManualTime()->Iterations(1000);

}  // namespace
