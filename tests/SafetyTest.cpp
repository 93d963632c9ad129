#include <unistd.h>

#include "Generator.h"
#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "VelaSwitchTable/VelaTableHashTest.h"
#include "device/AclLookup.h"
#include "device/Image.h"

// What must hold however entries move, writes fail and agents restart: an entry whose status is
// programmed is found by the data path, and in the end hardware holds what is desired, no more.

namespace {

using namespace VelaSwitchTable;
using VelaSwitch::AclHashKey;
using VelaSwitch::AclHashResult;
using VelaTest::Chip;
using VelaTest::Desired;
using VelaTest::EntryKey;
using VelaTest::EntryProgrammedStatus;
using VelaTest::Started;

class Safety : public VelaTest::ProfileTest {};

/// Hash tables at their limit, asked after every register write: what lay in the row that is being
/// written is found all the time. What has no room waits, as long as there is none and no longer.
struct Crowd : VelaTest::GroupAgent {
  Crowd(const Orb::PtrConst<VelaSwitch::ProfileInfo>& profile, const VelaTest::Group& all,
        VelaDevice::SimulatedSwitch& chip)
      : GroupAgent(profile, all, chip) {
    // Of tables with rows of their own, one is like the other.
    const auto last = of({group.tables.size() - 1, {}}).hardware();
    if (last && !last->borrowsRows()) group.tables.resize(1);
    chip.writeObserverIs([this](const auto&, U32 row) {
      written.insert(row);
      const auto at = held.find(row);
      if (at == held.end() || at->second == changing) return;
      ++checks;
      ASSERT_NO_FATAL_FAILURE(expectFound(at->second, desired.at(at->second)));
    });
  }

  void announce(const EntryKey& key, const VelaAgent::Json& result) {
    changing = key;
    desired[key] = result;
    set(key, result);
    noteWritten();
  }
  void withdraw(const EntryKey& key) {
    changing = key;
    del(key);
    desired.erase(key);
    ASSERT_TRUE(find(key).is_null()) << key.second;
    noteWritten();
  }
  void noteWritten() {
    for (const U32 row : written) {
      held.erase(row);
      for (std::size_t table = 0; table < group.tables.size(); ++table) {
        const VelaAgent::Json key = of({table, {}}).hardware()->keyAt(row);
        if (!key.is_null()) held[row] = {table, key};
      }
    }
    written.clear();
  }
  void expectNoRoomForThoseThatWait() {
    U32 waiting = 0;
    for (const auto& [key, result] : desired) {
      const bool found = !find(key).is_null();
      ASSERT_EQ(found, of(key).hardware()->place(key.second).has_value()) << key.second;
      if (found) continue;
      ++waiting;
      ASSERT_FALSE(of(key).competing(of(key).keyFromJson(key.second)).empty())
          << key.second << " has room";
    }
    ASSERT_EQ(held.size(), desired.size() - waiting);
  }

