#include <unistd.h>

#include <map>
#include <set>

#include "Support.h"
#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "VelaSwitchTable/VelaTableHashTest.h"
#include "VelaSwitchTable/VelaTableVlanMembership.h"
#include "device/Image.h"

// What must hold however entries move, writes fail and agents restart: an entry whose status is
// programmed is found by the data path, and in the end hardware holds what is desired, no more.

namespace {

using namespace VelaSwitchTable;
using VelaSwitch::AclHashKey;
using VelaSwitch::AclHashResult;
using VelaSwitchApi::EntryProgrammedStatus;
using VelaTest::Chip;
using VelaTest::Random;

AclHashKey numbered(U32 number) {
  return {.type = 12,
          .srcIp = Ipnet::IpAddr(0x0a000000 + number),
          .dstIp = Ipnet::IpAddr(number * 2654435761u | 1),
          .l4Port = static_cast<U16>(number % 60000 + 1)};
}

AclHashResult randomResult(Random& random) { return {random() % 256, random() % 4096}; }

/// A run at the ACL table's limit, asked after every register write. Only entries that may lie in
/// the row being written can be affected, so those are looked up each time, and all now and then.
TEST(Safety, noAclEntryIsEverMissing) {
  Chip chip;
  const auto table = aclHashTableFactory("acl", 0, 0);
  chip.start(*table);
  Random random;
  const U32 keys = 2600;
  std::map<U32, AclHashResult> programmed;
  std::map<U32, std::set<U32>> keysOfRow;
  for (U32 key = 0; key < keys; ++key) {
    const auto item = table->createHashEntry(numbered(key), false);
    for (U8 way = 0; way < 2; ++way) keysOfRow[way * 2048u + item->getHash(way)].insert(key);
  }
  U32 changing = 0;
  U64 checks = 0;
  const auto check = [&](U32 key) {
    const auto entry = programmed.find(key);
    if (key == changing || entry == programmed.end()) return;
    ++checks;
    EXPECT_EQ(chip.path.acl(0, numbered(key)), entry->second) << key;
  };
  chip.chip.writeObserverIs([&](const auto&, U32 row) {
    for (const U32 key : keysOfRow[row]) check(key);
  });
  U32 fullest = 0;
  U32 refused = 0;
  for (int step = 0; step < 120000 && !testing::Test::HasFailure(); ++step) {
    changing = random() % keys;
    const AclHashKey key = numbered(changing);
    if (random() % 8 == 0) {
      table->entryDel(key);
      programmed.erase(changing);
    } else {
      const AclHashResult result = randomResult(random);
      table->entryIs(key, result);
      const auto status = table->tableStatus()->entryStatus(key)->status();
      if (status == EntryProgrammedStatus::programmed) {
        programmed[changing] = result;
      } else {
        ASSERT_EQ(status, EntryProgrammedStatus::tableFull);
        ++refused;
      }
    }
    fullest = std::max(fullest, table->profileConvertor().physicalTable().engine().size());
    if (step % 10000 == 0) {
      for (U32 each = 0; each < keys; ++each) check(each);
    }
  }
  EXPECT_GT(fullest, 2000u);
  EXPECT_GT(refused, 0u);
  EXPECT_GT(table->profileConvertor().physicalTable().engine().moves(), 5000u);
  EXPECT_GT(checks, 200000u);
}

/// The test table over a switch whose writes fail at random, at a random register of the row.
struct Faults : testing::Test {
  Faults() { chip.start(*table); }

