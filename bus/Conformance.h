#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "VelaSwitchApi/RegisterBus.h"

/// What every register bus has to do, as tests. Whoever writes a bus derives from BusUnderTest and
/// hands it to busConformanceIs(). A test that needs what cannot be done to the hardware behind the
/// bus is skipped and says so.
namespace VelaBus {

/// A bus, and what can be done to the hardware behind it. Each test makes one.
class BusUnderTest {
 public:
  using HwIndex = VelaSwitchApi::HwIndex;
  using RegisterBus = VelaSwitchApi::RegisterBus;

  /// What the suite may use.
  struct Table {
    VelaSwitchApi::HwTableIdentity identity;  ///< As the bus is to be told it.
    HwIndex lastIndex;                      ///< Of three times the rows of a read of hits, or more.
    std::vector<std::string> registers;     ///< A row's, in the order in which they are written.
    std::vector<std::string> hitRegisters;  ///< Empty when rows have no hit bits.
  };

  virtual ~BusUnderTest() = default;

  virtual RegisterBus& bus() = 0;  ///< The same one throughout a test.
  /// Two tables at least, none of whose rows was ever written. Those that share registers, where
  /// there are any, find the most.
  virtual const std::vector<Table>& tables() const = 0;
  /// The words of a row, control word included, as they are written and read back. With another
  /// seed each word but the control word is another.
  virtual std::vector<U32> rowOf(std::size_t table, HwIndex index, U32 seed) const = 0;

  /// Whether rows that were never written are told from others.
  virtual bool tellsAbsent() const { return false; }

  // False where it cannot be done; nothing happens then.

  /// The data path hits a row.
  virtual bool hitIs(std::size_t /*table*/, HwIndex /*index*/) { return false; }
  /// After `good` more row writes, `count` of them fail for whoever asks the bus.
  virtual bool failWritesIs(U32 /*count*/, U32 /*good*/) { return false; }
  /// The same for reads of rows and of hit bits; those that fail clear no bits.
  virtual bool failReadsIs(U32 /*count*/, U32 /*good*/) { return false; }
  /// Calls `after()` after each single register that a row write reaches; null for no more.
  virtual bool watchIs(std::function<void()> /*after*/) { return false; }

  // For whoever watches.

  /// What the register was last written with.
  virtual U32 registerNow(const std::string& /*path*/) { return 0; }
  /// What the data path finds in the row.
  virtual std::vector<U32> rowNow(std::size_t /*table*/, HwIndex /*index*/) { return {}; }
};

/// What came of a check.
struct BusVerdict {
  /// A check that needs what cannot be done is skipped.
  enum class Outcome { good, bad, skipped };
  Outcome outcome = Outcome::good;  ///< Unless something was found.
  std::string why = {};  ///< What was wrong, or could not be done; empty when all was well.
};

/// The checks themselves, of use without GoogleTest's tests: for buses that are to be refused.
class BusChecks {
 public:
  using HwIndex = BusUnderTest::HwIndex;
  using RegisterBus = BusUnderTest::RegisterBus;
  using Read = RegisterBus::Read;

  /// Asks the bus for the handles of its tables and registers.
  explicit BusChecks(BusUnderTest& under) : under_(under), bus_(under.bus()) {
    for (const auto& table : under.tables()) {
      Handles handles{bus_.tableIs(table.identity, table.lastIndex), {}, {}};
      for (const auto& path : table.registers) {
        handles.row.push_back({bus_.registerIs(path), 0});
      }
      for (const auto& path : table.hitRegisters) {
        handles.hits.push_back({bus_.registerIs(path), 0});
      }
      handles_.push_back(std::move(handles));
    }
  }

