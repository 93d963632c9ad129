#include <functional>

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
#include "VelaSwitchTable/VelaTableVlanMembership.h"

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
using VelaSwitchApi::EntryProgrammedStatus;
using VelaTest::Chip;
using VelaTest::errorText;
using VelaTest::fatalText;

/// The messages of a handle while `action` runs.
std::vector<std::string> traced(Trace::Handle& handle, U8 level,
                                const std::function<void()>& action) {
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

template <class Table>
struct Started : Chip {
  explicit Started(const char* profileName = "vela-48-5.1") : Chip(profileName) { start(*table); }
  auto& convertor() {
    return static_cast<typename Table::Family::Convertor&>(*table->profileConvertorPtr());
  }
  Orb::Ptr<Table> table = Orb::make<Table>("table");
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
    const auto lines = traced(Family::trace, 5, [&] { convertor.syncEntries(0); });
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
  EXPECT_EQ(rig.table->tableStatus()->entryStatus(HashTestKey{1u})->status(),
            EntryProgrammedStatus::programmed);
  rig.table->tableStatusDel();
  rig.path.hashTest(1);
  EXPECT_TRUE(rig.table->profileConvertor().pollHitBits(Orb::Seconds(4)));
  EXPECT_EQ(rig.table->tableStatus()->entryStatus(HashTestKey{1u})->lastHit().value(), 4);
  rig.table->tableStatusDel();
  rig.table->entryDel(HashTestKey{1u});
  EXPECT_EQ(rig.path.hashTest(1), std::nullopt);
}

TEST(Status, tellsOfARowThatCouldNotBeInitialized) {
  Started<HashTestTable> rig;
  rig.table->entryIs(HashTestKey{0u}, HashTestResult{1u});
  rig.chip.failWritesIs(1);
  rig.table->initHwEntries(true);
  EXPECT_EQ(rig.table->tableStatus()->entryStatus(HashTestKey{0u})->status(),
            EntryProgrammedStatus::hardwareError);
  rig.table->handleEntry(HashTestKey{0u});
  EXPECT_EQ(rig.table->tableStatus()->entryStatus(HashTestKey{0u})->status(),
            EntryProgrammedStatus::programmed);
}

/// Two tables on one set of rows: each counts its own.
TEST(Counters, areTheTablesOwn) {
  Chip chip;
  const auto first = NatMatchTableIs("first", 0);
  const auto second = NatMatchTableIs("second", 1);
  for (const auto& table : {first, second}) chip.create(*table);
  for (const auto& table : {first, second}) table->initHwEntries(true);
  for (const auto& table : {first, second}) table->initializedIs(true);
  const auto key = [](U32 number) { return NatMatchKey{.srcIp = Ipnet::IpAddr(number + 1)}; };
  for (U32 i = 0; i < 5; ++i) first->entryIs(key(i), {.valid = true});
  for (U32 i = 10; i < 17; ++i) second->entryIs(key(i), {.valid = true});
  for (U32 i = 10; i < 13; ++i) second->entryDel(key(i));
  const auto& counter = first->profileConvertor().entryCounters().front();
  const auto& other = second->profileConvertor().entryCounters().front();
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
  for (const U8 number : {U8{45}, U8{57}, U8{70}, U8{94}}) {
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
  rig.types = Orb::make<VelaSwitchApi::SwTableTypes>(rig.profile, rig.chip);
  const auto again = Lpm11TableIs("again");
  EXPECT_EQ(fatalText([&] { rig.start(*again, Chip::Start::restart); }), "");
  ASSERT_TRUE(again->entry(key));
  EXPECT_EQ(again->entry(key)->cellResult().maskLength().value(), 13);
  EXPECT_EQ(again->entry(key)->cellResult().realPrefixLen(), 11);
  EXPECT_FALSE(again->hwInconsistentEntry(key));
  EXPECT_EQ(rig.chip.rowWrites(), writes);
}

/// A flow that was refused gets its row when another one goes, in whichever table that was.
TEST(Waiting, acrossTablesThatShareRows) {
  Chip chip;
  const auto first = NatMatchTableIs("first", 0);
  const auto second = NatMatchTableIs("second", 1);
  for (const auto& table : {first, second}) chip.create(*table);
  for (const auto& table : {first, second}) table->initHwEntries(true);
  for (const auto& table : {first, second}) table->initializedIs(true);
  const auto key = [](U32 number) {
    return NatMatchKey{.natType = U8{1},
                       .srcIp = Ipnet::IpAddr(number * 2654435761u),
                       .sport = static_cast<U16>(number % 60000 + 1)};
  };
  const auto status = [](const auto& table, const NatMatchKey& at) {
    return table->tableStatus()->entryStatus(at)->status();
  };
  const NatMatchResult result{.valid = true, .natRewriteId = U16{7}};
  U32 count = 0;
  for (; first->profileConvertor().physicalTable().engine().waiting().size() < 200; ++count) {
    (count % 2 == 0 ? first : second)->entryIs(key(count), result);
  }
  auto& physical = first->profileConvertor().physicalTable();
  const U32 waited = physical.waiting(first.get()) + physical.waiting(second.get());
  EXPECT_EQ(waited, 200u);
  // One that is hardware's same key as one that waits is behind it.
  NatMatchKey twin;
  U32 waiting = 0;
  while (status(waiting % 2 == 0 ? first : second, key(waiting)) ==
         EntryProgrammedStatus::programmed) {
    ++waiting;
  }
  twin = key(waiting);
  twin.dport = U16{9};
  first->entryIs(twin, result);
  EXPECT_EQ(status(first, twin), EntryProgrammedStatus::duplicateKey);
  const auto programmed = [&] { return physical.engine().size(); };
  U32 replaced = 0;
  for (U32 number = 0; number < count && physical.engine().waiting().size() > 100; ++number) {
    const auto& table = number % 2 == 0 ? first : second;
    if (number == waiting || status(table, key(number)) != EntryProgrammedStatus::programmed) {
      continue;
    }
    const U32 before = programmed();
    table->entryDel(key(number));
    replaced += programmed() == before ? 1 : 0;
    EXPECT_EQ(chip.path.natMatch(0, key(number)), std::nullopt);
  }
  EXPECT_EQ(replaced, 100u);
  for (U32 number = 0; number < count; ++number) {
    const auto& table = number % 2 == 0 ? first : second;
    if (!table->entry(key(number))) continue;
    EXPECT_EQ(chip.path.natMatch(0, key(number)).has_value(),
              status(table, key(number)) == EntryProgrammedStatus::programmed);
  }
  first->entryDelAll();
  second->entryDelAll();
  EXPECT_EQ(programmed(), 0u);
  EXPECT_EQ(physical.engine().waiting().size(), 0u);
  EXPECT_EQ(first->tableStatus()->entryStatuses().size(), 0u);
  EXPECT_EQ(second->tableStatus()->entryStatuses().size(), 0u);
}

/// Items that are dropped while they wait are found again, so that no key waits twice.
TEST(Waiting, isNotForgottenWithTheItems) {
  Started<HashTestTable> rig;
  auto& physical = rig.table->profileConvertor().physicalTable();
  U32 count = 0;
  while (physical.engine().waiting().size() < 5) {
    rig.table->entryIs(HashTestKey{count++}, HashTestResult{1u});
  }
  rig.table->hashItemDelAll();
  for (U32 key = 0; key < count; ++key) rig.table->handleEntry(HashTestKey{key});
  EXPECT_EQ(physical.engine().waiting().size(), 5u);
  rig.table->hashItemDelAll();
  for (U32 key = 0; key < count; ++key) rig.table->entryDel(HashTestKey{key});
  EXPECT_EQ(physical.engine().waiting().size(), 0u);
  EXPECT_EQ(physical.engine().size(), 0u);
}

/// Whoever hears of a status may announce and withdraw at once.
TEST(Waiting, throughObserversThatActOnIt) {
  VelaTest::Random random;
  Started<HashTestTable> rig;
  struct Meddler final : Orb::KeyObserver<HashTestKey> {
    Meddler(Started<HashTestTable>& started, VelaTest::Random& numbers)
        : rig(started), random(numbers) {}
    void handleKey(const HashTestKey& key) override {
      if (depth == 2 || random.below(3) != 0) return;
      ++depth;
      const HashTestKey other{random.flip() ? key.value() : random.below(64)};
      if (random.flip()) {
        rig.table->entryDel(other);
      } else {
        rig.table->entryIs(other, HashTestResult{random()});
      }
      --depth;
      ++meddled;
    }
    Started<HashTestTable>& rig;
    VelaTest::Random& random;
    int depth = 0;
    U32 meddled = 0;
  } meddler(rig, random);
  rig.table->tableStatusIs()->entryStatuses().observerIs(&meddler);
  for (int step = 0; step < 20000; ++step) {
    const HashTestKey key{random.below(64)};
    if (random.below(8) == 0) rig.chip.failWritesIs(random.below(3), random.below(3));
    if (random.flip()) {
      rig.table->entryDel(key);
    } else {
      rig.table->entryIs(key, HashTestResult{random()});
    }
    rig.path.hashTest(random.below(64));
    if (step % 30 == 0) rig.table->profileConvertor().pollHitBits(Orb::Seconds(step + 1));
    if (step % 700 == 0) rig.table->initHwEntries(true);
    if (step % 10 != 0) continue;
    meddler.depth = 2;
    rig.chip.failWritesIs(0);
    rig.table->profileConvertor().physicalTable().settle();
    meddler.depth = 0;
    U32 programmed = 0;
    for (U32 each = 0; each < 64; ++each) {
      const auto* status = rig.table->tableStatus()->entryStatus(HashTestKey{each});
      const auto* entry = rig.table->entry(HashTestKey{each});
      ASSERT_EQ(status != nullptr, entry != nullptr) << each << " at " << step;
      const bool in = status && status->status() == EntryProgrammedStatus::programmed;
      const auto found = rig.path.hashTest(each);
      ASSERT_EQ(found.has_value(), in) << each << " at " << step;
      if (in) {
        ASSERT_EQ(found->result(), entry->result()) << each;
      }
      programmed += in ? 1 : 0;
    }
    ASSERT_EQ(rig.table->profileConvertor().physicalTable().engine().size(), programmed);
  }
  EXPECT_GT(meddler.meddled, 1000u);
  rig.table->tableStatusIs()->entryStatuses().observerDel(&meddler);
}

/// When the row that became free cannot be written, whoever was to have it gets it later, and
/// nobody is lost.
TEST(Waiting, throughFailingWrites) {
  VelaTest::Random random;
  Started<HashTestTable> rig;
  const auto status = [&](U32 key) {
    const auto* entry = rig.table->tableStatus()->entryStatus(HashTestKey{key});
    return entry ? entry->status() : EntryProgrammedStatus::notProgrammed;
  };
  auto& physical = rig.table->profileConvertor().physicalTable();
  U32 failures = 0;
  for (int round = 0; round < 3000; ++round) {
    for (int step = 0; step < 8; ++step) {
      if (random.below(3) == 0) rig.chip.failWritesIs(random.below(3), random.below(3));
      const U32 key = random.below(64);
      if (random.flip()) {
        rig.table->entryDel(HashTestKey{key});
      } else {
        rig.table->entryIs(HashTestKey{key}, HashTestResult{random()});
      }
      for (U32 each = 0; each < 64; ++each) {
        if (status(each) != EntryProgrammedStatus::programmed) continue;
        ASSERT_TRUE(rig.path.hashTest(each)) << each;
      }
    }
    rig.chip.failWritesIs(0);
    failures += status(random.below(64)) == EntryProgrammedStatus::hardwareError ? 1 : 0;
    rig.table->syncEntries();
    EXPECT_THAT(rig.table->profileConvertorPtr()->auditFindings(), IsEmpty());
    for (U32 each = 0; each < 64; ++each) {
      const auto* entry = rig.table->entry(HashTestKey{each});
      const auto is = status(each);
      ASSERT_NE(is, EntryProgrammedStatus::hardwareError);
      ASSERT_EQ(is == EntryProgrammedStatus::notProgrammed, entry == nullptr) << each;
      ASSERT_EQ(rig.path.hashTest(each).has_value(), is == EntryProgrammedStatus::programmed);
      if (is == EntryProgrammedStatus::tableFull) {
        ASSERT_FALSE(physical.competitors(*rig.table->cachedItem(HashTestKey{each})).empty())
            << each << " has room in round " << round;
      }
    }
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(failures, 5u);
}

}  // namespace
