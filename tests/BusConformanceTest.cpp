#include "bus/Conformance.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "BusTables.h"
#include "device/SimulatedSwitch.h"

namespace VelaBus {
namespace {

using testing::Contains;
using testing::IsEmpty;
using testing::IsSupersetOf;
using VelaDevice::SimulatedSwitch;
using VelaSwitchApi::HwIndex;
using VelaSwitchApi::RegisterBus;

class SimulatedUnderTest : public VelaTest::LevelsUnderTest {
 public:
  RegisterBus& bus() override { return chip_; }
  bool tellsAbsent() const override { return true; }
  bool hitIs(std::size_t table, HwIndex index) override {
    find(table).hit(index) = 1;
    return true;
  }
  bool failWritesIs(U32 count, U32 good) override {
    // In the middle of the row.
    chip_.failWritesIs(count, 2, good);
    return true;
  }
  bool failReadsIs(U32 count, U32 good) override {
    chip_.failReadsIs(count, good);
    return true;
  }
  bool watchIs(std::function<void()> after) override {
    chip_.writeObserverIs(after ? [after](const auto&, HwIndex) { after(); }
                                : SimulatedSwitch::WriteObserver{});
    return true;
  }
  U32 registerNow(const std::string& path) override { return chip_.registerValue(path); }
  std::vector<U32> rowNow(std::size_t table, HwIndex index) override {
    const U32* words = find(table).row(index);
    return {words, words + tables()[table].registers.size()};
  }

 protected:
  SimulatedSwitch::Table& find(std::size_t table) {
    const auto& identity = tables()[table].identity;
    return *chip_.find(identity.family, identity.instance, identity.id);
  }
  SimulatedSwitch chip_;
};

[[maybe_unused]] const bool simulated =
    busConformanceIs("SimulatedSwitch", [] { return std::make_unique<SimulatedUnderTest>(); });

using TableHandle = RegisterBus::TableHandle;
using Read = RegisterBus::Read;
using Value = RegisterBus::RegisterValue;
using Writes = std::span<const Value>;
using Values = std::span<Value>;

/// What a bus does wrong; where nothing is said it passes calls on to the switch.
struct Faults {
  bool newHandles = false;
  bool oneTable = false;
  std::function<bool(SimulatedSwitch&, TableHandle, HwIndex, Writes)> write;
  std::function<Read(SimulatedSwitch&, TableHandle, HwIndex, Values)> read;
  std::function<bool(SimulatedSwitch&, TableHandle, HwIndex, Values)> hits;
  std::function<void(RegisterBus&, std::span<RegisterBus::RowWrite>)> writeRun;
  std::function<void(RegisterBus&, std::span<RegisterBus::RowRead>)> readRun;
};

class FaultyUnderTest final : public SimulatedUnderTest {
 public:
  explicit FaultyUnderTest(const Faults& faults) : faulty_(chip_, faults) {}
  RegisterBus& bus() override { return faulty_; }

 private:
  struct Faulty final : RegisterBus {
    Faulty(SimulatedSwitch& behind, const Faults& what) : chip(behind), faults(what) {}

    RegisterHandle registerIs(std::string_view path) override {
      return chip.registerIs(std::string(path) + (faults.newHandles ? suffix += " " : ""));
    }
    TableHandle tableIs(const VelaSwitchApi::HwTableIdentity& identity, HwIndex last) override {
      using VelaSwitchApi::HwTableIdentity;
      return chip.tableIs(faults.oneTable ? HwTableIdentity{"Lpm14", 0, 0, ""} : identity, last);
    }
    bool rowIs(TableHandle table, HwIndex index, Writes writes) override {
      if (faults.write) return faults.write(chip, table, index, writes);
      return chip.rowIs(table, index, writes);
    }
    Read row(TableHandle table, HwIndex index, Values values) override {
      if (faults.read) return faults.read(chip, table, index, values);
      return chip.row(table, index, values);
    }
    bool hitBits(TableHandle table, HwIndex first, Values values) override {
      if (faults.hits) return faults.hits(chip, table, first, values);
      return chip.hitBits(table, first, values);
    }
    void rowsAre(std::span<RowWrite> rows) override {
      faults.writeRun ? faults.writeRun(chip, rows) : RegisterBus::rowsAre(rows);
    }
    void rows(std::span<RowRead> rows) override {
      faults.readRun ? faults.readRun(chip, rows) : RegisterBus::rows(rows);
    }

