#include "bus/MappedBus.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "BusTables.h"
#include "Support.h"
#include "VelaSwitchTable/VelaTableLpmTables.h"

namespace VelaBus {
namespace {

using testing::ElementsAre;
using VelaTest::errorText;
using Read = MappedBus::Read;
using Value = MappedBus::RegisterValue;

/// The map that docs/buses.md shows, with waits of this many microseconds.
std::string documentedMap(U32 limit) {
  std::ifstream in(DOCS "/buses.md");
  std::stringstream text;
  text << in.rdbuf();
  std::string map = text.str();
  map.erase(0, map.find("```json\n") + 8);
  map.erase(map.find("```"));
  const std::string documented = "\"limit\": 1000}";
  for (std::size_t at = 0; (at = map.find(documented, at)) != std::string::npos; ++at) {
    map.replace(at, documented.size(), "\"limit\": " + std::to_string(limit) + "}");
  }
  return map;
}

/// Enough for a machine that is busy with other things.
constexpr U32 patient = 20'000'000;
/// Not enough for hardware that is held.
constexpr U32 hasty = 2'000;

RegisterMap mapOf(const std::string& text) { return RegisterMap::fromText(text, "map"); }

/// Memory of registers, as a file that can be mapped.
class RegisterFile {
 public:
  static constexpr std::size_t size = 0x4000;

  RegisterFile() : descriptor_(memfd_create("registers", 0)) {
    if (descriptor_ < 0 || ftruncate(descriptor_, size) != 0) throw std::runtime_error("memfd");
    words_ =
        static_cast<U32*>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_, 0));
  }
  ~RegisterFile() {
    munmap(words_, size);
    close(descriptor_);
  }
  RegisterFile(const RegisterFile&) = delete;
  RegisterFile& operator=(const RegisterFile&) = delete;

  MappedBus::File file() const { return {"/proc/self/fd/" + std::to_string(descriptor_)}; }
  /// The word at the offset in bytes.
  std::atomic_ref<U32> at(U32 offset) const { return std::atomic_ref<U32>(words_[offset / 4]); }

 private:
  int descriptor_;
  U32* words_;
};

/// The hardware's side of the documented map, played by another process: it takes rows over,
/// answers triggers, and knows of the bus what is in the registers alone.
class Hardware {
 public:
  static constexpr U32 rows = 2048;

  /// What the test does to it from outside.
  struct Control {
    std::atomic<bool> held{false};  ///< It does nothing meanwhile.
    std::atomic<U32> goodWrites{0}, failWrites{0}, goodReads{0}, failReads{0};
    std::atomic<U32> rowWrites{0};
    std::atomic<bool> hits[2][rows];  ///< By processor 0's tables.
  };

  explicit Hardware(const RegisterFile& registers) : registers_(registers) {
    void* shared =
        mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    control_ = new (shared) Control;
    process_ = fork();
    if (process_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) {
      if (!control_->held) {
        for (const U32 processor : {0, 1}) serve(processor);
      }
      std::this_thread::yield();
    }
  }
  ~Hardware() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    munmap(control_, sizeof(Control));
  }
  Hardware(const Hardware&) = delete;
  Hardware& operator=(const Hardware&) = delete;

  Control& control() const { return *control_; }

 private:
  struct Row {
    U32 words[4];
    bool present;
  };

  static bool fails(std::atomic<U32>& good, std::atomic<U32>& fail) {
    if (fail == 0) return false;
    if (good > 0) return --good, false;
    return --fail, true;
  }

  void serve(U32 processor) {
    const U32 base = 0x1000 + processor * 0x100;
    if (const U32 word = registers_.at(base + 0x10); (word >> 17 & 1) != 0) {
      const bool failed = fails(control_->goodWrites, control_->failWrites);
      if (!failed) {
        Row& row = rows_[processor][registers_.at(base + 0x18) == 17]
                        [(word >> 14 & 3) * 1024 + (word & 0x3ff)];
        for (U32 i = 0; i < 4; ++i) row.words[i] = registers_.at(base + i * 4);
        row.present = true;
        ++control_->rowWrites;
      }
      registers_.at(base + 0x10) = failed ? 1u << 31 : 0;
    }
    if (const U32 word = registers_.at(base + 0x14); word >> 31 != 0) {
      const U32 table = (word >> 16 & 0xff) == 17;
      U32 answer = 0;
      if (fails(control_->goodReads, control_->failReads)) {
        answer = 1u << 29;
      } else if ((word >> 28 & 1) != 0) {
        readHits(base, table, word & 0xffff);
      } else {
        const Row& row = rows_[processor][table][word & 0xffff];
        for (U32 i = 0; i < 4; ++i) registers_.at(base + i * 4) = row.words[i];
        answer = row.present ? 0 : 1u << 30;
      }
      registers_.at(base + 0x14) = answer;
    }
  }
  void readHits(U32 base, U32 table, U32 first) {
    for (U32 i = 0; i < 2; ++i) {
      U32 bits = 0;
      for (U32 bit = 0; bit < 32 && first < rows; ++bit, ++first) {
        bits |= U32{control_->hits[table][first].exchange(false)} << bit;
      }
      registers_.at(base + i * 4) = bits;
    }
  }

  const RegisterFile& registers_;
  Control* control_;
  pid_t process_;
  Row rows_[2][2][rows]{};
};