  bool found(U32 key, U32 result) {
    const auto hit = chip.path.hashTest(key);
    return hit && hit->result() == result;
  }
  const TestEntryStatus* status(U32 key) {
    return table->tableStatus()->entryStatus(HashTestKey{key});
  }
  /// Every entry whose status is programmed is found with its result.
  void expectTruth() {
    table->entries().forEach([&](const HashTestKey& key, const HashTestResult& result) {
      ASSERT_TRUE(status(key.value()));
      if (status(key.value())->status() == EntryProgrammedStatus::programmed) {
        ASSERT_TRUE(found(key.value(), result.result())) << key.value();
      }
    });
  }
  /// After the faults: hardware and software agree in every row, and nothing else is left over.
  void expectAgreement() {
    table->syncEntries();
    EXPECT_TRUE(table->profileConvertor().auditFindings().empty());
    for (U32 key = 0; key < keys; ++key) {
      const auto* desired = table->entry(HashTestKey{key});
      if (!desired) {
        ASSERT_EQ(chip.path.hashTest(key), std::nullopt) << key;
        ASSERT_EQ(status(key), nullptr) << key;
      } else {
        ASSERT_NE(status(key)->status(), EntryProgrammedStatus::hardwareError) << key;
        ASSERT_EQ(found(key, desired->result()),
                  status(key)->status() == EntryProgrammedStatus::programmed);
      }
    }
  }