    SimulatedSwitch& chip;
    Faults faults;
    std::string suffix;
  };
  Faulty faulty_;
};

/// The checks that refuse such a bus.
std::vector<std::string> refusals(const Faults& faults) {
  std::vector<std::string> names;
  for (const auto& check : busChecks) {
    FaultyUnderTest under(faults);
    BusChecks checks(under);
    const BusVerdict verdict = (checks.*check.run)();
    if (verdict.outcome == BusVerdict::Outcome::bad) names.emplace_back(check.name);
    EXPECT_NE(verdict.outcome, BusVerdict::Outcome::skipped) << check.name;
  }
  return names;
}

TEST(BusConformance, refusesWrongHandles) {
  EXPECT_THAT(refusals({}), IsEmpty());
  EXPECT_THAT(refusals({.newHandles = true}), Contains("handles"));
  EXPECT_THAT(refusals({.oneTable = true}), IsSupersetOf({"handles", "rowsHoldWhatWasWritten"}));
}

TEST(BusConformance, refusesWrongRowWrites) {
  const auto controlWordFirst = [before = std::vector<Value>()](auto& chip, auto table, auto index,
                                                                auto writes) mutable {
    // The row is taken over with what an earlier one left in the data registers.
    std::vector<Value> late(writes.begin(), writes.end());
    for (std::size_t i = 0; i + 1 < before.size(); ++i) late[i].value = before[i].value;
    before.assign(writes.begin(), writes.end());
    return chip.rowIs(table, index, late);
  };
  EXPECT_THAT(refusals({.write = controlWordFirst}),
              IsSupersetOf({"rowsHoldWhatWasWritten", "runsAreWrittenInOrder"}));
  const auto inAnyOrder = [](auto& chip, auto table, auto index, auto writes) {
    std::vector<Value> other(writes.begin(), writes.end());
    std::swap(other[0], other[1]);
    return chip.rowIs(table, index, other);
  };
  EXPECT_THAT(refusals({.write = inAnyOrder}), Contains("registersAreWrittenInOrder"));
  const auto committedTwice = [](auto& chip, auto table, auto index, auto writes) {
    std::vector<Value> cleared(writes.begin(), writes.end());
    for (std::size_t i = 0; i + 1 < cleared.size(); ++i) cleared[i].value = 0;
    return chip.rowIs(table, index, cleared) && chip.rowIs(table, index, writes);
  };
  EXPECT_THAT(refusals({.write = committedTwice}),
              IsSupersetOf({"registersAreWrittenInOrder", "lastRegisterCommits"}));
  const auto failureUntold = [](auto& chip, auto table, auto index, auto writes) {
    return chip.rowIs(table, index, writes), true;
  };
  EXPECT_THAT(refusals({.write = failureUntold}),
              IsSupersetOf({"writesRecover", "runsGoOnBehindAFailure"}));
  const auto equalLeftOut = [written = std::map<std::pair<TableHandle, HwIndex>, U32>()](
                                auto& chip, auto table, auto index, auto writes) mutable {
    U32& last = written[{table, index}];
    return std::exchange(last, writes[0].value) == last || chip.rowIs(table, index, writes);
  };
  EXPECT_THAT(refusals({.write = equalLeftOut}), Contains("writesRecover"));
  const auto failsForGood = [good = true](auto& chip, auto table, auto index, auto writes) mutable {
    return good = good && chip.rowIs(table, index, writes);
  };
  EXPECT_THAT(refusals({.write = failsForGood}), Contains("writesRecover"));
}

TEST(BusConformance, refusesWrongRuns) {
  const auto backwards = [](auto& chip, auto rows) {
    for (std::size_t i = rows.size(); i-- > 0;) chip.rowsAre(rows.subspan(i, 1));
  };
  EXPECT_THAT(refusals({.writeRun = backwards}), Contains("runsAreWrittenInOrder"));
  const auto endsAtFailure = [](auto& chip, auto rows) {
    for (std::size_t i = 0; i < rows.size() && (i == 0 || rows[i - 1].written); ++i) {
      chip.rowsAre(rows.subspan(i, 1));
    }
  };
  EXPECT_THAT(refusals({.writeRun = endsAtFailure}), Contains("runsGoOnBehindAFailure"));
  const auto readsGoOn = [](auto& chip, auto rows) {
    for (auto& row : rows) chip.rows({&row, 1});
  };
  EXPECT_THAT(refusals({.readRun = readsGoOn}), Contains("runsOfReadsEndAtAFailure"));
  const auto readsOne = [](auto& chip, auto rows) { chip.rows(rows.first(1)); };
  EXPECT_THAT(refusals({.readRun = readsOne}), Contains("runsOfReadsEndAtAFailure"));
}

TEST(BusConformance, refusesWrongReads) {
  const auto toldAs = [](Read what, Read instead) {
    return [=](auto& chip, auto table, auto index, auto values) {
      const Read read = chip.row(table, index, values);
      return read == what ? instead : read;
    };
  };
  EXPECT_THAT(refusals({.read = toldAs(Read::absent, Read::held)}),
              Contains("unwrittenRowsAreAbsent"));
  EXPECT_THAT(refusals({.read = toldAs(Read::held, Read::absent)}),
              IsSupersetOf({"unwrittenRowsAreAbsent", "rowsHoldWhatWasWritten"}));
  EXPECT_THAT(refusals({.read = toldAs(Read::failed, Read::absent)}), Contains("readsRecover"));
  const auto presentByTheNext = [](auto& chip, auto table, auto index, auto values) {
    return std::max(chip.row(table, index, values), chip.row(table, index ^ 1, values),
                    [](Read a, Read b) { return a != Read::held && b == Read::held; });
  };
  EXPECT_THAT(refusals({.read = presentByTheNext}), Contains("unwrittenRowsAreAbsent"));
}

TEST(BusConformance, refusesWrongHits) {
  const auto alwaysFirst = [](auto& chip, auto table, auto, auto values) {
    return chip.hitBits(table, 0, values);
  };
  EXPECT_THAT(refusals({.hits = alwaysFirst}), Contains("hitsAreReadOnce"));
  const auto clearsAll = [](auto& chip, auto table, auto first, auto values) {
    const bool good = chip.hitBits(table, first, values);
    std::vector<Value> others(2);
    for (HwIndex other = 0; good && other < 2048; other += 64) {
      chip.hitBits(table, other, others);
    }
    return good;
  };
  EXPECT_THAT(refusals({.hits = clearsAll}), Contains("hitsAreReadOnce"));
  const auto neverCleared = [seen = std::map<std::pair<TableHandle, HwIndex>, U32>()](
                                auto& chip, auto table, auto first, auto values) mutable {
    const bool good = chip.hitBits(table, first, values);
    values[0].value = seen[{table, first}] |= values[0].value;
    return good;
  };
  EXPECT_THAT(refusals({.hits = neverCleared}), Contains("hitsAreReadOnce"));
  const auto lostByFailure = [](auto& chip, auto table, auto first, auto values) {
    return chip.hitBits(table, first, values) || (chip.hitBits(table, first, values), false);
  };
  EXPECT_THAT(refusals({.hits = lostByFailure}), Contains("hitsOutliveAFailedRead"));
  const auto clearedByRows = [](auto& chip, auto table, auto index, auto values) {
    std::vector<Value> bits(2);
    chip.hitBits(table, index / 64 * 64, bits);
    return chip.row(table, index, values);
  };
  EXPECT_THAT(refusals({.read = clearedByRows}), Contains("hitsAreReadOnce"));
}

}  // namespace
}  // namespace VelaBus