class MappedUnderTest final : public VelaTest::LevelsUnderTest {
 public:
  RegisterBus& bus() override { return bus_; }
  bool tellsAbsent() const override { return true; }
  bool hitIs(std::size_t table, HwIndex index) override {
    return hardware_.control().hits[table][index] = true;
  }
  bool failWritesIs(U32 count, U32 good) override {
    hardware_.control().goodWrites = good;
    hardware_.control().failWrites = count;
    return true;
  }
  bool failReadsIs(U32 count, U32 good) override {
    hardware_.control().goodReads = good;
    hardware_.control().failReads = count;
    return true;
  }

 private:
  RegisterFile registers_;
  Hardware hardware_{registers_};
  MappedBus bus_{mapOf(documentedMap(patient)), registers_.file()};
};

[[maybe_unused]] const bool mapped =
    busConformanceIs("MappedBus", [] { return std::make_unique<MappedUnderTest>(); });

/// A bus on the documented map, with the first of the tables.
struct MappedLevel {
  explicit MappedLevel(U32 limit) : bus(mapOf(documentedMap(limit)), registers.file()) {
    const auto& of = VelaTest::LevelsUnderTest::levels()[0];
    table = bus.tableIs(of.identity, of.lastIndex);
    for (const auto& path : of.registers) values.push_back({bus.registerIs(path), 0});
    for (const auto& path : of.hitRegisters) hits.push_back({bus.registerIs(path), 0});
  }
  bool write(HwIndex index) {
    for (std::size_t i = 0; i < values.size(); ++i) values[i].value = wordsOf(index)[i];
    return bus.rowIs(table, index, values);
  }
  static std::vector<U32> wordsOf(HwIndex index) {
    return VelaTest::LevelsUnderTest::wordsOf(0, index, 1);
  }
  std::vector<U32> words() const {
    std::vector<U32> words;
    for (const Value& value : values) words.push_back(value.value);
    return words;
  }

  RegisterFile registers;
  MappedBus bus;
  MappedBus::TableHandle table;
  std::vector<Value> values;
  std::vector<Value> hits;
};

/// Runs `action` in a process that is stopped after each of its instructions, and returns the
/// offsets of words that it changed, in order.
template <class Action>
std::vector<U32> storesOf(const RegisterFile& registers, const Action& action) {
  const pid_t process = fork();
  if (process == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
    raise(SIGSTOP);
    action();
    _exit(0);
  }
  std::vector<U32> stores;
  std::vector<U32> before(RegisterFile::size / 4);
  int status = 0;
  for (waitpid(process, &status, 0); WIFSTOPPED(status); waitpid(process, &status, 0)) {
    for (U32 word = 0x1000 / 4; word < 0x1020 / 4; ++word) {
      const U32 now = registers.at(word * 4);
      if (std::exchange(before[word], now) != now) stores.push_back(word * 4);
    }
    if (ptrace(PTRACE_SINGLESTEP, process, nullptr, nullptr) != 0) break;
  }
  return stores;
}

/// Containers may forbid it.
bool processesMayBeWatched() {
  const pid_t process = fork();
  if (process == 0) _exit(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : 1);
  int status = 0;
  waitpid(process, &status, 0);
  return status == 0;
}

TEST(MappedBus, storesRegistersInOrder) {
  if (!processesMayBeWatched()) GTEST_SKIP() << "no process may be watched here";
  MappedLevel level(0);
  const auto stores = storesOf(level.registers, [&] { level.write(3); });
  EXPECT_THAT(stores, ElementsAre(0x1018, 0x1000, 0x1004, 0x1008, 0x100c, 0x1010));
}