  static constexpr U32 keys = 64;  ///< Few, so that the same ones are met again soon.
  Chip chip;
  Orb::Ptr<HashTestTable> table = HashTestTableIs("hashTest");
};

TEST_F(Faults, aFailedWriteIsSeenAndTheNextAttemptMendsIt) {
  const HashTestKey key{5u};
  chip.chip.failWritesIs(1);
  table->entryIs(key, HashTestResult{7u});
  EXPECT_EQ(status(5)->status(), EntryProgrammedStatus::hardwareError);
  EXPECT_TRUE(table->entry(key)) << "the software entry stays";
  table->handleEntry(key);
  EXPECT_EQ(status(5)->status(), EntryProgrammedStatus::programmed);
  EXPECT_TRUE(found(5, 7));

  chip.chip.failWritesIs(1, 2);
  table->entryIs(key, HashTestResult{8u});
  EXPECT_EQ(status(5)->status(), EntryProgrammedStatus::hardwareError);
  EXPECT_TRUE(found(5, 7)) << "the row was not taken over";
  table->syncEntries();
  EXPECT_TRUE(found(5, 8)) << "an audit tries again what failed";
  EXPECT_EQ(status(5)->status(), EntryProgrammedStatus::programmed);

  chip.chip.failWritesIs(1);
  table->entryDel(key);
  EXPECT_TRUE(found(5, 8));
  ASSERT_TRUE(status(5)) << "the status tells of the row that could not be cleared";
  EXPECT_EQ(status(5)->status(), EntryProgrammedStatus::hardwareError);
  table->entryIs(HashTestKey{6u}, HashTestResult{1u});
  EXPECT_FALSE(found(5, 8)) << "the next operation clears it";
  EXPECT_EQ(status(5), nullptr);
}

/// An entry that moved away may still be in the row that could not be written after it.
TEST_F(Faults, theRowThatAnEntryLeftMayStillHoldIt) {
  const U32 mover = 1 << 3;
  const U32 rival = 2 << 3;
  const U32 last = 64 + rival;  // both of its rows are taken; the mover has another one
  table->entryIs(HashTestKey{mover}, HashTestResult{1u});
  table->entryIs(HashTestKey{rival}, HashTestResult{2u});
  chip.chip.failWritesIs(2, 0, 1);  // the move works, writing over the row that it leaves does not
  table->entryIs(HashTestKey{last}, HashTestResult{3u});
  ASSERT_TRUE(found(mover, 1));
  ASSERT_EQ(status(last)->status(), EntryProgrammedStatus::hardwareError);
  table->entryDel(HashTestKey{mover});
  EXPECT_TRUE(found(mover, 1)) << "from the row that it left, which cannot be cleared either";
  ASSERT_TRUE(status(mover));
  EXPECT_EQ(status(mover)->status(), EntryProgrammedStatus::hardwareError) << "and that is told";
  table->syncEntries();
  EXPECT_FALSE(found(mover, 1));
  EXPECT_EQ(status(mover), nullptr);
  EXPECT_TRUE(found(last, 3));
}

TEST_F(Faults, randomSchedulesOfFailingWrites) {
  Random random;
  U32 failures = 0;
  for (int schedule = 0; schedule < 10000; ++schedule) {
    for (int step = 0; step < 12; ++step) {
      if (random() % 3 == 0) chip.chip.failWritesIs(random() % 8, random() % 4, random() % 3);
      const HashTestKey key{random() % keys};
      if (random() % 3 == 0) {
        table->entryDel(key);
      } else {
        table->entryIs(key, HashTestResult{random()});
        if (status(key.value())->status() == EntryProgrammedStatus::hardwareError) ++failures;
      }
      ASSERT_NO_FATAL_FAILURE(expectTruth());
    }
    chip.chip.failWritesIs(0);
    ASSERT_NO_FATAL_FAILURE(expectAgreement()) << "schedule " << schedule;
  }
  EXPECT_GT(failures, 3000u);
}

TEST(Restart, touchesNoRowThatIsRight) {
  Random random;
  Chip chip;
  std::map<U32, AclHashResult> desired;
  {
    const auto table = aclHashTableFactory("acl", 0, 0);
    chip.start(*table);
    for (U32 key = 0; key < 1900; ++key) {
      desired[key] = randomResult(random);
      table->entryIs(numbered(key), desired[key]);
    }
    ASSERT_GT(table->profileConvertor().physicalTable().engine().moves(), 0u);
  }
  const U64 writes = chip.chip.registerWrites();
  chip.types = Orb::make<VelaSwitchApi::SwTableTypes>(chip.profile, chip.chip);
  const auto table = aclHashTableFactory("acl", 0, 0);
  chip.start(*table, Chip::Start::restart);
  ASSERT_EQ(table->entries().size(), desired.size());
  EXPECT_EQ(table->unclaimedKeys().size(), desired.size());
  for (const auto& [key, result] : desired) {
    ASSERT_EQ(*table->entry(numbered(key)), result);
    table->entryIs(numbered(key), result);
    ASSERT_EQ(table->tableStatus()->entryStatus(numbered(key))->status(),
              EntryProgrammedStatus::programmed);
  }
  EXPECT_EQ(chip.chip.registerWrites(), writes);
  EXPECT_TRUE(table->unclaimedKeys().empty());
}

TEST(Restart, anotherSpellingOfTheKeyTakesItsRowOverWithoutAWrite) {
  Chip chip;
  const AclHashKey spelled{.type = 7, .srcIp = Ipnet::IpAddr(0xFFFFFFFF), .l4Port = 65535};
  const AclHashKey readBack{.type = 7, .qualifier = 15};
  {
    const auto table = aclHashTableFactory("acl", 0, 0);
    chip.start(*table);
    table->entryIs(spelled, {4, 5});
  }
  const U64 writes = chip.chip.rowWrites();
  chip.types = Orb::make<VelaSwitchApi::SwTableTypes>(chip.profile, chip.chip);
  const auto table = aclHashTableFactory("acl", 0, 0);
  chip.start(*table, Chip::Start::restart);
  EXPECT_EQ(table->unclaimedKeys(), std::vector{readBack});
  table->entryIs(spelled, {4, 5});
  EXPECT_EQ(chip.chip.rowWrites(), writes);
  EXPECT_EQ(table->entries().keys(), std::vector{spelled});
  EXPECT_EQ(table->tableStatus()->entryStatus(spelled)->status(),
            EntryProgrammedStatus::programmed);
  EXPECT_EQ(table->tableStatus()->entryStatus(readBack), nullptr);
  // Once announced, it is a desired entry like any other: a third spelling has to wait.
  const AclHashKey third{.type = 7, .srcIp = Ipnet::IpAddr(0xFFFFFFFF)};
  table->entryIs(third, {6, 6});
  EXPECT_EQ(table->tableStatus()->entryStatus(third)->status(),
            EntryProgrammedStatus::duplicateKey);
  table->entryDel(spelled);
  EXPECT_EQ(chip.path.acl(0, third), (AclHashResult{6, 6}));
}

/// An agent that died within a move leaves an entry in two rows: one is taken up, one cleared.
TEST(Restart, anEntryInTwoRowsIsKeptOnce) {
  Chip chip;
  {
    const auto table = HashTestTableIs("hashTest");
    chip.start(*table);
    table->entryIs(HashTestKey{0u}, HashTestResult{1u});
    table->entryIs(HashTestKey{64u}, HashTestResult{2u});
  }
  auto* memory = chip.chip.find("HashTest", 0, 0);
  const U32 rowInWay1 = 8;
  std::copy_n(memory->row(0), 2, memory->row(rowInWay1));
  ASSERT_EQ(memory->row(rowInWay1)[0], 0u);

  chip.types = Orb::make<VelaSwitchApi::SwTableTypes>(chip.profile, chip.chip);
  const auto table = HashTestTableIs("hashTest");
  chip.start(*table, Chip::Start::restart);
  EXPECT_EQ(table->entries().keys(), std::vector{HashTestKey{0u}});
  EXPECT_EQ(memory->row(rowInWay1)[0], 0u) << "nothing is written before what is desired is known";
  table->initHwEntries(false);
  EXPECT_EQ(chip.path.hashTest(0)->result(), 1u);
  EXPECT_NE(memory->row(rowInWay1)[0], 0u) << "the copy is gone";
  table->syncEntries();
  EXPECT_TRUE(table->profileConvertor().auditFindings().empty());
}

/// A row whose key does not belong there is not taken for an entry, and does not stay.
TEST(Restart, aRowInTheWrongPlaceIsCleared) {
  Chip chip;
  {
    const auto table = aclHashTableFactory("acl", 0, 0);
    chip.start(*table);
    table->entryIs(numbered(1), {1, 1});
    table->entryIs(numbered(2), {2, 2});
  }
  auto* memory = chip.chip.find("AclHash", 0, 0);
  U32 from = 0;
  while ((memory->row(from)[2] >> 28 & 1) == 0) ++from;
  const U32 to = (from + 1) % 2048;
  std::copy_n(memory->row(from), 4, memory->row(to));
  std::fill_n(memory->row(from), 4, 0);

  chip.types = Orb::make<VelaSwitchApi::SwTableTypes>(chip.profile, chip.chip);
  const auto table = aclHashTableFactory("acl", 0, 0);
  chip.start(*table, Chip::Start::restart);
  EXPECT_EQ(table->entries().size(), 1u);
  table->initHwEntries(false);
  EXPECT_THAT(std::vector<U32>(memory->row(to), memory->row(to) + 4), testing::Each(0u));
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
    return VelaDevice::DataPath(chip, *profile).hashTest(5)->result();
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

TEST(Audit, tellsWhatDiffersAndChangesNothing) {
  using Kind = VelaSwitchApi::AuditFinding::Kind;
  Chip chip;
  const auto table = HashTestTableIs("hashTest");
  chip.start(*table);
  for (const U32 key : {1u, 2u, 3u}) table->entryIs(HashTestKey{key}, HashTestResult{key});
  const auto handle = table->profileConvertor().hwTable(0)->busHandle();
  auto* memory = chip.chip.find("HashTest", 0, 0);
  chip.chip.flipBit(handle, 1, 1, 30);  // key 1's result
  memory->row(2)[0] = ~2u;              // key 2's row is emptied
  memory->row(2)[1] = 0;
  memory->row(12)[0] = 0x20;  // a row nobody asked for
  const U64 writes = chip.chip.rowWrites();
  table->syncEntries();
  std::map<U32, Kind> found;
  for (const auto& finding : table->profileConvertor().auditFindings()) {
    found[finding.index] = finding.kind;
  }
  EXPECT_EQ(found, (std::map<U32, Kind>{
                       {1, Kind::inconsistent}, {2, Kind::missing}, {12, Kind::unexpected}}));
  EXPECT_EQ(chip.chip.rowWrites(), writes);
  EXPECT_TRUE(table->hwInconsistentEntry(HashTestKey{1u}));
  EXPECT_FALSE(table->hwInconsistentEntry(HashTestKey{3u}));
  table->handleEntry(HashTestKey{1u});
  EXPECT_FALSE(table->hwInconsistentEntry(HashTestKey{1u}));
  EXPECT_EQ(chip.chip.rowWrites(), writes + 1);
  chip.chip.failReadsIs(1);
  table->syncEntries();
  EXPECT_EQ(table->profileConvertor().auditFindings().size(), 2u) << "one failure is passed over";
  chip.chip.failReadsIs(3);
  table->syncEntries();
  EXPECT_EQ(table->profileConvertor().auditFindings().front().kind, Kind::unreadable);
}

/// A row that is as far from its entry as from an empty one is still its entry's.
TEST(Audit, aRowHalfwayToEmptyIsFoundAgain) {
  Chip chip;
  const auto table = HashTestTableIs("hashTest");
  chip.start(*table);
  const VelaSwitchApi::HwIndex row = 1;
  auto& convertor = table->profileConvertor();
  std::array<U32, VelaSwitchApi::maxRowWords> empty{};
  std::array<U32, VelaSwitchApi::maxRowWords> whole{};
  convertor.expectedImage(0, row, empty.data());
  table->entryIs(HashTestKey{9u}, HashTestResult{1u});
  convertor.expectedImage(0, row, whole.data());
  std::vector<std::pair<U32, U32>> bits;
  for (U32 word = 0; word < 2; ++word) {
    for (U32 bit = 0; bit < 32; ++bit) {
      if (((empty[word] ^ whole[word]) >> bit & 1) != 0) bits.emplace_back(word, bit);
    }
  }
  ASSERT_GT(bits.size(), 0u);
  ASSERT_EQ(bits.size() % 2, 0u);
  for (std::size_t i = 0; i < bits.size() / 2; ++i) {
    chip.chip.flipBit(convertor.hwTable(0)->busHandle(), row, bits[i].first, bits[i].second);
  }
  convertor.takePlacement();
  table->syncEntries();
  const auto& findings = convertor.auditFindings();
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_EQ(findings[0].kind, VelaSwitchApi::AuditFinding::Kind::inconsistent);
  EXPECT_EQ(findings[0].index, row);
  convertor.repair(findings[0]);
  EXPECT_EQ(chip.path.hashTest(9)->result(), 1u);
}

/// What no table can have written is corrupt, also where no entry is.
TEST(Audit, rowsOfNoEntryHaveParityToo) {
  Chip chip;
  const auto table = aclHashTableFactory("acl", 0, 0);
  chip.start(*table);
  auto* memory = chip.chip.find("AclHash", 0, 0);
  memory->row(77)[0] = 1;
  memory->row(78)[0] = 3;
  table->syncEntries();
  const auto& findings = table->profileConvertor().auditFindings();
  ASSERT_EQ(findings.size(), 2u);
  for (const auto& finding : findings) {
    EXPECT_EQ(finding.kind, VelaSwitchApi::AuditFinding::Kind::unexpected);
    EXPECT_EQ(finding.corrupt, finding.index == 77);
  }
}

TEST(PlainFaults, aPlainTablesFailedWriteIsMarkedAndMended) {
  Chip chip;
  const auto table = VlanMembershipTableIs("vlans");
  chip.start(*table);
  const VlanMembershipKey key{5u};
  VlanMembershipResult result;
  result.permitMask = 0xff;
  chip.chip.failWritesIs(1);
  table->entryIs(key, result);
  EXPECT_TRUE(table->hwInconsistentEntry(key));
  table->handleEntry(key);
  EXPECT_FALSE(table->hwInconsistentEntry(key));
  EXPECT_EQ(chip.path.vlan(Bridging::VlanId(5))->permitMask(), 0xffu);
}

}  // namespace
