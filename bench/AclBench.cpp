#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <memory>
#include <random>
#include <unordered_map>

#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "device/SimulatedSwitch.h"

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
struct Rig {
  Rig() {
    table->doSetProfileConvertor(types);
    table->doCreateHwTable();
    table->initHwEntries(true);
    table->initializedIs(true);
  }
  VelaDevice::SimulatedSwitch chip;
  Orb::Ptr<VelaSwitchApi::SwTableTypes> types =
      Orb::make<VelaSwitchApi::SwTableTypes>(VelaSwitch::ProfileInfo::builtIn("vela-48-5.1"), chip);
  Orb::Ptr<AclHashTable> table = VelaSwitchTable::aclHashTableFactory("acl", 0, 0);
};

class Clock {
 public:
  void start() { begin_ = std::chrono::steady_clock::now(); }
  double stop() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
  }

 private:
  std::chrono::steady_clock::time_point begin_;
};

void reportPerItem(benchmark::State& state, double seconds, U64 items) {
  state.counters["ns_per_item"] = seconds * 1e9 / static_cast<double>(items);
}

void UnorderedMapInsert(benchmark::State& state) {
  const auto keys = randomKeys(entries, 1);
  Clock clock;
  double seconds = 0;
  for (auto _ : state) {
    auto map = std::make_unique<StdMap>();
    clock.start();
    for (U32 i = 0; i < entries; ++i) map->emplace(keys[i], resultOf(i));
    const double took = clock.stop();
    state.SetIterationTime(took);
    seconds += took;
  }
  reportPerItem(state, seconds, state.iterations() * entries);
}
BENCHMARK(UnorderedMapInsert)->UseManualTime();

void AclProgram(benchmark::State& state) {
  const auto keys = randomKeys(entries, 1);
  Clock clock;
  double seconds = 0;
  for (auto _ : state) {
    auto rig = std::make_unique<Rig>();
    clock.start();
    for (U32 i = 0; i < entries; ++i) rig->table->entryIs(keys[i], resultOf(i));
    const double took = clock.stop();
    state.SetIterationTime(took);
    seconds += took;
  }
  reportPerItem(state, seconds, state.iterations() * entries);
}
BENCHMARK(AclProgram)->UseManualTime();

void UnorderedMapFind(benchmark::State& state) {
  const auto keys = randomKeys(entries, 1);
  StdMap map;
  for (U32 i = 0; i < entries; ++i) map.emplace(keys[i], resultOf(i));
  Clock clock;
  double seconds = 0;
  for (auto _ : state) {
    clock.start();
    for (U32 i = 0; i < entries; ++i) benchmark::DoNotOptimize(map.find(keys[i])->second);
    const double took = clock.stop();
    state.SetIterationTime(took);
    seconds += took;
  }
  reportPerItem(state, seconds, state.iterations() * entries);
}
BENCHMARK(UnorderedMapFind)->UseManualTime();

void AclAnnounceUnchanged(benchmark::State& state) {
  const auto keys = randomKeys(entries, 1);
  Rig rig;
  for (U32 i = 0; i < entries; ++i) rig.table->entryIs(keys[i], resultOf(i));
  const U64 writes = rig.chip.registerWrites();
  Clock clock;
  double seconds = 0;
  for (auto _ : state) {
    clock.start();
    for (U32 i = 0; i < entries; ++i) rig.table->entryIs(keys[i], resultOf(i));
    const double took = clock.stop();
    state.SetIterationTime(took);
    seconds += took;
  }
  reportPerItem(state, seconds, state.iterations() * entries);
  if (rig.chip.registerWrites() != writes) state.SkipWithError("an unchanged entry was written");
}
BENCHMARK(AclAnnounceUnchanged)->UseManualTime();

/// Cost of an entry when the table is already so full (in per cent), moves included.
void AclProgramAtLoad(benchmark::State& state) {
  const U32 base = capacity * static_cast<U32>(state.range(0)) / 100;
  constexpr U32 batch = 32;
  const auto keys = randomKeys(base + batch * 64, 2);
  Rig rig;
  for (U32 i = 0; i < base; ++i) rig.table->entryIs(keys[i], resultOf(i));
  Clock clock;
  double seconds = 0;
  U64 programmed = 0;
  U32 round = 0;
  const U64 movesBefore = rig.table->profileConvertor().physicalTable().engine().moves();
  for (auto _ : state) {
    const U32 first = base + batch * (round++ % 64);
    clock.start();
    for (U32 i = first; i < first + batch; ++i) rig.table->entryIs(keys[i], resultOf(i));
    const double took = clock.stop();
    state.SetIterationTime(took);
    seconds += took;
    programmed += batch;
    for (U32 i = first; i < first + batch; ++i) rig.table->entryDel(keys[i]);
  }
  reportPerItem(state, seconds, programmed);
  const U64 moves = rig.table->profileConvertor().physicalTable().engine().moves() - movesBefore;
  state.counters["moves_per_entry"] = static_cast<double>(moves) / static_cast<double>(programmed);
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