  Desired desired;
  std::map<U32, EntryKey> held;  ///< By row.
  std::set<U32> written;
  EntryKey changing;
  U64 checks = 0;
};

TEST_P(Safety, noEntryIsEverMissing) {
  for (const VelaTest::Group& group : VelaTest::groups(*profile)) {
    VelaDevice::SimulatedSwitch chip;
    Crowd crowd(profile, group, chip);
    // The test table has a test of its own.
    if (!crowd.hashed() || group.name() == "Route" || group.name() == "HashTest") continue;
    SCOPED_TRACE(group.name());
    crowd.start(VelaAgent::Agent::Start::fresh);
    const U32 rows = crowd.tables()[0]->convertor().entryCounters().front().size;
    const auto tables = static_cast<U32>(crowd.group.tables.size());
    const U32 numbers = std::min(rows * 5 / 4, generator.keys(group.name())) / tables;
    for (U32 step = 0; step < rows * 3; ++step) {
      const EntryKey key = generator.randomKey(crowd.group, numbers);
      if (random.below(8) == 0) {
        crowd.withdraw(key);
      } else {
        crowd.announce(key, generator.result(crowd.of(key).name(), key.second));
      }
      if (HasFatalFailure()) return;
    }
    ASSERT_NO_FATAL_FAILURE(crowd.expectNoRoomForThoseThatWait());
    EXPECT_GT(crowd.tables()[0]->moves(), rows / 20);
    EXPECT_GT(crowd.checks, 1000u);
    for (int round = 0; round < 2; ++round) {
      const Desired before = crowd.desired;
      for (const auto& [key, result] : before) {
        if (round == 0 && random.below(16) != 0) continue;
        ASSERT_NO_FATAL_FAILURE(crowd.withdraw(key));
      }
      ASSERT_NO_FATAL_FAILURE(crowd.expectNoRoomForThoseThatWait());
    }
    for (const auto& table : crowd.tables()) EXPECT_TRUE(table->statuses().empty());
    VelaTest::expectNoFindings(crowd);
  }
}

/// The small model has all kinds of tables.
std::vector<std::string> safetyModels() {
  if (VelaTest::sanitized) return {"vela-20-4.0"};
  return {"vela-48-5.1", "vela-20-4.0"};
}
INSTANTIATE_TEST_SUITE_P(Models, Safety, testing::ValuesIn(safetyModels()),
                         VelaTest::profileTestName);

TEST(Restart, anotherSpellingOfTheKeyTakesItsRowOverWithoutAWrite) {
  Started<AclHashTable> before("vela-48-5.1", aclHashTableFactory("acl", 0, 0));
  const AclHashKey spelled{.type = 7, .srcIp = Ipnet::IpAddr(0xFFFFFFFF), .l4Port = 65535};
  const AclHashKey readBack{.type = 7, .qualifier = 15};
  before.table->entryIs(spelled, {4, 5});
  const U64 writes = before.chip.rowWrites();
  const auto table = aclHashTableFactory("acl", 0, 0);
  before.start(*table, Chip::Start::restart);
  EXPECT_EQ(table->unclaimedKeys(), std::vector{readBack});
  table->entryIs(spelled, {4, 5});
  EXPECT_EQ(before.chip.rowWrites(), writes);
  EXPECT_EQ(table->entries().keys(), std::vector{spelled});
  EXPECT_EQ(table->tableStatus()->entryStatus(spelled)->status(),
            EntryProgrammedStatus::programmed);
  EXPECT_EQ(table->tableStatus()->entryStatus(readBack), std::nullopt);
  // Once announced, it is a desired entry like any other: a third spelling has to wait.
  const AclHashKey third{.type = 7, .srcIp = Ipnet::IpAddr(0xFFFFFFFF)};
  table->entryIs(third, {6, 6});
  EXPECT_EQ(table->tableStatus()->entryStatus(third)->status(),
            EntryProgrammedStatus::duplicateKey);
  table->entryDel(spelled);
  EXPECT_EQ(acl(before.path, 0, third), (AclHashResult{6, 6}));
}

/// A saved switch whose writer was killed amid a row, with the row's words all noted down.
TEST(SavedSwitch, theRowThatWasBeingWrittenIsFinished) {
  const std::string file = testing::TempDir() + "vela-pending-" + std::to_string(getpid());
  const auto profile = VelaSwitch::ProfileInfo::builtIn("vela-48-5.1");
  {
    VelaDevice::SimulatedSwitch chip{VelaDevice::Memory(file)};
    const auto table = HashTestTableIs("hashTest");
    table->doSetProfileConvertor(Orb::make<VelaSwitchApi::SwTableTypes>(profile, chip));
    table->doCreateHwTable();
    table->initHwEntries(true);
    table->initializedIs(true);
    table->entryIs(HashTestKey{5u}, HashTestResult{1u});
  }
  const auto pendingIs = [&](U32 state, U32 index) {
    const VelaDevice::Memory memory(file);
    auto& header = *reinterpret_cast<VelaDevice::ImageHeader*>(memory.bytes());
    header.pending = {state, 3, sizeof header, index, {5, 9, 0x8005}};
  };
  const auto result = [&] {
    VelaDevice::SimulatedSwitch chip{VelaDevice::Memory(file)};
    VelaDevice::DataPath path(chip, *profile);
    return hashTest(path, 5)->result();
  };
  pendingIs(0, 5);
  EXPECT_EQ(result(), 1u) << "the note was not whole yet";
  pendingIs(1, 5);
  EXPECT_EQ(result(), 9u);
  {
    const VelaDevice::Memory memory(file);
    EXPECT_EQ(reinterpret_cast<VelaDevice::ImageHeader*>(memory.bytes())->pending.state, 0u);
  }
  pendingIs(1, 16);
  EXPECT_EQ(VelaTest::errorText(result),
            "this is no saved switch: the row that was being written is none");
  std::remove(file.c_str());
}

/// A row that is as far from its entry as from an empty one is still its entry's.
TEST(Audit, aRowHalfwayToEmptyIsFoundAgain) {
  Started<HashTestTable> rig;
  auto& convertor = rig.table->profileConvertor();
  constexpr U32 row = 1;
  const std::vector<U32> empty = rig.words(0, row);
  rig.table->entryIs(HashTestKey{9u}, HashTestResult{1u});
  const std::vector<U32> whole = rig.words(0, row);
  std::vector<std::pair<U32, U32>> bits;
  for (U32 bit = 0; bit < 64; ++bit) {
    if (((empty[bit / 32] ^ whole[bit / 32]) >> bit % 32 & 1) != 0) {
      bits.emplace_back(bit / 32, bit % 32);
    }
  }
  ASSERT_GT(bits.size(), 0u);
  ASSERT_EQ(bits.size() % 2, 0u);
  for (std::size_t i = 0; i < bits.size() / 2; ++i) {
    rig.chip.flipBit(convertor.hwTable(0)->busHandle(), row, bits[i].first, bits[i].second);
  }
  convertor.takePlacement();
  rig.table->syncEntries();
  const auto& findings = convertor.auditFindings();
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_EQ(findings[0].kind, VelaSwitchApi::AuditFinding::Kind::inconsistent);
  EXPECT_EQ(findings[0].index, row);
  convertor.repair(findings[0]);
  EXPECT_EQ(hashTest(rig.path, 9)->result(), 1u);
}

/// One read that fails is tried again; a row that keeps failing is reported.
TEST(Audit, aRowIsReadAgain) {
  using Kind = VelaSwitchApi::AuditFinding::Kind;
  Started<HashTestTable> rig;
  rig.chip.failReadsIs(1);
  rig.table->syncEntries();
  EXPECT_TRUE(rig.table->profileConvertor().auditFindings().empty());
  rig.chip.failReadsIs(3);
  rig.table->syncEntries();
  EXPECT_EQ(rig.table->profileConvertor().auditFindings().front().kind, Kind::unreadable);
}

}  // namespace