TEST(MappedBus, waitsNoLongerThanTheLimit) {
  MappedLevel level(hasty);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(level.bus.row(level.table, 1, level.values), Read::failed);
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, std::chrono::microseconds(hasty));
  EXPECT_LT(waited, std::chrono::milliseconds(hasty));
  EXPECT_EQ(level.bus.errors().timeouts, 1u);
  // The answer is owed: neither a trigger nor a row may go over it.
  EXPECT_EQ(level.bus.row(level.table, 2, level.values), Read::failed);
  EXPECT_FALSE(level.write(3));
  EXPECT_FALSE(level.bus.hitBits(level.table, 0, level.hits));
  EXPECT_EQ(level.bus.errors().timeouts, 4u);
  EXPECT_EQ(level.registers.at(0x1014), 0x800e0001);
  EXPECT_EQ(level.registers.at(0x1000), 0u);
}

/// An answer that comes too late is not taken for that of the next question, and loses no hit.
TEST(MappedBus, lateAnswersAreTheirQuestionsOwn) {
  MappedLevel level(hasty);
  const Hardware hardware(level.registers);
  const auto patiently = [&](const auto& action) {
    for (int attempt = 0; attempt < 5000; ++attempt) {
      if (action()) return true;
    }
    return false;
  };
  for (const HwIndex index : {1, 2}) {
    ASSERT_TRUE(patiently([&] { return level.write(index); }));
  }
  auto& control = hardware.control();
  for (const HwIndex index : {5, 69}) control.hits[0][index] = true;
  control.held = true;
  EXPECT_EQ(level.bus.row(level.table, 1, level.values), Read::failed);
  control.held = false;
  ASSERT_TRUE(patiently([&] { return level.bus.row(level.table, 2, level.values) == Read::held; }));
  EXPECT_EQ(level.words(), MappedLevel::wordsOf(2));
  control.held = true;
  EXPECT_FALSE(level.bus.hitBits(level.table, 0, level.hits));
  control.held = false;
  ASSERT_TRUE(patiently([&] { return level.bus.hitBits(level.table, 64, level.hits); }));
  EXPECT_EQ(level.hits[0].value, 1u << 5);  // 69 is the sixth row from 64 on.
  control.hits[0][34] = true;
  ASSERT_TRUE(patiently([&] { return level.bus.hitBits(level.table, 0, level.hits); }));
  EXPECT_THAT((std::vector{level.hits[0].value, level.hits[1].value}), ElementsAre(1u << 5, 4u));
  ASSERT_TRUE(patiently([&] { return level.bus.hitBits(level.table, 0, level.hits); }));
  EXPECT_EQ(level.hits[0].value, 0u);
  control.held = true;
  EXPECT_EQ(level.bus.row(level.table, 1, level.values), Read::failed);
  control.held = false;
  ASSERT_TRUE(patiently([&] { return level.bus.hitBits(level.table, 0, level.hits); }));
  EXPECT_EQ(level.hits[0].value, 0u);
}

TEST(MappedBus, countsRefusalsAndKeepsToTheTable) {
  MappedLevel level(patient);
  const Hardware hardware(level.registers);
  hardware.control().failReads = 2;
  EXPECT_EQ(level.bus.row(level.table, 1, level.values), Read::failed);
  EXPECT_FALSE(level.bus.hitBits(level.table, 0, level.hits));
  EXPECT_EQ(level.bus.errors().refusals, 2u);
  EXPECT_EQ(level.bus.errors().timeouts, 0u);
  // 2040 is the table's last row.
  for (const HwIndex index : {2040, 2041}) hardware.control().hits[0][index] = true;
  ASSERT_TRUE(level.bus.hitBits(level.table, 1984, level.hits));
  EXPECT_EQ(level.hits[1].value, 1u << 24);
}