  /// A path and a name always have the same handle, and no other has it.
  BusVerdict handles() {
    std::map<RegisterBus::RegisterHandle, std::string> paths;
    std::map<RegisterBus::TableHandle, std::string> names;
    for (const auto& table : under_.tables()) {
      for (const auto& path : table.registers) {
        const auto handle = bus_.registerIs(path);
        if (bus_.registerIs(path) != handle) return bad("register " + path + " changes its handle");
        if (paths.emplace(handle, path).first->second != path) {
          return bad("registers " + path + " and " + paths[handle] + " have one handle");
        }
      }
      const auto handle = bus_.tableIs(table.identity, table.lastIndex);
      const std::string& name = table.identity.name;
      if (bus_.tableIs(table.identity, table.lastIndex) != handle) {
        return bad("table " + name + " changes its handle");
      }
      if (!names.emplace(handle, name).second) {
        return bad("tables " + name + " and " + names[handle] + " have one handle");
      }
    }
    return {};
  }

  /// Rows hold what was written to them last, whatever was written and read in between.
  BusVerdict rowsHoldWhatWasWritten() {
    std::mt19937 random(5);
    std::map<std::pair<std::size_t, HwIndex>, U32> model;
    for (U32 step = 1; step <= 300; ++step) {
      const std::size_t table = random() % handles_.size();
      const HwIndex last = under_.tables()[table].lastIndex;
      const HwIndex index = random() % 2 == 0 ? last - random() % 4 : random() % (last + 1);
      if (!write(table, index, step)) return bad("a write failed");
      model[{table, index}] = step;
      const auto some = std::next(model.begin(), static_cast<int>(random() % model.size()));
      for (const auto& [at, seed] : {*some, *model.find({table, index})}) {
        if (const auto found = differs(at.first, at.second, seed); !found.empty()) {
          return bad(found);
        }
      }
    }
    for (const auto& [at, seed] : model) {
      if (const auto found = differs(at.first, at.second, seed); !found.empty()) return bad(found);
    }
    return {};
  }

  /// Registers of a row are written in the order given, each once.
  BusVerdict registersAreWrittenInOrder() {
    write(0, 1, 1);
    write(0, 2, 2);  // So that each register changes with what is written next.
    const auto words = under_.rowOf(0, 1, 3);
    const auto& paths = under_.tables()[0].registers;
    std::size_t written = 0;
    std::string found;
    const bool watched = under_.watchIs([&] {
      ++written;
      for (std::size_t i = 0; i < words.size(); ++i) {
        const bool is = under_.registerNow(paths[i]) == words[i];
        if (is != (i < written) && found.empty()) {
          found = "after " + std::to_string(written) + " registers " + paths[i] +
                  (is ? " is written already" : " is not written yet");
        }
      }
    });
    if (!watched) return skipped("registers cannot be watched");
    write(0, 1, 3);
    under_.watchIs(nullptr);
    if (!found.empty()) return bad(found);
    return written == words.size() ? BusVerdict{}
                                   : bad(std::to_string(written) + " register writes for " +
                                         std::to_string(words.size()) + " registers");
  }

  /// The data path has the old row until the last register is written, and the new one then.
  BusVerdict lastRegisterCommits() {
    write(0, 1, 1);
    const auto before = under_.rowOf(0, 1, 1);
    const auto after = under_.rowOf(0, 1, 2);
    std::size_t written = 0;
    std::string found;
    const bool watched = under_.watchIs([&] {
      ++written;
      if (under_.rowNow(0, 1) == (written < after.size() ? before : after)) return;
      found = "after " + std::to_string(written) + " of " + std::to_string(after.size()) +
              " registers the data path has another row";
    });
    if (!watched) return skipped("registers cannot be watched");
    write(0, 1, 2);
    under_.watchIs(nullptr);
    return found.empty() ? BusVerdict{} : bad(found);
  }

  /// Rows are absent until they are written, and no write makes another row present.
  BusVerdict unwrittenRowsAreAbsent() {
    if (!under_.tellsAbsent()) return skipped("hardware does not tell absent rows");
    const auto expect = [&](std::size_t table, HwIndex index, Read read) {
      return this->read(table, index).first == read;
    };
    if (!expect(0, 3, Read::absent)) return bad("a row that was never written is not absent");
    write(0, 3, 1);
    if (!expect(0, 3, Read::held)) return bad("a row that was written is not held");
    for (const auto& [table, index, seed] : {Row{0, 2, 0}, {0, 4, 0}, {1, 3, 0}}) {
      if (!expect(table, index, Read::absent)) return bad(rowName(table, index) + " is not absent");
    }
    return {};
  }

