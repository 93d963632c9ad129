#include <map>

#include "Support.h"
#include "VelaSwitchTable/VelaTableSG.h"
#include "VelaSwitchTable/VelaTableStarG.h"

namespace {

using namespace VelaSwitchTable;
using testing::ElementsAre;
using testing::HasSubstr;
using VelaSwitch::IngressPortMask;
using VelaSwitch::LpmKey;
using VelaSwitch::MrouteKey;
using VelaSwitchApi::EntryProgrammedStatus;
using VelaTest::Chip;
using VelaTest::Random;

constexpr U64 ports = 0x1800000000003;

MrouteKey key(const char* source, const char* group, U16 vlan) {
  return {Orb::fromText<Ipnet::IpAddr>(source), Orb::fromText<Ipnet::IpAddr>(group),
          Bridging::VlanIdOrNone(vlan)};
}

std::vector<U32> image(const VelaSwitchApi::SwTable& table, U32 index, U8 words) {
  const U32* row = table.profileConvertorPtr()->hwTable(0)->image(index);
  return {row, row + words};
}

TEST(SG, rowsAreBitExactInBothLayouts) {
  const MrouteKey at = key("10.0.0.1", "239.1.2.3", 100);
  for (const auto& [profile, expected] :
       {std::pair{"vela-48-5.1", std::vector<U32>{0x0000f808, 0xb8320500, 0x00000003, 0x00038000,
                                                  0x00221095, 0xef010203}},
        std::pair{"vela-48-32vrf", std::vector<U32>{0x0000f808, 0x70320500, 0x00000007, 0x00070000,
                                                    0x00221095, 0xef010203}}}) {
    SCOPED_TRACE(profile);
    Chip chip(profile);
    const auto table = SGTableIs("sg");
    chip.start(*table);
    table->entryIs(at, {U8{11}, IngressPortMask(ports)});
    EXPECT_EQ(image(*table, 4245, 6), expected);
    const std::vector<U32> registers(expected.begin(), expected.begin() + 5);
    EXPECT_EQ(chip.row("SG", 0, 0, 4245), registers);
    EXPECT_EQ(chip.row("SG", 0, 1, 4245), registers);
    EXPECT_EQ(chip.path.sg(at)->portMask().bits(), ports);
    EXPECT_EQ(chip.path.sg(key("10.0.0.2", "239.1.2.3", 100)), std::nullopt);
  }
}

TEST(StarG, rowsAreBitExact) {
  {
    Chip chip;
    const auto table = StarGTableIs("starG");
    chip.start(*table);
    table->entryIs(key("0.0.0.0", "239.1.2.3", 100), {U8{11}, IngressPortMask(ports)});
    EXPECT_THAT(image(*table, 1465, 7),
                ElementsAre(0xf064f010, 0x0000000e, 0x000e0000, 0, 0x000605b9, 0xef010203, 0));
  }
  Chip chip("vela-20-4.0");
  const auto table = StarGTableIs("starG");
  chip.start(*table);
  table->entryIs(key("0.0.0.0", "224.0.0.5", 4094), {U8{3}, IngressPortMask(0x1f0f0f)});
  EXPECT_THAT(image(*table, 3474, 7),
              ElementsAre(0xfffe0000, 0x007c3c3c, 0, 0, 0x00060d92, 0xe0000005, 0));
  EXPECT_EQ(chip.path.starG(key("9.9.9.9", "224.0.0.5", 4094))->vlanGroupId(), 3);
}

TEST(StarG, statesItsOwnGeometry) {
  const auto properties = starGPhysicalHashPropertiesFactory();
  EXPECT_EQ(properties->tableId(), 40u);
  EXPECT_EQ(properties->rowsPerWay(), 4096u);
  EXPECT_EQ(properties->rowWords(), 7);
}

/// The source's own route wins, the group's is there for the others.
TEST(Multicast, theSourcesRouteComesFirst) {
  Chip chip;
  const auto level = Orb::make<Lpm29Table>("level");
  const auto sg = SGTableIs("sg");
  const auto starG = StarGTableIs("starG");
  chip.start(*level);
  chip.start(*sg);
  chip.start(*starG);
  starG->entryIs(key("0.0.0.0", "225.0.0.1", 7), {U8{1}, IngressPortMask(1)});
  sg->entryIs(key("10.0.0.1", "225.0.0.1", 7), {U8{2}, IngressPortMask(2)});
  EXPECT_EQ(chip.path.multicast(key("10.0.0.1", "225.0.0.1", 7))->vlanGroupId(), 2);
  EXPECT_EQ(chip.path.multicast(key("10.0.0.2", "225.0.0.1", 7))->vlanGroupId(), 1);
  EXPECT_EQ(chip.path.multicast(key("10.0.0.2", "225.0.0.1", 8)), std::nullopt);
  sg->entryDel(key("10.0.0.1", "225.0.0.1", 7));
  EXPECT_EQ(chip.path.multicast(key("10.0.0.1", "225.0.0.1", 7))->vlanGroupId(), 1);
}

TEST(StarG, aValidRowWithoutTheTagIsAnInternalError) {
  Chip chip;
  const auto table = StarGTableIs("starG");
  chip.start(*table);
  table->profileConvertorPtr()->hwTable(0)->image(77)[0] = 1u << 29 | 1;  // of even parity
  EXPECT_THAT(VelaTest::fatalText([&] { table->helper()->decodeHwEntry(77); }),
              HasSubstr("!valid || multicast"));
}

/// Level-29 routes and (*,G) entries in one table, near its limit, changed at random.
struct SharedRows : testing::Test {
  SharedRows() {
    chip.create(*level);
    chip.create(*starG);
    for (VelaSwitchApi::SwTable* table : {static_cast<VelaSwitchApi::SwTable*>(level.get()),
                                          static_cast<VelaSwitchApi::SwTable*>(starG.get())}) {
      table->initHwEntries(true);
      table->initializedIs(true);
    }
  }

