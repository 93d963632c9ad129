#include "Support.h"
#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "VelaSwitchTable/VelaTableAclIndirectCounterHash.h"
#include "VelaSwitchTable/VelaTableCopp.h"
#include "VelaSwitchTable/VelaTableHashTest.h"
#include "VelaSwitchTable/VelaTableL2Control.h"
#include "VelaSwitchTable/VelaTableL3FloodArp.h"
#include "VelaSwitchTable/VelaTableL3FloodBitmap.h"
#include "VelaSwitchTable/VelaTableL3Lag.h"
#include "VelaSwitchTable/VelaTableLagLookUp.h"
#include "VelaSwitchTable/VelaTableLagMembership.h"
#include "VelaSwitchTable/VelaTableLpm11.h"
#include "VelaSwitchTable/VelaTableLpmTables.h"
#include "VelaSwitchTable/VelaTableNatMatch.h"
#include "VelaSwitchTable/VelaTableNatRewrite.h"
#include "VelaSwitchTable/VelaTableVlanGroup.h"
#include "device/AclLookup.h"

// What callers of single operations can rely on: what is traced and in which words, what stops, and
// what is passed over.

namespace {

using namespace VelaSwitchTable;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using VelaSwitch::ChipPortId;
using VelaSwitch::L3FloodId;
using VelaSwitch::LpmKey;
using VelaSwitch::NatMatchKey;
using VelaTest::Chip;
using VelaTest::EntryProgrammedStatus;
using VelaTest::errorText;
using VelaTest::fatalText;
using VelaTest::Started;
using VelaTest::traced;

/// Two tables on one set of rows.
struct TwoNatTables : Chip {
  TwoNatTables() { startTogether({first.get(), second.get()}); }
  Orb::Ptr<NatMatchTable> first = NatMatchTableIs("first", 0);
  Orb::Ptr<NatMatchTable> second = NatMatchTableIs("second", 1);
};

TEST(Traces, sayWhatIsHandled) {
  Started<L2ControlTable> ports;
  EXPECT_THAT(traced(L2ControlFamily::trace, 8,
                     [&] {
                       ports.table->entryIs({ChipPortId(3)}, {true, false, false});
                     }),
              ElementsAre(StartsWith("VelaSwitchTable::L2ControlTable::handleEntry "),
                          StartsWith("Programming Entry ")));

  Started<Lpm32Table> level;
  const LpmKey key{U8{1}, Orb::fromText<Ipnet::IpPrefix>("10.1.2.4/30")};
  EXPECT_THAT(traced(LpmBaseFamily::trace, 1,
                     [&] {
                       level.table->entryIs(key, {});
                       level.table->entryDel(key);
                     }),
              ElementsAre(AllOf(StartsWith("Programming Entry "), HasSubstr("cells=")),
                          StartsWith("Removing Entry ")));

  Started<LagMembershipTable> lags;
  const LagMembershipKey port{ChipPortId(3)};
  const LagMembershipResult members(7u);
  EXPECT_THAT(traced(LagMembershipFamily::trace, 9, [&] { lags.table->entryIs(port, members); }),
              AllOf(Contains(HasSubstr("VelaSwitchTable::LagMembershipTable::handleEntry(const "
                                       "VelaSwitchTable::LagMembershipKey&)")),
                    Not(Contains(StartsWith("Set hwTableEntry key: ")))))
      << "no port is among the members: the rows stay as they are";
  LagMembershipResult some;
  some.portIs(ChipPortId(2), true);
  const auto lines =
      traced(LagMembershipFamily::trace, 9, [&] { lags.table->entryIs(port, some); });
  EXPECT_EQ(
      std::count_if(lines.begin(), lines.end(),
                    [](const auto& line) { return line.starts_with("Set hwTableEntry key: "); }),
      2)
      << "one for each row that is written";

  const auto item = NatMatchTableCuckooEntryIs(NatMatchKey{});
  item->resultIs({.natRewriteId = U16{12}, .useAcl = true});
  item->validIs(true);
  EXPECT_THAT(item->toStrep(), AllOf(StartsWith("NatMatchTableCuckooEntry("),
                                     HasSubstr(" natRewriteId=12 useAcl=true ")));
}

/// What a row that was never written is called, in audits as at restarts.
TEST(Traces, sayWhichRowsAreNotThere) {
  const auto audit = [](auto&& started, HwIndex index) {
    auto& convertor = *started.table->profileConvertorPtr();
    const auto& hwTable = *convertor.hwTable(0);
    const auto& identity = hwTable.descriptor().identity;
    started.chip.find(identity.family, 0, 0)->image->present()[index] = 0;
    using Family = typename std::remove_reference_t<decltype(*started.table)>::Family;
    auto lines = traced(Family::trace, 5, [&] { convertor.syncEntries(0); });
    EXPECT_THAT(convertor.auditFindings(), IsEmpty()) << "nothing is desired there";
    return lines;
  };
  EXPECT_THAT(audit(Started<LagLookUpTable>(), 4), ElementsAre("pipe 0 index 4 does not exist."));
  EXPECT_THAT(audit(Started<L2ControlTable>(), 4), ElementsAre(" index 4 does not exist."));
  EXPECT_THAT(audit(Started<CoppTable>(), 4),
              ElementsAre(AllOf(StartsWith("Missing hw table entry for key: "),
                                HasSubstr(", table Copp-0"))));
  Started<L2ControlTable> desired;
  desired.table->entryIs({ChipPortId(4)}, {true, false, false});
  desired.chip.find("L2Control", 0, 0)->image->present()[4] = 0;
  desired.table->syncEntries();
  const auto& findings = desired.table->profileConvertorPtr()->auditFindings();
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_EQ(findings[0].kind, VelaSwitchApi::AuditFinding::Kind::missing);
}

TEST(Fatal, toolsWithoutTheirTables) {
  alignas(U32) U8 image[32]{};
  EXPECT_THAT(fatalText([&] {
                AclIndirectCounterHashHelperIs(0)->setStaticBuffer({0, 0}, image);
              }),
              StartsWith("swTable()"));
  EXPECT_THAT(fatalText([&] { AclIndirectCounterHashHelperIs(0)->decodeHwEntry(0); }),
              StartsWith("swTable()"));
  const auto item = AclHashTableCuckooEntryIs({});
  item->validIs(true);
  EXPECT_THAT(fatalText([&] {
                AclHashHelperIs(0)->setHwBuffer(*item, {0, 0}, image);
              }),
              StartsWith("swTable()"));
  using VelaSwitchApi::TableState;
  EXPECT_THAT(fatalText([&] { AclHashConvertorIs()->doCreateHwTables(TableState::active); }),
              StartsWith("swTables() == 1"));
  EXPECT_THAT(fatalText([&] { NatMatchConvertorIs()->doCreateHwTables(TableState::active); }),
              StartsWith("swTblBase"));
  EXPECT_THAT(fatalText([&] { CoppConvertorIs()->syncEntries(0); }), StartsWith("table"));
  Started<CoppTable> copp;
  EXPECT_THAT(fatalText([&] { copp.table->profileConvertorPtr()->syncEntries(3); }),
              StartsWith("table"));
}

/// The status of a table is made when it is needed, however often it was thrown away.
TEST(Status, comesBackWhenItWasDeleted) {
  Started<HashTestTable> rig;
  rig.table->tableStatusDel();
  rig.table->entryIs(HashTestKey{1u}, HashTestResult{1u});
  ASSERT_TRUE(rig.table->tableStatus());
  EXPECT_EQ(rig.status({1u}), EntryProgrammedStatus::programmed);
  rig.table->tableStatusDel();
  hashTest(rig.path, 1);
  EXPECT_TRUE(rig.table->profileConvertor().pollHitBits(Orb::Seconds(4)));
  EXPECT_EQ(rig.table->tableStatus()->entryStatus(HashTestKey{1u})->lastHit().value(), 4);
  rig.table->tableStatusDel();
  rig.table->entryDel(HashTestKey{1u});
  EXPECT_EQ(hashTest(rig.path, 1), std::nullopt);
}

TEST(Status, tellsOfARowThatCouldNotBeInitialized) {
  Started<HashTestTable> rig;
  rig.table->entryIs(HashTestKey{0u}, HashTestResult{1u});
  rig.chip.failWritesIs(1);
  rig.table->initHwEntries(true);
  EXPECT_EQ(rig.status({0u}), EntryProgrammedStatus::hardwareError);
  rig.table->handleEntry(HashTestKey{0u});
  EXPECT_EQ(rig.status({0u}), EntryProgrammedStatus::programmed);
}

/// Each table counts its own.
TEST(Counters, areTheTablesOwn) {
  TwoNatTables nat;
  const auto key = [](U32 number) { return NatMatchKey{.srcIp = Ipnet::IpAddr(number + 1)}; };
  for (U32 i = 0; i < 5; ++i) nat.first->entryIs(key(i), {.valid = true});
  for (U32 i = 10; i < 17; ++i) nat.second->entryIs(key(i), {.valid = true});
  for (U32 i = 10; i < 13; ++i) nat.second->entryDel(key(i));
  const auto& counter = nat.first->profileConvertor().entryCounters().front();
  const auto& other = nat.second->profileConvertor().entryCounters().front();
  EXPECT_EQ(counter.used(), 5u);
  EXPECT_EQ(counter.peak(), 5u);
  EXPECT_EQ(other.used(), 4u);
  EXPECT_EQ(other.peak(), 7u);
}

/// Keys that the profile has no row for are passed over, and rows that no key is for decode to
/// nothing; numbers that no key can be are refused by the key's type.
TEST(NoRow, isTracedAndPassedOver) {
  const auto passedOver = [](auto& started, const auto& key, const auto& result) {
    using Family = typename std::remove_reference_t<decltype(*started.table)>::Family;
    const U64 writes = started.chip.rowWrites();
    const auto lines = traced(Family::trace, 3, [&] { started.table->entryIs(key, result); });
    EXPECT_EQ(started.chip.rowWrites(), writes);
    EXPECT_THAT(lines, Contains(testing::EndsWith(" has no row in this profile")));
  };
  Started<L3FloodArpTable> arp;
  passedOver(arp, L3FloodId(128), L3FloodArpResult{.vlanId = Bridging::VlanIdOrNone(1)});
  EXPECT_EQ(arp.convertor().decodeHwEntry(128), nullptr);
  EXPECT_THAT(errorText([&] { arp.convertor().decodeHwEntry(200); }), HasSubstr("L3FloodId"));
  Started<L3FloodBitmapTable> bitmap;
  EXPECT_EQ(bitmap.convertor().decodeHwEntry(128), nullptr);
  EXPECT_THAT(errorText([&] { bitmap.convertor().decodeHwEntry(129); }), HasSubstr("L3FloodId"));
  Started<L3LagTable> lag;
  EXPECT_THAT(errorText([&] { lag.convertor().decodeHwEntry(64); }), HasSubstr("L3LagIndex"));
  Started<NatRewriteTable> rewrite("vela-20-4.0");
  const NatRewriteResult any{.newPort = U16{1}};
  passedOver(rewrite, VelaSwitch::NatRewriteKey{ChipPortId(20), U16{0}}, any);
  passedOver(rewrite, VelaSwitch::NatRewriteKey{ChipPortId(2), U16{4096}}, any);
  EXPECT_THAT(fatalText([&] {
                rewrite.table->entryIs(VelaSwitch::NatRewriteKey{ChipPortId(7), U16{0}}, any);
              }),
              StartsWith("key.baseChipPortId() % 2 == 0"));
  EXPECT_EQ(rewrite.convertor().entryCounters()[3].used(), 0u) << "whatever was announced";
  EXPECT_EQ(rewrite.convertor().decodeHwEntry(12 * 4096), nullptr);
  EXPECT_THAT(errorText([&] { rewrite.convertor().decodeHwEntry(25 * 4096); }),
              HasSubstr("ChipPortId"));
  Started<Lpm11Table> first;
  passedOver(first, LpmKey{U8{8}, Orb::fromText<Ipnet::IpPrefix>("10.0.0.0/11")}, Lpm11Result{});
  EXPECT_EQ(first.convertor().decodeHwEntry(8 * 2048), nullptr);
  Started<VlanGroupTable> groups;
  passedOver(groups, VlanGroupKey{U8{16}},
             VlanGroupResult{std::array<Bridging::VlanIdOrNone, 8>{Bridging::VlanIdOrNone(5)}});
  Started<L2ControlTable> ports("vela-20-4.0");
  passedOver(ports, L2ControlKey{ChipPortId(20)}, L2ControlResult{true});
  Started<HashTestTable> hashed;
  EXPECT_FALSE(hashed.table->helper()->decodeHwEntry(16)->valid());
}

TEST(AclHash, helpersGoByTheirNumber) {
  EXPECT_EQ(aclHashHelperFactory(TableIndex{58})->doGetPhysTableProperties()->tableId(), 58u);
  // A switch of two pipelines has the tables 46 and 58.
  Chip chip;
  const auto table = aclHashTableFactory("acl", 0, 0);
  chip.start(*table);
  const auto item = AclHashTableCuckooEntryIs({});
  item->validIs(true);
  for (const U8 number : {U8{22}, U8{45}, U8{57}, U8{70}, U8{94}}) {
    alignas(U32) U8 image[32]{};
    const auto helper = aclHashHelperFactory(TableIndex{number});
    helper->tablesAre(table.get(), &table->profileConvertor().physicalTable());
    EXPECT_THAT(traced(AclHashFamily::trace, 0,
                       [&] {
                         helper->setHwBuffer(*item, {0, 0}, image);
                       }),
                ElementsAre("invalid ACL hashTableId " + std::to_string(number)));
    EXPECT_THAT(image, testing::Each(0));
  }
}

TEST(Copp, anotherScaleFactorVersionWritesWhatItChanges) {
  struct Observer final : Orb::AttributeObserver {
    U32 told = 0;
    void handleAttribute() override { ++told; }
  } observer;
  Started<CoppTable> rig;
  rig.table->scaleFactorVersionAttribute().observerIs(&observer);
  rig.table->entryIs({U8{6}}, CoppEntry{700u, 0.0f, 150u, 2u});
  U64 writes = rig.chip.rowWrites();
  rig.table->scaleFactorVersionIs({5u, 1u});
  EXPECT_EQ(observer.told, 0u) << "that is what it was";
  EXPECT_EQ(rig.chip.rowWrites(), writes);
  rig.table->scaleFactorVersionIs({6u, 0u});
  EXPECT_EQ(observer.told, 1u);
  EXPECT_EQ(rig.chip.registerValue("cpu_tx_pipeline[0]/rate_limiter/ptp_limit"), 700u);
  EXPECT_EQ(rig.chip.registerValue("ingress/rate_limiter[1]/ptp_limit"), 700u * 66 / 100);
  EXPECT_EQ(rig.chip.registerValue("ingress/rate_limiter[0]/igmp_limit"), 0u)
      << "without an entry, and without a scale, 0 is 0";
  rig.table->syncEntries();
  EXPECT_THAT(rig.table->profileConvertorPtr()->auditFindings(), IsEmpty());
  writes = rig.chip.rowWrites();
  rig.table->scaleFactorVersionIs({7u, 0u});
  EXPECT_EQ(rig.chip.rowWrites(), writes) << "still without a scale";
  EXPECT_EQ(observer.told, 2u);
  rig.table->scaleFactorVersionAttribute().observerDel(&observer);
}

/// The first level's key is checked when it is handled, before anything is said to be programmed.
TEST(Lpm11, theLengthIsCheckedFirst) {
  Started<Lpm11Table> rig;
  const LpmKey key{U8{0}, Orb::fromText<Ipnet::IpPrefix>("10.0.0.0/12")};
  std::string fatal;
  EXPECT_THAT(traced(Lpm11Family::trace, 8,
                     [&] { fatal = fatalText([&] { rig.table->handleEntry(key); }); }),
              ElementsAre(StartsWith("VelaSwitchTable::Lpm11Table::handleEntry ")));
  EXPECT_THAT(fatal, StartsWith("key.prefix().len() == 11"));
}

TEST(Lpm11, aUsedBufferKeepsNothingOfTheCell) {
  for (const char* profile : {"vela-48-5.1", "vela-48-4.1"}) {
    Started<Lpm11Table> rig(profile);
    const auto null = rig.convertor().nullDirectEntry(5);
    alignas(U32) U8 fresh[32]{};
    alignas(U32) U8 used[32]{};
    used[0] = 0xff;
    used[1] = 0x7f;
    rig.convertor().setHwBuffer(*null, fresh);
    rig.convertor().setHwBuffer(*null, used);
    EXPECT_EQ(used[0], fresh[0]) << profile;
    EXPECT_EQ(used[1], fresh[1]) << profile;
  }
}

/// A mask field can mean more than the level serves; the row stays what it is.
TEST(Lpm11, masksBeyondTheLevelComeBack) {
  Started<Lpm11Table> rig;
  const LpmKey key{U8{0}, Orb::fromText<Ipnet::IpPrefix>("10.0.0.0/11")};
  Lpm11Result result;
  result.cellResult = EntryCellResult{VelaSwitch::NexthopIndexes{VelaSwitch::L3LagIndex(3), U8{4}},
                                      MaskLength(13), U8{8}};
  rig.table->entryIs(key, result);
  const U64 writes = rig.chip.rowWrites();
  const auto again = Lpm11TableIs("again");
  EXPECT_EQ(fatalText([&] { rig.start(*again, Chip::Start::restart); }), "");
  ASSERT_TRUE(again->entry(key));
  EXPECT_EQ(again->entry(key)->cellResult().maskLength().value(), 13);
  EXPECT_EQ(again->entry(key)->cellResult().realPrefixLen(), 11);
  EXPECT_FALSE(again->hwInconsistentEntry(key));
  EXPECT_EQ(rig.chip.rowWrites(), writes);
}

/// One that is hardware's same key as one that waits is behind it, and goes with it.
TEST(Waiting, behindOneThatWaits) {
  TwoNatTables nat;
  const auto& engine = nat.first->profileConvertor().physicalTable().engine();
  const auto key = [](U32 number) {
    return NatMatchKey{.natType = U8{1}, .srcIp = Ipnet::IpAddr(number * 2654435761u)};
  };
  const NatMatchResult result{.valid = true};
  U32 count = 0;
  while (engine.waiting().empty()) nat.first->entryIs(key(count++), result);
  NatMatchKey twin = key(count - 1);
  twin.dport = U16{9};
  const auto status = [&] { return nat.second->tableStatus()->entryStatus(twin)->status(); };
  nat.second->entryIs(twin, result);
  EXPECT_EQ(status(), EntryProgrammedStatus::duplicateKey);
  nat.first->entryDel(key(count - 1));
  EXPECT_EQ(status(), EntryProgrammedStatus::tableFull);
  nat.first->entryDelAll();
  EXPECT_EQ(status(), EntryProgrammedStatus::programmed);
  nat.second->entryDelAll();
  EXPECT_EQ(engine.size() + engine.waiting().size(), 0u);
}

/// The test table, of which few keys are announced, so that the same ones are met again soon.
struct WaitingTest : testing::Test, Started<HashTestTable> {
  static constexpr U32 keys = 64;