  /// rowsAre() writes in order and says of each row how it went; one that fails keeps none back.
  BusVerdict runsAreWrittenInOrder() {
    // Row 2 of the first table comes twice.
    Run run(*this, {{0, 1, 1}, {0, 2, 2}, {1, 2, 3}, {0, 2, 4}, {1, 1, 5}});
    bus_.rowsAre(run.rows);
    for (const auto& row : run.rows) {
      if (!row.written) return bad("a row that was written is told as failed");
    }
    for (const Row& row : {Row{0, 1, 1}, {1, 2, 3}, {0, 2, 4}, {1, 1, 5}}) {
      if (const auto found = differs(row); !found.empty()) return bad(found);
    }
    return {};
  }

  /// The same when one of them fails.
  BusVerdict runsGoOnBehindAFailure() {
    const std::vector<Row> rows{{0, 1, 11}, {1, 1, 12}, {0, 2, 13}, {0, 3, 14}};
    Run run(*this, rows);
    if (!under_.failWritesIs(1, 1)) return skipped("writes cannot be made to fail");
    bus_.rowsAre(run.rows);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (run.rows[i].written != (i != 1)) return bad("row " + std::to_string(i) + " is mistold");
      if (i == 1) continue;
      if (const auto found = differs(rows[i]); !found.empty()) return bad(found);
    }
    return {};
  }

