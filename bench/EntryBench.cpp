#include <malloc.h>

#include <cstring>
#include <fstream>

#include "Entries.h"
#include "device/SimulatedSwitch.h"

// Entries of hash tables all the way into rows, against what others take to store the same keys;
// memory; audits against copying.

namespace {

using namespace VelaBench;

template <class Work, class Subject>
void fill(Subject& subject) {
  for (U32 i = 0; i < Work::entries; ++i) subject.add(i);
}

template <class Work, class Subject>
auto filled() {
  auto subject = std::make_unique<Subject>();
  fill<Work>(*subject);
  return subject;
}

/// Fills an empty table; announces or finds the same once more; empties it again.
template <class Work, class Subject>
void registerOperations(const std::string& who) {
  const std::string work = Work::name;
  bench(work + "/add/" + who, [](benchmark::State& state) {
    timed(
        state, Work::entries, [] { return std::make_unique<Subject>(); }, fill<Work, Subject>);
  });
  bench(work + "/again/" + who, [](benchmark::State& state) {
    const auto subject = filled<Work, Subject>();
    // Of a table here whether an entry did, of others whether one was not found.
    bool changed = false;
    const U64 writes = subject->rowWrites();
    timed(
        state, Work::entries, [&] { return subject.get(); },
        [&](Subject& table) {
          for (U32 i = 0; i < Work::entries; ++i) changed |= table.again(i);
        });
    if (changed || subject->rowWrites() != writes) state.SkipWithError("something changed");
  });
  bench(work + "/del/" + who, [](benchmark::State& state) {
    timed(state, Work::entries, filled<Work, Subject>, [](Subject& table) {
      for (U32 i = 0; i < Work::entries; ++i) table.del(i);
    });
  });
}

template <class Work>
void registerBatches() {
  bench(Work::name + std::string("/batch/vela"), [](benchmark::State& state) {
    timed(
        state, Work::entries, [] { return std::make_unique<Vela<Work>>(); },
        [](Vela<Work>& table) {
          for (U32 i = 0; i < Work::entries; i += 64) {
            table.addAll(i, std::min(64u, Work::entries - i));
          }
        });
  });
}

/// What rows demand alone: keys packed and hashed, rows packed, compared with what hardware holds
/// and handed to the bus. Nothing is found, stored, placed or told.
template <class Work>
void rowsAlone(benchmark::State& state) {
  timed(
      state, Work::entries, [] { return std::make_unique<Vela<Work>>(); },
      [](Vela<Work>& subject) {
        const auto& physical = subject.table->profileConvertor().physicalTable();
        const auto& helper = *subject.table->helper();
        for (U32 i = 0; i < Work::entries; ++i) {
          const auto entry = subject.table->newItem(subject.keys[i]);
          entry->resultIs(Work::result(i));
          const auto row =
              physical.candidate(*entry, static_cast<U8>(i % physical.engine().ways()));
          U32 image[VelaSwitchApi::maxRowWords]{};
          helper.setHwBuffer(*entry, physical.location(row), reinterpret_cast<U8*>(image));
          const bool unchanged = physical.hwTables().front()->imageIs(row, image);
          for (const auto& table : physical.hwTables())
            table->entryIs(row, image, unchanged, [] {});
        }
      });
}

template <class Work>
void registerWork() {
  registerBatches<Work>();
  bench(Work::name + std::string("/rows/vela"), rowsAlone<Work>);
  registerOperations<Work, Vela<Work>>("vela");
  registerOperations<Work, Vela<Work, VelaDevice::SimulatedSwitch>>("simulated");
  forEachPeer([](auto* peer) {
    using Map = std::remove_pointer_t<decltype(peer)>;
    registerOperations<Work, Peer<Work, Map>>(Map::name);
  });
}

/// Memory that the process did not map from files, and that pages were found for.
std::size_t resident() {
  std::ifstream rollup("/proc/self/smaps_rollup");
  std::string word;
  while (rollup >> word && word != "Anonymous:") continue;
  std::size_t kilobytes = 0;
  rollup >> kilobytes;
  return 1024 * kilobytes;
}

/// What a programmed entry takes of the memory that the library asks for, images of rows and all,
/// and of the pages that it touches.
void memory(benchmark::State& state) {
  keysOf<Acl>();
  for (auto _ : state) {
    malloc_trim(0);
    const auto pages = resident();
    const std::size_t asked = mallinfo2().uordblks;
    const auto subject = filled<Acl, Vela<Acl>>();
    const auto perEntry = [&](std::size_t grown) {
      return static_cast<double>(grown - subject->bus.bytes()) / Acl::entries;
    };
    state.counters["bytes"] = perEntry(mallinfo2().uordblks - asked);
    state.counters["touched"] = perEntry(resident() - pages);
    state.SetIterationTime(1);
  }
}

/// Reads all rows of a filled table back and compares them with what they should be.
void audit(benchmark::State& state) {
  const auto subject = filled<Nat, Vela<Nat>>();
  timed(
      state, 2 * Nat::rows, [&] { return subject.get(); },
      [](Vela<Nat>& nat) { nat.table->syncEntries(); });
}

/// Copies the same rows' words, one row at a time.
void copy(benchmark::State& state) {
  const auto subject = filled<Nat, Vela<Nat>>();
  timed(
      state, 2 * Nat::rows, [&] { return subject.get(); },
      [](const Vela<Nat>& nat) {
        U32 words[16];
        for (const MemoryBus::Table& table : nat.bus.tables()) {
          for (U32 row = 0; row < table.rows; ++row) {
            std::memcpy(words, &table.words[row * table.rowWords], 4 * table.rowWords);
            benchmark::DoNotOptimize(words);
          }
        }
      });
}

const bool entriesRegistered = [] {
  registerWork<Acl>();
  registerWork<Nat>();
  bench("acl/memory", memory)->Iterations(1)->Repetitions(1);
  bench("nat/audit", audit);
  bench("nat/copy", copy);
  return true;
}();

}  // namespace
