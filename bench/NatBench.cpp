#include <benchmark/benchmark.h>

#include <chrono>
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

struct Static {
  using Table = VelaSwitchTable::NatMatchTable;
  using Result = VelaSwitchTable::NatMatchResult;
  static constexpr U32 capacity = 3 * 4096;
  static Orb::Ptr<Table> table() { return VelaSwitchTable::NatMatchTableIs("nat", 0); }
  static NatMatchKey key(std::mt19937& random) {
    NatMatchKey key;
    key.natType = U8{1};
    key.srcIp = Ipnet::IpAddr(static_cast<U32>(random()));
    key.sport = static_cast<U16>(random());
    return key;
  }
};

struct Dynamic {
  using Table = VelaSwitchTable::NatDynMatchTable;
  using Result = VelaSwitchTable::NatDynMatchResult;
  static constexpr U32 capacity = 4 * 1024;
  static Orb::Ptr<Table> table() { return VelaSwitchTable::NatDynMatchTableIs("dyn", 0); }
  static NatMatchKey key(std::mt19937& random) {
    NatMatchKey key;
    key.srcIp = Ipnet::IpAddr(static_cast<U32>(random()));
    key.dstIp = Ipnet::IpAddr(static_cast<U32>(random()));
    key.sport = static_cast<U16>(random());
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

}  // namespace