  /// Statuses tell what the data path finds.
  void expectTruth() {
    for (U32 key = 0; key < keys; ++key) {
      const auto found = hashTest(path, key);
      const auto* entry = table->entry(HashTestKey{key});
      const auto is = status({key});
      ASSERT_TRUE(is != EntryProgrammedStatus::notProgrammed || (!entry && !found)) << key;
      if (is == EntryProgrammedStatus::programmed) {
        ASSERT_TRUE(found && entry && found->result() == entry->result()) << key;
      }
    }
  }
  /// Nothing has failed that was not mended since: what is not found has no room.
  void expectSettled() {
    ASSERT_NO_FATAL_FAILURE(expectTruth());
    U32 programmed = 0;
    for (U32 key = 0; key < keys; ++key) {
      const auto is = status({key});
      ASSERT_EQ(is == EntryProgrammedStatus::notProgrammed, !table->entry(HashTestKey{key}));
      ASSERT_EQ(hashTest(path, key).has_value(), is == EntryProgrammedStatus::programmed);
      programmed += is == EntryProgrammedStatus::programmed ? 1 : 0;
      if (is == EntryProgrammedStatus::tableFull) {
        ASSERT_FALSE(physical.competitors(*table->cachedItem(HashTestKey{key})).empty()) << key;
      }
    }
    ASSERT_EQ(physical.engine().size(), programmed);
  }
  /// Announces some entry, or withdraws one that there is.
  HashTestKey announceOrWithdraw() {
    const auto present = table->entries().keys();
    if (present.empty() || random.below(3) != 0) {
      const HashTestKey key{random.below(keys)};
      table->entryIs(key, HashTestResult{random()});
      return key;
    }
    const HashTestKey key = present[random.below(static_cast<U32>(present.size()))];
    table->entryDel(key);
    return key;
  }

