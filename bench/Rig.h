#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "VelaSwitchApi/SwTable.h"

/// What benchmarks have in common: a bus of plain memory, tables on it, clocks.
namespace VelaBench {

using Clock = std::chrono::steady_clock;
inline double nsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
}

/// For how long this thread has had a processor: on a machine that is shared, what others do is in
/// no figure but those of single operations.
inline double processorNs() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

/// Stores the words of each row and reads them back, nothing else: what is left of the time is the
/// library's. It can wait at every row, as a real bus does.
class MemoryBus final : public VelaSwitchApi::RegisterBus {
 public:
  using HwIndex = VelaSwitchApi::HwIndex;

  RegisterHandle registerIs(std::string_view path) override { return handleOf(registers_, path); }
  TableHandle tableIs(const VelaSwitchApi::HwTableIdentity& identity, HwIndex lastIndex) override {
    const TableHandle handle = handleOf(names_, identity.name);
    if (handle == tables_.size()) tables_.push_back({lastIndex + 1});
    return handle;
  }
  bool rowIs(TableHandle handle, HwIndex index, std::span<const RegisterValue> writes) override {
    Table& table = tables_[handle];
    // What is rare ends in a call, lest registers are saved for it.
    if (table.rowWords == 0) [[unlikely]]
      return firstRowIs(handle, index, writes);
    U32* words = &table.words[index * table.rowWords];
    // One by one: a vector of values that were stored one by one would have to wait for them.
    for (std::size_t i = 0; i < VelaSwitchApi::maxRowWords && i != writes.size(); ++i) {
      words[i] = writes[i].value;
    }
    table.present[index] = 1;
    ++rowWrites_;
    if (waitNs != 0) [[unlikely]]
      return waits();
    return true;
  }
  void rowsAre(std::span<RowWrite> rows) override {
    for (RowWrite& row : rows) row.written = MemoryBus::rowIs(row.table, row.index, row.writes);
  }
  bool gainsByRuns() const override { return false; }
  Read row(TableHandle handle, HwIndex index, std::span<RegisterValue> values) override {
    const Table& table = tables_[handle];
    if (waitNs != 0) waits();
    if (table.rowWords == 0 || table.present[index] == 0) return Read::absent;
    const U32* words = &table.words[index * table.rowWords];
    for (std::size_t i = 0; i < VelaSwitchApi::maxRowWords && i != values.size(); ++i) {
      values[i].value = words[i];
    }
    return Read::held;
  }
  void rows(std::span<RowRead> rows) override {
    for (RowRead& each : rows) each.read = MemoryBus::row(each.table, each.index, each.values);
  }
  bool hitBits(TableHandle, HwIndex, std::span<RegisterValue> values) override {
    for (RegisterValue& value : values) value.value = 0;
    ++hitReads;
    return waitNs == 0 || waits();
  }

  struct Table {
    U32 rows;
    std::size_t rowWords = 0;
    std::vector<U32> words = {};
    std::vector<U8> present = {};

    void holds(std::size_t wordsOfRow) {
      rowWords = wordsOfRow;
      words.resize(rows * rowWords);
      present.resize(rows);
    }
  };
  const std::vector<Table>& tables() const { return tables_; }
  U64 rowWrites() const { return rowWrites_; }
  /// What the rows' words take.
  std::size_t bytes() const {
    std::size_t sum = 0;
    for (const Table& table : tables_) sum += table.words.size() * 4 + table.present.size();
    return sum;
  }

  double waitNs = 0;  ///< How long a row takes, or a read of hit bits.
  double waited = 0;  ///< How long they have taken together.
  U64 hitReads = 0;

 private:
  using Names = std::map<std::string, U32, std::less<>>;
  static U32 handleOf(Names& names, std::string_view name) {
    return names.emplace(name, static_cast<U32>(names.size())).first->second;
  }
  [[gnu::noinline]] bool firstRowIs(TableHandle handle, HwIndex index,
                                    std::span<const RegisterValue> writes) {
    tables_[handle].holds(std::max<std::size_t>(writes.size(), 1));
    return MemoryBus::rowIs(handle, index, writes);
  }
  /// True, so that it can be the last thing that is done.
  [[gnu::noinline]] bool waits() {
    const auto begin = Clock::now();
    double took = 0;
    while (took < waitNs) took = nsSince(begin);
    // Further beyond, someone else had the processor.
    waited += std::min(took, waitNs + 50);
    return true;
  }

  Names registers_;
  Names names_;
  std::vector<Table> tables_;
  U64 rowWrites_ = 0;
};

/// A switch with eight VRFs and two pipelines.
template <class Bus_ = MemoryBus>
struct Switch {
  using Bus = Bus_;
  Bus bus;
  Orb::Ptr<VelaSwitchApi::SwTableTypes> types =
      Orb::make<VelaSwitchApi::SwTableTypes>(VelaSwitch::ProfileInfo::builtIn("vela-48-5.1"), bus);
};

/// Brings a new table to where it takes entries.
inline void startTable(VelaSwitchApi::SwTable& table) {
  table.doCreateHwTable();
  table.initHwEntries(true);
  table.initializedIs(true);
}

/// Times `action(subject)`, which handles `items` of them, once per iteration; `prepare` makes the
/// subject, untimed. `finish` may look at it afterwards.
template <class Prepare, class Action, class Finish>
void timed(benchmark::State& state, std::size_t items, const Prepare& prepare, const Action& action,
           const Finish& finish) {
  double sum = 0;
  for (auto _ : state) {
    auto subject = prepare();
    const double begin = processorNs();
    action(*subject);
    const double took = processorNs() - begin;
    finish(*subject, took);
    state.SetIterationTime(took * 1e-9);
    sum += took;
  }
  state.counters["ns"] = sum / static_cast<double>(items) / static_cast<double>(state.iterations());
}
template <class Prepare, class Action>
void timed(benchmark::State& state, std::size_t items, const Prepare& prepare,
           const Action& action) {
  timed(state, items, prepare, action, [](const auto&, double) {});
}

/// Registers a benchmark that keeps its own time.
template <class Function>
auto* bench(const std::string& name, const Function& function) {
  return benchmark::RegisterBenchmark(name.c_str(), function)->UseManualTime();
}

}  // namespace VelaBench