  static LpmKey routeKey(U32 n) {
    return {static_cast<U8>(n % 8), Ipnet::IpPrefix(Ipnet::IpAddr(n * 2654435761u), 27)};
  }
  static MrouteKey groupKey(U32 n) {
    return {Ipnet::IpAddr(), Ipnet::IpAddr(0xE0000000 | (n * 40503u & 0x0FFFFFFF)),
            Bridging::VlanIdOrNone(n % 4095)};
  }
  static LpmResult routeResult(U32 n) {
    LpmResult result;
    for (U8 i = 0; i < 4; ++i) {
      EntryCellResult cell;
      cell.nexthopIndexes =
          VelaSwitch::NexthopIndexes{VelaSwitch::L3LagIndex(n % 57), static_cast<U8>(i + n % 60)};
      cell.realPrefixLen = U8{29};
      result.cellResultIs(EntryCellIndex(i), cell);
    }
    return result;
  }

  bool found(U32 n, bool route) {
    if (!route) {
      const auto hit = chip.path.starG(groupKey(n));
      return hit && hit->portMask().bits() == n;
    }
    const auto hit = chip.path.lpmRow("Lpm29", n % 8, routeKey(n).prefix().address());
    return hit && hit->cells()[3]->l3LagIndex() == n % 57 &&
           hit->cells()[3]->rewriteIndex() == 3 + n % 60;
  }

