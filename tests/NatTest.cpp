#include <map>

#include "Support.h"
#include "VelaSwitchTable/VelaTableAclIndirectCounterHash.h"
#include "VelaSwitchTable/VelaTableNatDynMatch.h"
#include "VelaSwitchTable/VelaTableNatMatch.h"
#include "VelaSwitchTable/VelaTableNatRewrite.h"

namespace {

using namespace VelaSwitchTable;
using testing::Contains;
using testing::HasSubstr;
using VelaSwitch::L3LagIndex;
using VelaSwitch::NatMatchKey;
using VelaSwitchApi::EntryProgrammedStatus;
using VelaTest::Chip;
using VelaTest::fatalText;
using VelaTest::Random;

NatMatchKey key(U8 natType, U8 proto, const char* source, const char* destination, U16 sport,
                U16 dport, U16 qualifier = 0) {
  return {natType,
          proto,
          Orb::fromText<Ipnet::IpAddr>(destination),
          Orb::fromText<Ipnet::IpAddr>(source),
          dport,
          sport,
          qualifier};
}

NatMatchResult result(U8 proto, U16 rewriteId, bool useAcl, bool trap, U16 lag, U8 rewrite) {
  return {true, proto, rewriteId, useAcl, trap, L3LagIndex(lag), rewrite};
}

NatDynMatchResult dynResult(U8 proto, U16 rewriteId, bool trap, U16 lag, U8 rewrite) {
  return {true, proto, rewriteId, trap, L3LagIndex(lag), rewrite};
}

template <class Table>
std::vector<U32> image(const Table& table, U32 index) {
  const auto& hwTable = *table.profileConvertorPtr()->hwTable(0);
  return {hwTable.image(index), hwTable.image(index) + hwTable.descriptor().rowWords};
}

template <class Table>
EntryProgrammedStatus statusOf(const Orb::Ptr<Table>& table, const typename Table::Key& at) {
  return table->tableStatus()->entryStatus(at)->status();
}

TEST(NatMatch, rowsAreBitExact) {
  const struct {
    NatMatchKey at;
    NatMatchResult is;
    U32 row;
    std::vector<U32> image;
  } rows[] = {
      {key(1, 2, "10.1.2.3", "9.9.9.9", 4242, 77, 37),
       result(3, 0xABC, true, false, 12, 33),
       5,
       {0x0920a010, 0xeaf3ca91, 0x00000642, 0, 0x00020005, 0x0a010203}},
      {key(0, 1, "10.1.2.3", "9.9.9.9", 0, 0),
       result(0, 1, false, true, 56, 63),
       3759,
       {0x0000a010, 0x00048040, 0x00001c7f, 0, 0x00020eaf, 0x0a010203}},
      {key(2, 7, "9.9.9.9", "198.51.100.7", 0, 0, 63),
       result(1, 4095, false, false, 0, 0),
       1361,
       {0x000c6336, 0x3ffdffe0, 0, 0, 0x00020551, 0xc6336407}},
      {key(3, 1, "9.9.9.9", "198.51.100.7", 5, 443, 1),
       result(2, 7, false, false, 1, 2),
       8,
       {0x1bbc6336, 0x001e8270, 0x00000084, 0, 0x00020008, 0xc6336407}},
  };
  Chip chip;
  const auto table = NatMatchTableIs("nat", 0);
  chip.start(*table);
  for (const auto& expected : rows) {
    table->entryIs(expected.at, expected.is);
    EXPECT_EQ(image(*table, expected.row), expected.image);
    const std::vector<U32> registers(expected.image.begin(), expected.image.begin() + 5);
    EXPECT_EQ(chip.row("NatMatch", 0, 0, expected.row), registers);
    EXPECT_EQ(chip.row("NatMatch", 0, 1, expected.row), registers);
    EXPECT_EQ(table->cachedItem(expected.at)->hwCompareEncoding(),
              (U64{expected.image[1]} << 32 | expected.image[0]) & 0x7FFFFFFFFFFF);
    EXPECT_EQ(chip.path.natMatch(0, expected.at)->natRewriteId(), expected.is.natRewriteId());
  }
}

TEST(NatDynMatch, rowsAreBitExact) {
  Chip chip;
  const auto first = NatDynMatchTableIs("dyn0", 0);
  const auto second = NatDynMatchTableIs("dyn1", 1);
  chip.start(*first);
  chip.start(*second);
  first->entryIs(key(1, 1, "10.1.2.3", "203.0.113.9", 50000, 443, 9),
                 dynResult(1, 0x7ff, true, 33, 21));
  EXPECT_EQ(image(*first, 368), (std::vector<U32>{0x42428040, 0xd432c01c, 0xd6406ef0, 0x008559ff,
                                                  0x00060170, 0x0a010203}));
  second->entryIs(key(3, 2, "10.1.2.3", "203.0.113.9", 50000, 53), dynResult(2, 5, false, 56, 0));
  EXPECT_EQ(image(*second, 965), (std::vector<U32>{0x42428040, 0xd432c01c, 0x7a800d70, 0x00e00001,
                                                   0x000a03c5, 0x0a010203}));
  EXPECT_TRUE(chip.path.natDynMatch(1, key(0, 2, "10.1.2.3", "203.0.113.9", 50000, 53)));
  EXPECT_FALSE(chip.path.natDynMatch(0, key(0, 2, "10.1.2.3", "203.0.113.9", 50000, 53)));
}

TEST(AclIndirectCounter, rowsAreBitExact) {
  Chip chip;
  const auto table = AclIndirectCounterHashTableIs("counter", 1);
  chip.start(*table);
  table->entryIs({U16{0xBEEF}}, {U16{0x123}});
  table->entryIs({U16{1}}, {U16{5000}});
  EXPECT_EQ(image(*table, 783), (std::vector<U32>{0x2477, 0, 0, 0, 0, 0x0004830f, 0x6ef}));
  EXPECT_EQ(image(*table, 1980), (std::vector<U32>{0x7100, 0, 0, 0, 0, 0x000487bc, 1}));
  EXPECT_EQ(chip.row("AclIndirectCounterHash", 1, 0, 783),
            (std::vector<U32>{0x2477, 0, 0, 0, 0, 0x0004830f}));
  EXPECT_EQ(chip.path.aclCounter(1, 0xBEEF)->counterIndex(), 0x123);
  EXPECT_EQ(chip.path.aclCounter(1, 1)->counterIndex(), 5000 & 4095);
  EXPECT_FALSE(chip.path.aclCounter(1, 2));
  const auto properties = table->helper()->doGetPhysTableProperties();
  EXPECT_EQ(properties->tableId(), 57u);
  EXPECT_EQ(table->fwkType().sourceUnit(), "VelaTableAclIndirectCounterHash");
}

TEST(Nat, geometryAndFlags) {
  Chip chip;
  const auto first = NatMatchTableIs("nat0", 0);
  const auto second = NatMatchTableIs("nat1", 1);
  const auto dynamic = NatDynMatchTableIs("dyn1", 1);
  for (VelaSwitchApi::SwTable* table :
       std::initializer_list<VelaSwitchApi::SwTable*>{first.get(), second.get(), dynamic.get()}) {
    chip.create(*table);
  }
  const auto shape = [](const auto& table) {
    return table->helper()->doGetPhysTableProperties()->fields();
  };
  EXPECT_EQ(shape(first),
            (VelaSwitchApi::PhysicalHashProperties::Fields{22, 6, 4096, 12, 3, 1, false, false}));
  EXPECT_EQ(shape(second), shape(first));
  EXPECT_EQ(shape(dynamic),
            (VelaSwitchApi::PhysicalHashProperties::Fields{29, 6, 1024, 10, 4, 1, false, false}));
  EXPECT_TRUE(first->hwTablesDuplicate() && first->statusSupported());
  EXPECT_FALSE(first->hitBitsSupported());
}

TEST(NatMatch, portsOfAddressOnlyKindsMustBeUnset) {
  Chip chip;
  const auto table = NatMatchTableIs("nat", 0);
  chip.start(*table);
  const auto announce = [&](const NatMatchKey& at) {
    return fatalText([&] { table->entryIs(at, result(0, 1, false, false, 1, 1)); });
  };
  EXPECT_THAT(announce(key(0, 1, "10.0.0.1", "0.0.0.0", 7, 0)),
              HasSubstr("key.sport() == 0: srcPort should be unset for address-only NAT"));
  EXPECT_THAT(announce(key(2, 1, "0.0.0.0", "10.0.0.1", 0, 7)),
              HasSubstr("key.dport() == 0: dstPort should be unset for address-only NAT"));
  // A row that says otherwise is not an entry, and no reason to stop.
  U32* row = table->profileConvertorPtr()->hwTable(0)->image(9);
  row[0] = 1u << 20;
  row[1] = 1u << 15;
  EXPECT_FALSE(table->helper()->decodeHwEntry(9)->valid());
}

struct Traces final : Twinlog::Sink {
  Traces(Trace::Handle& traced, U8 level) : handle(traced) {
    Twinlog::sinkIs(this);
    handle.twinlogLevelIs(level);
  }
  ~Traces() {
    handle.twinlogLevelIs(-1);
    Twinlog::sinkIs(nullptr);
  }
  void line(std::string_view, U8, std::string_view message) override {
    lines.emplace_back(message);
  }
  Trace::Handle& handle;
  std::vector<std::string> lines;
};

TEST(NatMatch, fieldsAreTracedAndOddProtocolsReported) {
  Chip chip;
  const auto table = NatMatchTableIs("nat", 0);
  chip.start(*table);
  Traces traces(NatMatchFamily::trace, 9);
  table->entryIs(key(1, 2, "10.1.2.3", "0.0.0.0", 4242, 0, 37),
                 result(5, 0xABC, true, false, 12, 33));
  EXPECT_THAT(traces.lines, Contains("setHwBuffer 50:61 = 0xabc"));
  EXPECT_THAT(traces.lines, Contains("setHwBuffer 48:48 = 0x0"));
  EXPECT_THAT(traces.lines, Contains("setStaticBuffer 142:143 = 0x0"));
  EXPECT_THAT(traces.lines, Contains("getHash 5:36 = 0xa010203"));
  EXPECT_THAT(traces.lines, Contains("setHwBuffer unexpected proto=5"));
  EXPECT_EQ(chip.path.natMatch(0, key(1, 2, "10.1.2.3", "0.0.0.0", 4242, 0, 37))->proto(), 0);
}

/// What hardware cannot tell apart: the first stands, the second waits, also across the two tables
/// that share their rows.
TEST(Nat, keysThatAreOneToHardwareWaitForEachOther) {
  Chip chip;
  const auto first = NatMatchTableIs("nat0", 0);
  const auto second = NatMatchTableIs("nat1", 1);
  const auto dynamic = NatDynMatchTableIs("dyn", 0);
  chip.create(*first);
  chip.create(*second);
  chip.start(*dynamic);
  for (const auto& table : {first, second}) {
    table->initHwEntries(true);
    table->initializedIs(true);
  }
  const NatMatchKey one = key(1, 1, "10.0.0.1", "1.1.1.1", 80, 1);
  const NatMatchKey other = key(1, 1, "10.0.0.1", "2.2.2.2", 80, 2, 64);
  first->entryIs(one, result(1, 1, false, false, 1, 1));
  first->entryIs(other, result(1, 2, false, false, 1, 1));
  second->entryIs(one, result(1, 3, false, false, 1, 1));
  EXPECT_EQ(statusOf(first, other), EntryProgrammedStatus::duplicateKey);
  EXPECT_EQ(statusOf(second, one), EntryProgrammedStatus::duplicateKey);
  EXPECT_EQ(chip.path.natMatch(1, other)->natRewriteId(), 1);
  first->entryDel(one);
  EXPECT_EQ(statusOf(first, other), EntryProgrammedStatus::programmed);
  EXPECT_EQ(chip.path.natMatch(0, one)->natRewriteId(), 2);
  first->entryDel(other);
  EXPECT_EQ(statusOf(second, one), EntryProgrammedStatus::programmed);
  EXPECT_EQ(chip.path.natMatch(0, one)->natRewriteId(), 3);

  const NatMatchKey connection = key(0, 1, "10.0.0.1", "2.2.2.2", 1, 2);
  NatMatchKey twin = connection;
  twin.natType = U8{2};
  twin.qualifier = U16{5};
  dynamic->entryIs(connection, dynResult(0, 10, false, 1, 1));
  dynamic->entryIs(twin, dynResult(0, 11, false, 1, 1));
  EXPECT_EQ(statusOf(dynamic, twin), EntryProgrammedStatus::duplicateKey);
  dynamic->entryDel(connection);
  EXPECT_EQ(chip.path.natDynMatch(0, connection)->natRewriteId(), 11);
}

TEST(Nat, hitsAreRecordedThoughNoneAreDeclared) {
  Chip chip;
  const auto table = NatMatchTableIs("nat", 0);
  chip.start(*table);
  const NatMatchKey at = key(1, 1, "10.0.0.1", "0.0.0.0", 80, 0);
  table->entryIs(at, result(1, 1, false, false, 1, 1));
  EXPECT_EQ(table->tableStatus()->entryStatus(at)->lastHit().value(), 0);
  ASSERT_TRUE(chip.path.natMatch(0, at));
  table->profileConvertor().pollHitBits(Orb::Seconds(3));
  EXPECT_EQ(table->tableStatus()->entryStatus(at)->lastHit().value(), 3);
}

/// A random key of the family, with what takes no part in it left out.
NatMatchKey randomKey(Random& random, bool dynamic) {
  NatMatchKey at;
  at.natType = static_cast<U8>(random() % 4);
  at.proto = static_cast<U8>(random() % 8);
  const bool source = dynamic || at.natType() < 2;
  if (source) at.srcIp = Ipnet::IpAddr(random());
  if (dynamic || !source) at.dstIp = Ipnet::IpAddr(random());
  if (dynamic || at.natType() == 1) at.sport = static_cast<U16>(random());
  if (dynamic || at.natType() == 3) at.dport = static_cast<U16>(random());
  if (!dynamic) at.qualifier = static_cast<U16>(random() % 64);
  return at;
}

struct Static {
  using Table = NatMatchTable;
  static constexpr U32 entries = 9000;
  static Orb::Ptr<Table> table() { return NatMatchTableIs("nat", 0); }
  static NatMatchKey key(Random& random) { return randomKey(random, false); }
  static NatMatchResult is(Random& random) {
    return result(static_cast<U8>(random() % 4), static_cast<U16>(random() % 4096),
                  random() % 2 == 0, random() % 2 == 0, static_cast<U16>(random() % 64),
                  static_cast<U8>(random() % 64));
  }
  static auto lookup(VelaDevice::DataPath& path, const NatMatchKey& at) {
    return path.natMatch(0, at);
  }
};

struct Dynamic {
  using Table = NatDynMatchTable;
  static constexpr U32 entries = 3000;
  static Orb::Ptr<Table> table() { return NatDynMatchTableIs("dyn", 0); }
  static NatMatchKey key(Random& random) { return randomKey(random, true); }
  static NatDynMatchResult is(Random& random) {
    return dynResult(static_cast<U8>(random() % 4), static_cast<U16>(random() % 4096),
                     random() % 2 == 0, static_cast<U16>(random() % 64),
                     static_cast<U8>(random() % 64));
  }
  static auto lookup(VelaDevice::DataPath& path, const NatMatchKey& at) {
    return path.natDynMatch(0, at);
  }
};

template <class Kind>
struct NatFlows : testing::Test {};
using Kinds = testing::Types<Static, Dynamic>;
TYPED_TEST_SUITE(NatFlows, Kinds);

/// Flows come and go in a table at three quarters of its rows; whatever may lie in a row that is
/// written is found all the time. A cold start then finds the same.
TYPED_TEST(NatFlows, areNeverMissingAndSurviveAColdStart) {
  Random random;
  Chip chip;
  const auto table = TypeParam::table();
  chip.start(*table);
  using Key = typename TypeParam::Table::Key;
  std::vector<Key> keys;
  std::map<U32, std::vector<Key>> candidates;
  const auto& physical = table->profileConvertor().physicalTable();
  const auto found = [&](const Key& at) {
    const auto hit = TypeParam::lookup(chip.path, at);
    const auto* desired = table->entry(at);
    return hit && hit->natRewriteId() == desired->natRewriteId() &&
           hit->proto() == desired->proto() && hit->trapToCpu() == desired->trapToCpu() &&
           hit->l3LagIndex() == desired->l3LagIndex().value() &&
           hit->rewriteIndex() == desired->rewriteIndex();
  };
  Key changing{};
  U64 checks = 0;
  chip.chip.writeObserverIs([&](const auto&, U32 index) {
    for (const Key& at : candidates[index]) {
      if (at == changing) continue;
      ++checks;
      ASSERT_TRUE(found(at)) << Orb::text(at);
    }
  });
  const auto forEachRow = [&](const Key& at, auto&& visit) {
    const auto item = table->newItem(at);
    for (U8 way = 0; way < physical.engine().ways(); ++way) {
      visit(candidates[physical.candidate(*item, way)]);
    }
  };
  for (U32 step = 0; step < TypeParam::entries * 2; ++step) {
    if (keys.size() == TypeParam::entries) {
      const std::size_t at = random() % keys.size();
      changing = keys[at];
      keys[at] = keys.back();
      keys.pop_back();
      forEachRow(changing, [&](auto& row) { std::erase(row, changing); });
      table->entryDel(changing);
      ASSERT_FALSE(TypeParam::lookup(chip.path, changing));
    }
    changing = TypeParam::key(random);
    if (table->entry(changing)) continue;
    table->entryIs(changing, TypeParam::is(random));
    ASSERT_EQ(statusOf(table, changing), EntryProgrammedStatus::programmed);
    forEachRow(changing, [&](auto& row) { row.push_back(changing); });
    keys.push_back(changing);
    ASSERT_FALSE(this->HasFatalFailure());
  }
  for (const Key& at : keys) ASSERT_TRUE(found(at));
  EXPECT_GT(checks, TypeParam::entries);
  EXPECT_GT(physical.engine().moves(), TypeParam::entries / 10);

  Chip cold;
  cold.chip = chip.chip;
  cold.chip.writeObserverIs(nullptr);
  const U64 writes = cold.chip.registerWrites();
  const auto again = TypeParam::table();
  cold.start(*again, Chip::Start::restart);
  EXPECT_EQ(cold.chip.registerWrites(), writes);
  EXPECT_EQ(again->entries().keys(), table->entries().keys());
  again->entries().forEach(
      [&](const Key& at, const auto& held) { EXPECT_EQ(held, *table->entry(at)); });
}

TEST(AclIndirectCounter, everyKeyComesBackFromItsRow) {
  Chip chip;
  const auto table = AclIndirectCounterHashTableIs("counter", 0);
  chip.start(*table);
  Random random;
  for (U32 i = 0; i < 1000; ++i) {
    const VelaSwitch::AclIndirectCounterHashKey at{static_cast<U16>(random())};
    table->entryIs(at, {static_cast<U16>(1 + random() % 4095)});
    // Some sets of keys share too few rows.
    if (!table->cachedItem(at)->placed()) table->entryDel(at);
  }
  Chip cold;
  cold.chip = chip.chip;
  const U64 writes = cold.chip.registerWrites();
  const auto again = AclIndirectCounterHashTableIs("counter", 0);
  cold.start(*again, Chip::Start::restart);
  EXPECT_EQ(cold.chip.registerWrites(), writes);
  EXPECT_EQ(again->entries().keys(), table->entries().keys());
  table->entries().forEach([&](const auto& at, const auto& is) {
    EXPECT_EQ(chip.path.aclCounter(0, at.counterKey())->counterIndex(), is.counterIndex());
  });
}

}  // namespace
