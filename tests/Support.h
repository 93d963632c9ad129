#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <string>

#include "Orb/Assert.h"
#include "Orb/Sanitizer.h"
#include "Trace/Trace.h"
#include "VelaSwitchApi/SwTable.h"
#include "VelaSwitchApi/TableConstants.h"
#include "VelaSwitchTable/family/Family.h"
#include "device/DataPath.h"

namespace VelaTest {

using VelaSwitchApi::EntryProgrammedStatus;

/// Whether the address sanitizer watches: it takes several times as long, and sees in few rounds of
/// a random test what it would see in many.
inline constexpr bool sanitized = Orb::addressSanitizer;

/// A fatal assertion, while a FatalGuard is alive.
class Fatal : public Orb::AssertionFailed {
 public:
  using AssertionFailed::AssertionFailed;
};

/// Turns fatal assertions into exceptions.
class FatalGuard {
 public:
  FatalGuard()
      : previous_(Orb::assertHandlerIs([](const char* expression, const char* function) {
          last() = std::string(expression) + " in " + function;
          throw Fatal(last());
        })) {
    last().clear();
  }
  ~FatalGuard() { Orb::assertHandlerIs(previous_); }

  /// What the last one said, also when someone caught it.
  static std::string& last() {
    static std::string text;
    return text;
  }

 private:
  Orb::AssertHandler previous_;
};

/// The text of the fatal assertion that `action` meets; empty when it meets none.
template <class Action>
std::string fatalText(const Action& action) {
  FatalGuard guard;
  try {
    action();
  } catch (const Fatal&) {
  }
  return FatalGuard::last();
}

/// The text of the exception that `action` throws; empty when it throws none.
template <class Action>
std::string errorText(const Action& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

/// The messages of a handle while `action` runs, at this level and below.
template <class Action>
std::vector<std::string> traced(Trace::Handle& handle, U8 level, const Action& action) {
  struct Sink final : Twinlog::Sink {
    std::vector<std::string> lines;
    void line(std::string_view, U8, std::string_view message) override {
      lines.emplace_back(message);
    }
  } sink;
  Twinlog::sinkIs(&sink);
  handle.twinlogLevelIs(level);
  action();
  handle.twinlogLevelIs(-1);
  Twinlog::sinkIs(nullptr);
  return sink.lines;
}

/// A random source that the test's --gtest_random_seed decides; without one each run has another
/// seed, which is printed so that a failure can be had again.
class Random {
 public:
  explicit Random(U32 salt = 0) : engine_(seed() + salt) {}
  U32 operator()() { return static_cast<U32>(engine_()); }
  /// A number below `end`.
  U32 below(U32 end) { return (*this)() % end; }
  bool flip() { return (*this)() % 2 != 0; }

 private:
  static U32 seed() {
    static const U32 chosen = [] {
      const auto value = static_cast<U32>(testing::UnitTest::GetInstance()->random_seed());
      std::printf("--gtest_random_seed=%u\n", value);
      return value;
    }();
    return chosen;
  }

  std::mt19937 engine_;
};

/// A switch of a built-in profile.
struct Chip {
  explicit Chip(const char* profileName = "vela-48-5.1")
      : profile(VelaSwitch::ProfileInfo::builtIn(profileName)), path(chip, *profile) {}

  VelaDevice::SimulatedSwitch chip;
  Orb::PtrConst<VelaSwitch::ProfileInfo> profile;
  VelaDevice::DataPath path;
  Orb::Ptr<VelaSwitchApi::SwTableTypes> types =
      Orb::make<VelaSwitchApi::SwTableTypes>(profile, chip);

  enum class Start { fresh, restart };
  /// Takes a table through its start. At a restart, which is another agent's, what is desired comes
  /// next, and then initHwEntries(false).
  void start(VelaSwitchApi::SwTable& table, Start how = Start::fresh) {
    if (how == Start::restart) types = Orb::make<VelaSwitchApi::SwTableTypes>(profile, chip);
    create(table);
    if (how == Start::restart) {
      table.syncEntries();
    } else {
      table.initHwEntries(true);
    }
    table.initializedIs(true);
    table.doInitComplete();
  }
  /// The same for tables that share rows: all declare them first.
  void startTogether(std::initializer_list<VelaSwitchApi::SwTable*> tables) {
    for (auto* table : tables) create(*table);
    for (auto* table : tables) table->initHwEntries(true);
    for (auto* table : tables) table->initializedIs(true);
  }
  /// Declares the table's hardware, no more.
  void create(VelaSwitchApi::SwTable& table) {
    table.doSetProfileConvertor(types);
    table.doCreateHwTable();
  }

  /// The words of a row as the registers got them; empty when it was never written.
  std::vector<U32> row(const char* family, U32 instance, U32 id, U32 index) {
    const auto* table = chip.find(family, instance, id);
    const U32* words = table ? table->row(index) : nullptr;
    return words ? std::vector<U32>(words, words + table->rowWords()) : std::vector<U32>{};
  }
};

/// A started table on a switch of its own.
template <class Table>
struct Started : Chip {
  explicit Started(const char* profileName = "vela-48-5.1",
                   Orb::Ptr<Table> made = Orb::make<Table>("table"))
      : Chip(profileName), table(std::move(made)) {
    start(*table);
  }
  auto& convertor() {
    return static_cast<typename VelaSwitchTable::ClassesOf<typename Table::Family>::Convertor&>(
        *table->profileConvertorPtr());
  }
  EntryProgrammedStatus status(const typename Table::Key& key) {
    const auto entry = table->tableStatus()->entryStatus(key);
    return entry ? entry->status() : EntryProgrammedStatus::notProgrammed;
  }
  /// Row writes that the announcement takes.
  template <class Result>
  U64 writes(const typename Table::Key& key, const Result& result) {
    const U64 before = chip.rowWrites();
    table->entryIs(key, result);
    return chip.rowWrites() - before;
  }
  /// A row of the table's first instance.
  std::vector<U32> words(U32 hwTable, U32 index) {
    using VelaSwitchTable::TableConstants;
    return row(Table::Family::traits.table.name, 0, hwTable, index);
  }

  Orb::Ptr<Table> table;
};

}  // namespace VelaTest
