#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <memory>
#include <random>
#include <unordered_map>

#include "Started.h"
#include "VelaSwitchTable/VelaTableAclHashes.h"

namespace {

using VelaSwitch::AclHashKey;
using VelaSwitch::AclHashResult;
using VelaSwitchTable::AclHashTable;

constexpr U32 capacity = 4096;
constexpr U32 entries = capacity * 45 / 100;

std::vector<AclHashKey> randomKeys(U32 count, U32 seed) {
  std::mt19937 random(seed);
  const auto next = [&] { return static_cast<U32>(random()); };
  std::vector<AclHashKey> keys(count);
  for (AclHashKey& key : keys) {
    key.aclId = VelaSwitch::HwAclId(next() % 16);
    key.type = static_cast<U8>(next() % 15);
    key.srcIp = Ipnet::IpAddr(next());
    key.dstIp = Ipnet::IpAddr(next());
    key.l4Port = static_cast<U16>(next());
  }
  return keys;
}

AclHashResult resultOf(U32 number) { return {number % 256, number % 4096}; }

struct HashKey {
  std::size_t operator()(const AclHashKey& key) const { return Orb::hashOf(key); }
};
using StdMap = std::unordered_map<AclHashKey, AclHashResult, HashKey>;

/// An ACL table on a simulated switch.
struct Rig : VelaBench::Started<AclHashTable> {
  Rig() : Started(VelaSwitchTable::aclHashTableFactory("acl", 0, 0)) {}
};

/// Times `action`, which handles `items` of them, once per iteration; `prepare` is not timed.
template <class Prepare, class Action>
void timed(benchmark::State& state, U64 items, const Prepare& prepare, const Action& action) {
  double seconds = 0;
  for (auto _ : state) {
    auto subject = prepare();
    const auto begin = std::chrono::steady_clock::now();
    action(*subject);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    state.SetIterationTime(took.count());
    seconds += took.count();
  }
  state.counters["ns_per_item"] =
      seconds * 1e9 / static_cast<double>(items) / static_cast<double>(state.iterations());
}

void fill(StdMap& map, const std::vector<AclHashKey>& keys) {
  for (U32 i = 0; i < entries; ++i) map.emplace(keys[i], resultOf(i));
}

void fill(Rig& rig, const std::vector<AclHashKey>& keys, U32 first = 0, U32 end = entries) {
  for (U32 i = first; i < end; ++i) rig.table->entryIs(keys[i], resultOf(i));
}

void UnorderedMapInsert(benchmark::State& state) {
  const auto keys = randomKeys(entries, 1);
  timed(
      state, entries, [] { return std::make_unique<StdMap>(); },
      [&](StdMap& map) { fill(map, keys); });
}
BENCHMARK(UnorderedMapInsert)->UseManualTime();

void AclProgram(benchmark::State& state) {
  const auto keys = randomKeys(entries, 1);
  timed(
      state, entries, [] { return std::make_unique<Rig>(); }, [&](Rig& rig) { fill(rig, keys); });
}
BENCHMARK(AclProgram)->UseManualTime();

void UnorderedMapFind(benchmark::State& state) {
  const auto keys = randomKeys(entries, 1);
  StdMap filled;
  fill(filled, keys);
  timed(
      state, entries, [&] { return &filled; },
      [&](StdMap& map) {
        for (const AclHashKey& key : keys) benchmark::DoNotOptimize(map.find(key)->second);
      });
}
BENCHMARK(UnorderedMapFind)->UseManualTime();

void AclAnnounceUnchanged(benchmark::State& state) {
  const auto keys = randomKeys(entries, 1);
  Rig filled;
  fill(filled, keys);
  const U64 writes = filled.chip.registerWrites();
  timed(
      state, entries, [&] { return &filled; }, [&](Rig& rig) { fill(rig, keys); });
  if (filled.chip.registerWrites() != writes) {
    state.SkipWithError("an unchanged entry was written");
  }
}
BENCHMARK(AclAnnounceUnchanged)->UseManualTime();

/// Cost of an entry when the table is already so full (in per cent), moves included.
void AclProgramAtLoad(benchmark::State& state) {
  const U32 base = capacity * static_cast<U32>(state.range(0)) / 100;
  constexpr U32 batch = 32;
  constexpr U32 batches = 64;
  const auto keys = randomKeys(base + batch * batches, 2);
  Rig filled;
  fill(filled, keys, 0, base);
  const auto& engine = filled.table->profileConvertor().physicalTable().engine();
  U64 moves = 0;
  U64 movesBefore = 0;
  U32 round = 0;
  const auto first = [&] { return base + batch * (round % batches); };
  const auto takeOut = [&] {
    moves += engine.moves() - movesBefore;
    for (U32 i = first(); i < first() + batch; ++i) filled.table->entryDel(keys[i]);
    ++round;
    movesBefore = engine.moves();
    return &filled;
  };
  movesBefore = engine.moves();
  timed(state, batch, takeOut, [&](Rig& rig) { fill(rig, keys, first(), first() + batch); });
  state.counters["moves_per_entry"] = static_cast<double>(moves) / batch / round;
}
BENCHMARK(AclProgramAtLoad)->Arg(10)->Arg(20)->Arg(30)->Arg(40)->Arg(45)->UseManualTime();

/// What a table takes for each of its rows once it is made, and each entry on top of that.
void AclMemory(benchmark::State& state) {
  const auto keys = randomKeys(entries, 1);
  const auto held = [] { return static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd); };
  for (auto _ : state) {
    VelaDevice::SimulatedSwitch chip;
    const auto types = Orb::make<VelaSwitchApi::SwTableTypes>(
        VelaSwitch::ProfileInfo::builtIn("vela-48-5.1"), chip);
    const double before = held();
    const auto table = VelaSwitchTable::aclHashTableFactory("acl", 0, 0);
    table->doSetProfileConvertor(types);
    table->doCreateHwTable();
    const double made = held();
    table->initHwEntries(true);
    table->initializedIs(true);
    const double started = held();
    for (U32 i = 0; i < entries; ++i) table->entryIs(keys[i], resultOf(i));
    state.counters["bytes_per_row"] = (made - before) / capacity;
    state.counters["bytes_per_entry"] = (held() - started) / entries;
  }
}
BENCHMARK(AclMemory)->Iterations(1);

}  // namespace