  Chip chip;
  Orb::Ptr<Lpm29Table> level = Orb::make<Lpm29Table>("level");
  Orb::Ptr<StarGTable> starG = StarGTableIs("starG");
};

TEST_F(SharedRows, neitherKindIsEverMissingOrTakenForTheOther) {
  Random random;
  constexpr U32 wanted = 8192 * 45 / 100;
  struct Item {
    U32 number;
    bool route;
    auto operator<=>(const Item&) const = default;
  };
  std::vector<Item> present;
  std::map<U32, std::vector<Item>> candidates;  // by row
  auto& engine = level->profileConvertor().physicalTable().engine();
  const auto rowsOf = [&](const Item& item) {
    const Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> entry =
        item.route
            ? Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry>(level->newItem(routeKey(item.number)))
            : starG->newItem(groupKey(item.number));
    return std::array{entry->getHash(0), 4096 + entry->getHash(1)};
  };
  Item changing{};
  U64 checks = 0;
  // After every write of a row: whatever may lie in that row is still found somewhere.
  chip.chip.writeObserverIs([&](const auto&, U32 index) {
    for (const Item& item : candidates[index]) {
      if (item == changing) continue;
      ++checks;
      ASSERT_TRUE(found(item.number, item.route)) << item.number;
    }
  });
  U32 next = 0;
  for (int step = 0; step < 30000; ++step) {
    if (present.size() >= wanted || (!present.empty() && random() % 4 == 0)) {
      const std::size_t at = random() % present.size();
      changing = present[at];
      present[at] = present.back();
      present.pop_back();
      for (const U32 row : rowsOf(changing)) std::erase(candidates[row], changing);
      if (changing.route) {
        level->entryDel(routeKey(changing.number));
        EXPECT_FALSE(found(changing.number, true));
      } else {
        starG->entryDel(groupKey(changing.number));
        EXPECT_FALSE(found(changing.number, false));
      }
    } else {
      changing = {++next, random() % 2 == 0};
      EntryProgrammedStatus status;
      if (changing.route) {
        level->entryIs(routeKey(next), routeResult(next));
        status = level->tableStatus()->entryStatus(routeKey(next))->status();
      } else {
        starG->entryIs(groupKey(next), {static_cast<U8>(next), IngressPortMask(next)});
        status = starG->tableStatus()->entryStatus(groupKey(next))->status();
      }
      if (status != EntryProgrammedStatus::programmed) continue;
      for (const U32 row : rowsOf(changing)) candidates[row].push_back(changing);
      present.push_back(changing);
    }
    ASSERT_FALSE(HasFatalFailure());
  }
  for (const Item& item : present) EXPECT_TRUE(found(item.number, item.route));
  EXPECT_GT(engine.moves(), 200u);
  EXPECT_GT(checks, 10000u);
}

TEST_F(SharedRows, aRestartGivesEachOwnerItsOwn) {
  for (U32 n = 1; n <= 1500; ++n) {
    level->entryIs(routeKey(n), routeResult(n));
    starG->entryIs(groupKey(n), {static_cast<U8>(n % 16), IngressPortMask(n)});
  }
  Chip cold;
  cold.chip = chip.chip;
  const U64 writes = chip.chip.registerWrites();
  const auto levelAgain = Orb::make<Lpm29Table>("level");
  const auto starGAgain = StarGTableIs("starG");
  cold.create(*levelAgain);
  cold.create(*starGAgain);
  levelAgain->syncEntries();
  starGAgain->syncEntries();
  for (VelaSwitchApi::SwTable* table : {static_cast<VelaSwitchApi::SwTable*>(levelAgain.get()),
                                        static_cast<VelaSwitchApi::SwTable*>(starGAgain.get())}) {
    table->initHwEntries(false);
    table->initializedIs(true);
  }
  EXPECT_EQ(cold.chip.registerWrites(), writes);
  EXPECT_EQ(levelAgain->entries().keys(), level->entries().keys());
  EXPECT_EQ(starGAgain->entries().keys(), starG->entries().keys());
  starG->entries().forEach([&](const MrouteKey& at, const StarGResult& result) {
    EXPECT_EQ(*starGAgain->entry(at), result);
  });
  starGAgain->syncEntries();
  levelAgain->syncEntries();
  EXPECT_TRUE(starGAgain->profileConvertorPtr()->auditFindings().empty());
  EXPECT_TRUE(levelAgain->profileConvertorPtr()->auditFindings().empty());
}

/// Whichever of the two tables polls, each entry hears of its own hits.
TEST_F(SharedRows, hitsReachTheirOwner) {
  level->entryIs(routeKey(5), routeResult(5));
  starG->entryIs(groupKey(6), {U8{1}, IngressPortMask(6)});
  ASSERT_TRUE(found(5, true) && found(6, false));
  level->profileConvertor().pollHitBits(Orb::Seconds(4));
  EXPECT_EQ(level->tableStatus()->entryStatus(routeKey(5))->lastHit().value(), 4);
  EXPECT_EQ(starG->tableStatus()->entryStatus(groupKey(6))->lastHit().value(), 4);
  ASSERT_TRUE(found(5, true));
  starG->profileConvertor().pollHitBits(Orb::Seconds(9));
  EXPECT_EQ(level->tableStatus()->entryStatus(routeKey(5))->lastHit().value(), 9);
  EXPECT_EQ(starG->tableStatus()->entryStatus(groupKey(6))->lastHit().value(), 4);
  level->entryIs(routeKey(5), routeResult(7));
  EXPECT_EQ(level->tableStatus()->entryStatus(routeKey(5))->lastHit().value(), 9);
}

/// Groups that differ in the upper four bits are one key to hardware.
TEST(Multicast, theSecondSpellingOfAGroupWaits) {
  Chip chip;
  const auto table = SGTableIs("sg");
  chip.start(*table);
  const MrouteKey first = key("10.0.0.1", "225.0.0.1", 7);
  const MrouteKey second = key("10.0.0.1", "241.0.0.1", 7);
  table->entryIs(first, {U8{1}, IngressPortMask(1)});
  table->entryIs(second, {U8{2}, IngressPortMask(2)});
  EXPECT_EQ(table->tableStatus()->entryStatus(second)->status(),
            EntryProgrammedStatus::duplicateKey);
  EXPECT_EQ(chip.path.sg(second)->vlanGroupId(), 1);
  table->entryDel(first);
  EXPECT_EQ(table->tableStatus()->entryStatus(second)->status(), EntryProgrammedStatus::programmed);
  EXPECT_EQ(chip.path.sg(first)->vlanGroupId(), 2);
}

TEST(SG, aColdStartFindsTheSameEntries) {
  for (const char* profile : {"vela-48-5.1", "vela-48-32vrf", "vela-20-4.0"}) {
    SCOPED_TRACE(profile);
    Random random;
    Chip chip(profile);
    const auto table = SGTableIs("sg");
    chip.start(*table);
    for (U32 i = 0; i < 3000; ++i) {
      const U64 mask = (U64{random()} << 32 | random()) & ((U64{2} << chip.profile->ports()) - 1);
      table->entryIs({Ipnet::IpAddr(random()), Ipnet::IpAddr(0xE0000000 | random() >> 4),
                      Bridging::VlanIdOrNone(random() % 4095)},
                     {static_cast<U8>(random() % 16), IngressPortMask(mask)});
    }
    Chip cold(profile);
    cold.chip = chip.chip;
    const U64 writes = cold.chip.registerWrites();
    const auto again = SGTableIs("sg");
    cold.start(*again, Chip::Start::restart);
    EXPECT_EQ(cold.chip.registerWrites(), writes);
    EXPECT_EQ(again->entries().keys(), table->entries().keys());
    again->entries().forEach(
        [&](const MrouteKey& at, const SGResult& result) { EXPECT_EQ(result, *table->entry(at)); });
  }
}

}  // namespace