  /// rows() reads in order, and ends at one that fails: those behind it stay as they are.
  BusVerdict runsOfReadsEndAtAFailure() {
    const std::vector<Row> rows{{0, 1, 1}, {1, 1, 2}, {0, 2, 3}, {1, 2, 4}};
    Run run(*this, rows);
    std::vector<RegisterBus::RowRead> reads;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      write(rows[i].table, rows[i].index, rows[i].seed);
      for (auto& value : run.values[i]) value.value = untouched;
      reads.push_back({run.rows[i].table, rows[i].index, run.values[i]});
    }
    const bool fails = under_.failReadsIs(1, 2);
    bus_.rows(reads);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const bool good = !fails || i < 2;
      if (reads[i].read != (good ? Read::held : Read::failed)) {
        return bad("row " + std::to_string(i) + " is mistold");
      }
      if (good &&
          wordsOf(run.values[i]) != under_.rowOf(rows[i].table, rows[i].index, rows[i].seed)) {
        return bad("row " + std::to_string(i) + " is read wrong");
      }
      if (i > 2 && fails && run.values[i].front().value != untouched) {
        return bad("a row behind the one that failed was read");
      }
    }
    return fails ? BusVerdict{} : skipped("reads cannot be made to fail; the others are good");
  }

  /// Reading hits tells those of the table's rows from the first on, and clears no others.
  BusVerdict hitsAreReadOnce() {
    const HwIndex last = under_.tables()[0].lastIndex;
    const auto rows = static_cast<HwIndex>(handles_[0].hits.size()) * 32;
    if (!hit(0, {0, rows - 1, rows, last})) return skipped("rows cannot be hit");
    this->read(0, 0);
    write(1, 0, 1);
    struct {
      std::size_t table;
      HwIndex first;
      std::vector<HwIndex> hit;
    } const reads[] = {{1, 0, {}},
                       {0, 0, {0, rows - 1}},
                       {0, 0, {}},
                       {0, last / rows * rows, {last}},
                       {0, rows, {rows}}};
    for (const auto& [table, first, expected] : reads) {
      const auto found = hits(table, first);
      if (!found) return bad("a read of hits failed");
      if (*found != expected) return bad(hitText(table, first, *found, expected));
    }
    return {};
  }

  /// Hits whose read failed are told by the next one.
  BusVerdict hitsOutliveAFailedRead() {
    if (!hit(0, {5})) return skipped("rows cannot be hit");
    if (!under_.failReadsIs(1, 0)) return skipped("reads cannot be made to fail");
    if (hits(0, 0)) return bad("a failed read of hits is told as good");
    const auto found = hits(0, 0);
    if (!found) return bad("reads of hits do not recover");
    return *found == std::vector<HwIndex>{5} ? BusVerdict{} : bad(hitText(0, 0, *found, {5}));
  }

  /// A write that fails is told, harms no other row, and can be done again.
  BusVerdict writesRecover() {
    write(0, 1, 1);
    write(1, 2, 2);
    write(0, 2, 3);
    if (!under_.failWritesIs(2, 0)) return skipped("writes cannot be made to fail");
    for (int failure = 0; failure < 2; ++failure) {
      if (write(0, 2, 4)) return bad("a failed write is told as good");
    }
    for (const Row& row : {Row{0, 1, 1}, {1, 2, 2}}) {
      if (const auto found = differs(row); !found.empty()) return bad(found);
    }
    if (!write(0, 2, 4)) return bad("writes do not recover");
    const auto found = differs({0, 2, 4});
    return found.empty() ? BusVerdict{} : bad(found);
  }

  /// A read that fails is told, and can be done again.
  BusVerdict readsRecover() {
    write(0, 1, 1);
    if (!under_.failReadsIs(2, 0)) return skipped("reads cannot be made to fail");
    for (const HwIndex index : {1u, 2u}) {
      if (this->read(0, index).first != Read::failed) return bad("a failed read is not told");
    }
    const auto found = differs({0, 1, 1});
    return found.empty() ? BusVerdict{} : bad(found);
  }

 private:
  static constexpr U32 untouched = 0x5EA1ED00;

  struct Handles {
    RegisterBus::TableHandle table;
    std::vector<RegisterBus::RegisterValue> row;
    std::vector<RegisterBus::RegisterValue> hits;
  };
  struct Row {
    std::size_t table;
    HwIndex index;
    U32 seed;
  };
  /// Rows to be written in one call, and the values that they have.
  struct Run {
    Run(BusChecks& checks, const std::vector<Row>& of) {
      for (const Row& row : of) values.push_back(checks.valuesOf(row.table, row.index, row.seed));
      for (std::size_t i = 0; i < of.size(); ++i) {
        rows.push_back({checks.handles_[of[i].table].table, of[i].index, values[i]});
      }
    }
    std::vector<std::vector<RegisterBus::RegisterValue>> values;
    std::vector<RegisterBus::RowWrite> rows;
  };

  static BusVerdict bad(std::string why) { return {BusVerdict::Outcome::bad, std::move(why)}; }
  static BusVerdict skipped(std::string why) {
    return {BusVerdict::Outcome::skipped, std::move(why)};
  }
  static std::vector<U32> wordsOf(std::span<const RegisterBus::RegisterValue> values) {
    std::vector<U32> words;
    for (const auto& value : values) words.push_back(value.value);
    return words;
  }
  static std::string listText(const std::vector<U32>& numbers) {
    std::string text;
    for (const U32 number : numbers) text += " " + std::to_string(number);
    return text.empty() ? " none" : text;
  }
  std::string rowName(std::size_t table, HwIndex index) const {
    return "row " + std::to_string(index) + " of " + under_.tables()[table].identity.name;
  }
  std::string hitText(std::size_t table, HwIndex first, const std::vector<HwIndex>& found,
                      const std::vector<HwIndex>& expected) const {
    return "hits from " + rowName(table, first) + " on:" + listText(found) + ", expected" +
           listText(expected);
  }

  std::vector<RegisterBus::RegisterValue> valuesOf(std::size_t table, HwIndex index,
                                                   U32 seed) const {
    auto values = handles_[table].row;
    const auto words = under_.rowOf(table, index, seed);
    for (std::size_t i = 0; i < values.size(); ++i) values[i].value = words[i];
    return values;
  }
  bool write(std::size_t table, HwIndex index, U32 seed) {
    auto values = valuesOf(table, index, seed);
    const bool good = bus_.rowIs(handles_[table].table, index, values);
    // Nothing is retained of the arguments.
    for (auto& value : values) value.value = untouched;
    return good;
  }
  std::pair<Read, std::vector<U32>> read(std::size_t table, HwIndex index) {
    auto values = handles_[table].row;
    const Read read = bus_.row(handles_[table].table, index, values);
    return {read, wordsOf(values)};
  }
  /// What is wrong with a row that is to hold this; empty when nothing is.
  std::string differs(std::size_t table, HwIndex index, U32 seed) {
    const auto [read, words] = this->read(table, index);
    if (read != Read::held) return rowName(table, index) + " is not held";
    const auto expected = under_.rowOf(table, index, seed);
    if (words == expected) return {};
    return rowName(table, index) + " holds" + listText(words) + ", expected" + listText(expected);
  }
  std::string differs(const Row& row) { return differs(row.table, row.index, row.seed); }

  /// Rows that are hit were written.
  bool hit(std::size_t table, std::initializer_list<HwIndex> indexes) {
    if (handles_[table].hits.empty()) return false;
    for (const HwIndex index : indexes) {
      if (!write(table, index, index) || !under_.hitIs(table, index)) return false;
    }
    return true;
  }
  /// The rows whose bits are set, of those that a read tells. Nothing when it failed.
  std::optional<std::vector<HwIndex>> hits(std::size_t table, HwIndex first) {
    auto values = handles_[table].hits;
    if (!bus_.hitBits(handles_[table].table, first, values)) return std::nullopt;
    std::vector<HwIndex> rows;
    for (std::size_t i = 0; i < values.size() * 32; ++i) {
      if ((values[i / 32].value >> i % 32 & 1) != 0) {
        rows.push_back(first + static_cast<HwIndex>(i));
      }
    }
    return rows;
  }

  BusUnderTest& under_;
  RegisterBus& bus_;
  std::vector<Handles> handles_;
};