/// A table on this bus, and another agent's that is rebuilt from what hardware answers.
TEST(MappedBus, servesATable) {
  const RegisterFile registers;
  const Hardware hardware(registers);
  const auto make = [](MappedBus& bus) {
    auto table = VelaSwitchTable::lpmLevelTableFactory(14, "table");
    table->doSetProfileConvertor(Orb::make<VelaSwitchApi::SwTableTypes>(
        VelaSwitch::ProfileInfo::builtIn("vela-48-5.1"), bus));
    table->doCreateHwTable();
    return table;
  };
  const auto announce = [](auto& table) {
    for (U32 i = 0; i < 200; ++i) {
      const std::string prefix = std::to_string(i) + "." + std::to_string(i % 16 * 16) + ".0.0/12";
      VelaSwitchTable::EntryCellResult cell;
      cell.nexthopIndexes = VelaSwitch::NexthopIndexes{VelaSwitch::L3LagIndex(i % 57), 3};
      cell.realPrefixLen = 14;
      table->entryIs({static_cast<U8>(i % 8), Orb::fromText<Ipnet::IpPrefix>(prefix)},
                     {std::array{VelaSwitchTable::EntryCellResult{}, cell, cell, cell}, false});
    }
  };
  MappedBus bus(mapOf(documentedMap(patient)), registers.file());
  const auto table = make(bus);
  table->initHwEntries(true);
  table->initializedIs(true);
  announce(table);
  ASSERT_EQ(table->entries().size(), 200u);
  const U32 written = hardware.control().rowWrites;
  EXPECT_GE(written, 2 * (2048u + 200));

  MappedBus next(mapOf(documentedMap(patient)), registers.file());
  const auto rebuilt = make(next);
  rebuilt->syncEntries();
  EXPECT_EQ(rebuilt->entries().keys(), table->entries().keys());
  rebuilt->initializedIs(true);
  announce(rebuilt);
  rebuilt->initHwEntries(false);
  EXPECT_EQ(hardware.control().rowWrites, written);
}

/// Each part of a row is committed, and read back, by itself.
TEST(MappedBus, rowsMayHaveSeveralParts) {
  const RegisterFile registers;
  MappedBus bus(mapOf(R"({"registers": [{"path": "a/r{1-4}", "offset": "0x1000", "strides": [4]}],
      "tables": [{"names": ["t"], "select": {"register": "r3", "index": [[0, 8, 0]]},
        "read": {"trigger": {"register": "r4", "value": 256, "index": [[0, 8, 0]]},
                 "poll": {"register": "r4", "mask": 512, "done": 0, "limit": 0}},
        "control": {"register": "r2", "index": [[0, 8, 8]]}}]})"),
                registers.file());
  const auto table = bus.tableIs({"t", 0, 0, "t"}, 9);
  const auto data = bus.registerIs("a/r1");
  const auto control = bus.registerIs("a/r2");
  std::vector<Value> row{{data, 1}, {control, 2}, {data, 3}, {control, 4}};
  if (!processesMayBeWatched()) GTEST_SKIP() << "no process may be watched here";
  EXPECT_THAT(storesOf(registers, [&] { bus.rowIs(table, 5, row); }),
              ElementsAre(0x1008, 0x1000, 0x1004, 0x1008, 0x1000, 0x1004));
  EXPECT_EQ(registers.at(0x1008), 11u);
  ASSERT_EQ(bus.row(table, 5, row), Read::held);
  EXPECT_THAT((std::vector{row[0].value, row[1].value, row[2].value, row[3].value}),
              ElementsAre(3, 10 << 8, 3, 11 << 8));
  EXPECT_EQ(registers.at(0x100c), 256u + 11);
}

std::string mapError(const std::string& text) {
  return errorText([&] { mapOf(text); });
}