  VelaTest::Random random;
  VelaSwitchApi::PhysicalHashTable& physical = table->profileConvertor().physicalTable();
};

/// Items that are dropped while they wait are found again, so that no key waits twice.
TEST_F(WaitingTest, isNotForgottenWithTheItems) {
  U32 count = 0;
  while (physical.engine().waiting().size() < 5) {
    table->entryIs(HashTestKey{count++}, HashTestResult{1u});
  }
  table->hashItemDelAll();
  for (U32 key = 0; key < count; ++key) table->handleEntry(HashTestKey{key});
  EXPECT_EQ(physical.engine().waiting().size(), 5u);
  table->hashItemDelAll();
  for (U32 key = 0; key < count; ++key) table->entryDel(HashTestKey{key});
  EXPECT_EQ(physical.engine().waiting().size(), 0u);
  EXPECT_EQ(physical.engine().size(), 0u);
}

/// Whoever hears of a status may announce and withdraw at once.
TEST_F(WaitingTest, throughObserversThatActOnIt) {
  struct Meddler final : Orb::KeyObserver<HashTestKey> {
    explicit Meddler(WaitingTest& test) : rig(test) {}
    void handleKey(const HashTestKey& key) override {
      if (depth == 2 || rig.random.below(3) != 0) return;
      ++depth;
      if (rig.random.flip()) {
        rig.announceOrWithdraw();
      } else if (rig.random.flip()) {
        rig.table->entryDel(key);
      } else {
        rig.table->entryIs(key, HashTestResult{rig.random()});
      }
      --depth;
      ++meddled;
    }
    WaitingTest& rig;
    int depth = 0;
    U32 meddled = 0;
  } meddler(*this);
  table->tableStatusIs()->entryStatuses().observerIs(&meddler);
  for (int step = 0; step < 20000; ++step) {
    if (random.below(8) == 0) chip.failWritesIs(random.below(3), random.below(3));
    announceOrWithdraw();
    hashTest(path, random.below(keys));
    if (step % 30 == 0) table->profileConvertor().pollHitBits(Orb::Seconds(step + 1));
    if (step % 700 == 0) table->initHwEntries(true);
    if (step % 10 != 0) continue;
    meddler.depth = 2;
    chip.failWritesIs(0);
    physical.settle();
    meddler.depth = 0;
    ASSERT_NO_FATAL_FAILURE(expectSettled()) << "at " << step;
  }
  EXPECT_GT(meddler.meddled, 1000u);
  table->tableStatusIs()->entryStatuses().observerDel(&meddler);
}

/// Writes fail at random, at a random register of the row: who was to have a row that became free
/// gets it later, an entry that could not be cleared keeps its status, and nobody is lost.
TEST_F(WaitingTest, throughFailingWrites) {
  U32 failures = 0;
  for (int round = 0; round < 10000; ++round) {
    for (int step = 0; step < 10; ++step) {
      if (random.below(3) == 0) {
        chip.failWritesIs(random.below(4), random.below(4), random.below(2));
      }
      const HashTestKey key = announceOrWithdraw();
      failures += status(key) == EntryProgrammedStatus::hardwareError ? 1 : 0;
      ASSERT_NO_FATAL_FAILURE(expectTruth());
    }
    chip.failWritesIs(0);
    table->syncEntries();
    ASSERT_THAT(table->profileConvertorPtr()->auditFindings(), IsEmpty());
    ASSERT_NO_FATAL_FAILURE(expectSettled()) << "in round " << round;
    for (U32 key = 0; key < keys; ++key) {
      ASSERT_NE(status({key}), EntryProgrammedStatus::hardwareError) << key;
    }
  }
  EXPECT_GT(failures, 3000u);
}

}  // namespace