/// All of them, by name.
struct BusCheck {
  const char* name;                ///< As docs/buses.md lists it.
  BusVerdict (BusChecks::*run)();  ///< Run on a bus that nothing was done to.
};
/// In the order of docs/buses.md.
inline constexpr BusCheck busChecks[] = {
    {"handles", &BusChecks::handles},
    {"rowsHoldWhatWasWritten", &BusChecks::rowsHoldWhatWasWritten},
    {"registersAreWrittenInOrder", &BusChecks::registersAreWrittenInOrder},
    {"lastRegisterCommits", &BusChecks::lastRegisterCommits},
    {"unwrittenRowsAreAbsent", &BusChecks::unwrittenRowsAreAbsent},
    {"runsAreWrittenInOrder", &BusChecks::runsAreWrittenInOrder},
    {"runsGoOnBehindAFailure", &BusChecks::runsGoOnBehindAFailure},
    {"runsOfReadsEndAtAFailure", &BusChecks::runsOfReadsEndAtAFailure},
    {"hitsAreReadOnce", &BusChecks::hitsAreReadOnce},
    {"hitsOutliveAFailedRead", &BusChecks::hitsOutliveAFailedRead},
    {"writesRecover", &BusChecks::writesRecover},
    {"readsRecover", &BusChecks::readsRecover},
};

/// Makes a bus whose rows were never written.
using BusMaker = std::function<std::unique_ptr<BusUnderTest>()>;

/// One check as a test.
class BusConformanceTest : public testing::Test {
 public:
  /// The check is run on what `make` makes.
  BusConformanceTest(BusMaker make, const BusCheck& check)
      : make_(std::move(make)), check_(check) {}

  /// Skipped, or failed with the verdict's text.
  void TestBody() override {
    const auto under = make_();
    BusChecks checks(*under);
    const BusVerdict verdict = (checks.*check_.run)();
    if (verdict.outcome == BusVerdict::Outcome::skipped) GTEST_SKIP() << verdict.why;
    EXPECT_EQ(verdict.why, "");
  }

 private:
  BusMaker make_;
  BusCheck check_;
};

/// Makes each check a test BusConformance/NAME.CHECK of the bus that `make` makes; to be called
/// before tests run, as for the first value of a variable of the source. True.
inline bool busConformanceIs(const std::string& name, const BusMaker& make) {
  for (const BusCheck& check : busChecks) {
    testing::RegisterTest(("BusConformance/" + name).c_str(), check.name, nullptr, nullptr,
                          __FILE__, __LINE__,
                          [=]() -> testing::Test* { return new BusConformanceTest(make, check); });
  }
  return true;
}

}  // namespace VelaBus