TEST(RegisterMap, saysWhatIsWrongInOneLine) {
  const std::string good = R"({"registers": [
    {"path": "a[{0-3}]/x", "offset": "0x10", "strides": [16], "width": 32},
    {"path": "a[{0-3}]/y", "offset": "0x14", "strides": [16]}],
  "tables": [{"names": ["t-{}"], "select": {"register": "y", "value": 256, "index": [[0, 8, 0]]},
    "read": "registers", "written": {"register": "y", "mask": 3, "done": 2, "limit": 5}}]})";
  ASSERT_EQ(mapError(good), "");
  const struct {
    const char* instead;
    const char* of;
    const char* line;
  } mistakes[] = {
      {"off\\nset", "offset", "map: registers[0]: unknown key \"off?set\""},
      {"", "\"names\": [\"t-{}\"], ", "map: tables[0]: \"names\" is missing"},
      {"0x18", "0x14", ""},
      {"0x20", "0x14",
       "map: patterns \"a[{0-3}]/y\" and \"a[{0-3}]/x\" overlap at 0x20: a[0]/y and a[1]/x"},
      {"\"width\": 64", "\"width\": 32",
       "map: patterns \"a[{0-3}]/x\" and \"a[{0-3}]/y\" overlap at 0x14: a[0]/x and a[0]/y"},
      {"\"width\": 48", "\"width\": 32",
       "map: registers[0]: \"width\" is no multiple of 32 bits: 48"},
      {"a[{2-5}]/x", "a[{0-3}]/y",
       "map: patterns \"a[{0-3}]/x\" and \"a[{2-5}]/x\" both name a[2]/x"},
      {"0x12", "0x10", "map: registers[0]: \"offset\" is no multiple of 4 bytes: 18"},
      {"0xfg", "0x10", "map: registers[0]: \"offset\" is no number of 0 to 1099511627776"},
      {"\"strides\": [6]", "\"strides\": [16]",
       "map: registers[0]: \"strides\" is no multiple of 4 bytes: 6"},
      {"\"strides\": [16, 4]", "\"strides\": [16]",
       "map: registers[0]: \"a[{0-3}]/x\" has 1 ranges of numbers, and there are 2 strides"},
      {"{3-0}", "{0-3}", "map: registers[0]: expected {FIRST-LAST} or {} in \"a[{3-0}]/x\""},
      {"{}", "{0-3}", "map: pattern \"a[{}]/x\" makes them more than 131072 registers"},
      {"[[30, 8, 0]]", "[[0, 8, 0]]", "map: tables[0].select: \"index\" has bits outside of 32"},
      {"[[0, 8, 0], [8, 8, 7]]", "[[0, 8, 0]]",
       "map: tables[0].select: bits of \"index\" lie on others, or on \"value\""},
      {"\"absent\": 1, \"done\": 2", "\"done\": 2",
       "map: tables[0].written: \"absent\" belongs to \"read\" alone"},
      {"\"done\": 4", "\"done\": 2",
       "map: tables[0].written: \"done\" has bits that are not in \"mask\", or \"mask\" is 0"},
      {"\"limit\": -1", "\"limit\": 5",
       "map: tables[0].written: \"limit\" is no number of 0 to 4294967295"},
      {"\"mask\": 3, \"mask\": 3", "\"mask\": 3", "map: \"mask\" is there twice in one object"},
      {"", "\"tables\":", "map: no JSON in line 4"},
  };
  for (const auto& mistake : mistakes) {
    std::string text = good;
    text.replace(text.find(mistake.of), std::strlen(mistake.of), mistake.instead);
    EXPECT_EQ(mapError(text), mistake.line) << mistake.instead;
  }
}

TEST(MappedBus, refusesWhatItCannotReach) {
  const RegisterFile registers;
  const auto open = [&](const std::string& map, MappedBus::File file) {
    return errorText([&] { MappedBus bus(mapOf(map), file); });
  };
  const std::string path = registers.file().path;
  const std::string map =
      R"({"registers": [{"path": "a", "offset": "0x3ffc"}],
          "tables": [{"names": ["t", "u-{1-2}"], "read": "registers"},
                     {"names": ["u-{}"], "read": "registers"}]})";
  EXPECT_EQ(open(map, {path}), "");
  EXPECT_EQ(open(map, {path, 0x1000}),
            "a ends at byte 16384, and the mapping of " + path + " has 12288");
  EXPECT_EQ(open(map, {path, 0, 0x4004}),
            path + " has 16384 bytes, and 16388 from 0 on are to be mapped");
  EXPECT_EQ(open(map, {"/dev/null"}), "the size of /dev/null is to be given");
  EXPECT_EQ(open(map, {"/none"}), "cannot map /none: No such file or directory");
  EXPECT_EQ(open(R"({"registers": [], "tables": []})", {path, 4}),
            "cannot map " + path + ": Invalid argument");

  MappedBus bus(mapOf(map), {path});
  const auto table = [&](const char* name) {
    return errorText([&] { bus.tableIs({"t", 0, 0, name}, 1); });
  };
  EXPECT_EQ(table("t"), "");
  EXPECT_EQ(table("u-3"), "");
  EXPECT_EQ(table("u-2"), "map: tables[0] and tables[1] both name table u-2");
  EXPECT_EQ(table("u-02"), "map: no protocol for table u-02");
  EXPECT_EQ(errorText([&] { bus.registerIs("b"); }), "the register map has no pattern for b");
}

}  // namespace
}  // namespace VelaBus
