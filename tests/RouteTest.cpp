#include <map>
#include <set>

#include "Support.h"
#include "VelaRoutes/Routes.h"
#include "VelaSwitchTable/VelaTableLpmTables.h"
#include "VelaSwitchTable/VelaTableStarG.h"
#include "device/RouteLookup.h"

namespace {

using namespace VelaSwitchTable;
using Ipnet::IpAddr;
using Ipnet::IpPrefix;
using VelaRoutes::RouteWriter;
using VelaSwitch::LpmKey;
using VelaSwitch::NexthopIndexes;
using VelaSwitchApi::EntryProgrammedStatus;
using VelaTest::Chip;
using VelaTest::Random;

NexthopIndexes nexthop(U32 number) {
  return {VelaSwitch::L3LagIndex(number % 57), static_cast<U8>(number / 57 % 64)};
}

LpmKey route(U8 vrf, const char* prefix) { return {vrf, Orb::fromText<IpPrefix>(prefix)}; }

/// The ladder of a switch, written by a route writer, beside a model that knows no levels.
struct Ladder {
  explicit Ladder(const char* profile, Chip::Start how = Chip::Start::fresh,
                  const VelaDevice::SimulatedSwitch* saved = nullptr)
      : chip(profile) {
    if (saved) chip.chip = *saved;
    for (const LpmLevel& level : lpmLevels) {
      levels.push_back(lpmLevelTableFactory(level.longest(), "level"));
    }
    std::vector<VelaSwitchApi::SwTable*> tables{first.get(), starG.get()};
    for (const auto& level : levels) tables.insert(tables.end() - 1, level.get());
    for (auto* table : tables) chip.create(*table);
    writer = std::make_unique<RouteWriter>(VelaRoutes::Ladder{routes, first, levels});
    if (how == Chip::Start::restart) {
      for (auto* table : tables) table->syncEntries();
      writer->rebuild();
    }
    for (auto* table : tables) {
      if (how == Chip::Start::fresh) table->initHwEntries(true);
    }
    for (auto* table : tables) table->initializedIs(true);
  }

  void set(const LpmKey& key, NexthopIndexes to) {
    desired[key] = to;
    routes->entryIs(key, routeResult(to, key.prefix().len()));
    writer->claim(key);
    writer->retry();
  }
  void del(const LpmKey& key) {
    desired.erase(key);
    routes->entryDel(key);
    writer->retry();
  }
  EntryProgrammedStatus status(const LpmKey& key) const { return routes->entryStatus(key)->status; }

  /// The longest programmed route that covers the address.
  std::optional<std::pair<U8, NexthopIndexes>> model(U8 vrf, U32 address) const {
    for (int length = 32; length >= 0; --length) {
      const LpmKey key{vrf, IpPrefix(IpAddr(address), static_cast<U8>(length))};
      const auto at = desired.find(key);
      if (at == desired.end() || status(key) != EntryProgrammedStatus::programmed) continue;
      return std::pair{static_cast<U8>(length), at->second};
    }
    return std::nullopt;
  }
  void check(U8 vrf, U32 address) {
    ++checks;
    const auto expected = model(vrf, address);
    const auto hit = VelaDevice::route(chip.path, vrf, IpAddr(address));
    ASSERT_EQ(hit.has_value(), expected.has_value()) << Orb::text(IpAddr(address));
    if (!expected) return;
    ASSERT_EQ(hit->l3LagIndex(), expected->second.l3LagIndex().value());
    ASSERT_EQ(hit->rewriteIndex(), expected->second.rewriteIndex());
    if (hit->realPrefixLen()) {
      ASSERT_EQ(*hit->realPrefixLen(), expected->first);
    }
  }
  /// Random addresses near routes and anywhere, and both ends of every route; what is counted of
  /// statuses, and each of them.
  void checkAll(Random& random, U32 count) {
    std::vector<LpmKey> keys;
    std::map<EntryProgrammedStatus, U32> statuses;
    for (const auto& [key, to] : desired) {
      keys.push_back(key);
      ++statuses[status(key)];
    }
    ASSERT_EQ(routes->count(LpmRoutes::held), statuses[EntryProgrammedStatus::programmed]);
    ASSERT_EQ(routes->count(LpmRoutes::waits), statuses[EntryProgrammedStatus::tableFull]);
    for (const LpmKey& key : keys) {
      const U32 low = key.prefix().address().number();
      const U32 high = key.prefix().len() == 0
                           ? ~0u
                           : low | static_cast<U32>(0xFFFFFFFFull >> key.prefix().len());
      for (const U32 address : {low, high, low - 1, high + 1}) {
        check(key.vrf(), address);
        if (testing::Test::HasFatalFailure()) return;
      }
    }
    for (U32 i = 0; i < count; ++i) {
      const U8 vrf = static_cast<U8>(random() % chip.profile->vrfs());
      U32 address = random();
      if (i % 2 == 0 && !keys.empty()) {
        const LpmKey& near = keys[random() % keys.size()];
        address = near.prefix().address().number() ^ (random() >> (random() % 32));
      }
      check(vrf, address);
      if (testing::Test::HasFatalFailure()) return;
    }
  }
  /// Rows that answer lookups, cells of the first level and keys of the others.
  U32 entries() const {
    U32 count = first->entries().size();
    for (const auto& level : levels) count += level->entries().size();
    return count;
  }
  U64 rowWrites() const { return chip.chip.rowWrites(); }

  Chip chip;
  Orb::Ptr<LpmTable> routes = lpmTableFactory("Route");
  Orb::Ptr<Lpm11Table> first = lpm11TableFactory("Lpm11");
  std::vector<Orb::Ptr<LpmBaseTable>> levels;
  Orb::Ptr<StarGTable> starG = StarGTableIs("StarG");
  std::unique_ptr<RouteWriter> writer;
  std::map<LpmKey, NexthopIndexes> desired;
  U64 checks = 0;
};

/// Whoever hears of routes may announce batches of others, also while what nobody wants goes, and
/// go.
struct Meddler final : Orb::KeyObserver<LpmKey> {
  explicit Meddler(VelaRoutes::Routes& whole) : routes(whole) {
    routes.writer().routes().entryStatuses().observerIs(this);
  }
  ~Meddler() { routes.writer().routes().entryStatuses().observerDel(this); }
  void handleKey(const LpmKey& key) override {
    if (told++ == 200) routes.writer().routes().entryStatuses().observerDel(this);
    if (key.vrf() != 0 || told % 3 != 0) return;
    std::vector<std::pair<LpmKey, NexthopIndexes>> others;
    for (U8 vrf = 1; vrf < 8; ++vrf) others.push_back({{vrf, key.prefix()}, nexthop(vrf)});
    for (const auto& outcome : routes.announceAll(others)) {
      EXPECT_EQ(outcome.status, EntryProgrammedStatus::programmed);
    }
    for (const auto& [other, to] : others) announced.insert(other);
  }

  VelaRoutes::Routes& routes;
  std::set<LpmKey> announced;
  U32 told = 0;
};

/// Nested routes of every length, some in the same few blocks so that they overlap.
std::vector<LpmKey> manyRoutes(Random& random, U32 vrfs, U32 count) {
  std::set<LpmKey> keys;
  for (U32 vrf = 0; vrf < vrfs; vrf += 3) keys.insert({static_cast<U8>(vrf), IpPrefix()});
  while (keys.size() < count) {
    U32 address = random();
    if (random() % 2 == 0) address = 0x0A000000 | (address & 0x0003FFFF);
    keys.insert({static_cast<U8>(random() % vrfs),
                 IpPrefix(IpAddr(address), static_cast<U8>(1 + random() % 32))});
  }
  std::vector<LpmKey> list(keys.begin(), keys.end());
  for (std::size_t i = list.size(); i > 1; --i) std::swap(list[i - 1], list[random() % i]);
  return list;
}

/// The switch answers like a plain longest-prefix match while routes of every length come, change
/// and go; and nothing is left of them in the end.
TEST(Routes, theSwitchAgreesWithAPlainLongestMatch) {
  for (const char* profile : {"vela-48-5.1", "vela-48-4.1", "vela-20-4.0", "vela-48-32vrf"}) {
    SCOPED_TRACE(profile);
    Random random;
    Ladder ladder(profile);
    const U32 empty = ladder.entries();
    std::vector<LpmKey> keys = manyRoutes(random, ladder.chip.profile->vrfs(), 3000);
    for (const LpmKey& key : keys) ladder.set(key, nexthop(random()));
    ladder.checkAll(random, 20000);
    for (std::size_t i = 0; i < keys.size() / 4; ++i) ladder.set(keys[i], nexthop(random()));
    const std::size_t half = keys.size() / 2;
    for (std::size_t i = half; i < keys.size(); ++i) ladder.del(keys[i]);
    ladder.checkAll(random, 20000);
    for (std::size_t i = 0; i < half; ++i) ladder.del(keys[i]);
    EXPECT_EQ(ladder.entries(), empty);
    EXPECT_EQ(ladder.routes->entryStatuses().size(), 0u);
    ladder.checkAll(random, 2000);
    for (const auto& level : ladder.levels) {
      EXPECT_EQ(level->profileConvertor().physicalTable().engine().size(), 0u);
      EXPECT_EQ(level->tableStatus()->entryStatuses().size(), 0u);
    }
    EXPECT_GE(ladder.checks, 60000u);
    if (HasFatalFailure()) return;
  }
}

struct OneLadder : testing::Test {
  Ladder ladder{"vela-48-5.1"};
  U32 lag(const char* address, U8 vrf = 0) {
    const auto hit = VelaDevice::route(ladder.chip.path, vrf, Orb::fromText<IpAddr>(address));
    return hit ? hit->l3LagIndex() : 57;
  }
};

TEST_F(OneLadder, aRouteChangesItsOwnCellsAlone) {
  const auto rows = [&](auto&& action) {
    const U64 before = ladder.rowWrites();
    action();
    return ladder.rowWrites() - before;
  };
  const U32 pipelines = ladder.chip.profile->pipelines();
  EXPECT_EQ(rows([&] { ladder.set(route(1, "0.0.0.0/0"), nexthop(1)); }), 2048 * pipelines);
  EXPECT_EQ(rows([&] { ladder.set(route(1, "10.0.0.0/8"), nexthop(2)); }), 8 * pipelines);
  EXPECT_EQ(rows([&] { ladder.set(route(1, "10.32.0.0/11"), nexthop(3)); }), pipelines);
  EXPECT_EQ(rows([&] { ladder.set(route(1, "10.0.0.0/8"), nexthop(4)); }), 7 * pipelines);
  EXPECT_EQ(rows([&] { ladder.set(route(1, "10.0.0.0/8"), nexthop(4)); }), 0u);
  EXPECT_EQ(rows([&] { ladder.del(route(1, "10.0.0.0/8")); }), 7 * pipelines);
  EXPECT_EQ(lag("10.0.0.1", 1), 1u);
  EXPECT_EQ(lag("10.33.0.1", 1), 3u);
  EXPECT_EQ(rows([&] { ladder.set(route(1, "10.0.0.0/12"), nexthop(5)); }), pipelines);
  EXPECT_EQ(rows([&] { ladder.set(route(1, "10.8.0.0/13"), nexthop(6)); }), pipelines);
  EXPECT_EQ(rows([&] { ladder.set(route(1, "10.12.0.0/14"), nexthop(7)); }), pipelines);
  EXPECT_EQ(lag("10.7.0.0", 1), 5u);
  EXPECT_EQ(lag("10.11.0.0", 1), 6u);
  EXPECT_EQ(lag("10.12.0.0", 1), 7u);
  EXPECT_EQ(rows([&] { ladder.del(route(1, "10.8.0.0/13")); }), pipelines);
  EXPECT_EQ(lag("10.11.0.0", 1), 5u);
  EXPECT_EQ(lag("10.12.0.0", 1), 7u);
  EXPECT_EQ(lag("10.12.0.0", 2), 57u);
}

TEST_F(OneLadder, hitsAreReportedForTheRoutesOfTheKey) {
  const LpmKey key = route(2, "192.0.2.0/24");
  ladder.set(key, nexthop(1));
  EXPECT_EQ(ladder.routes->entryStatus(key)->lastHit.value(), 0);
  ASSERT_EQ(lag("192.0.2.77", 2), 1u);
  for (const auto& level : ladder.levels) level->profileConvertor().pollHitBits(Orb::Seconds(5));
  EXPECT_EQ(ladder.routes->entryStatus(key)->lastHit.value(), 5);
  ladder.set(key, nexthop(2));
  EXPECT_EQ(ladder.routes->entryStatus(key)->lastHit.value(), 5);
  ladder.set(route(2, "192.0.2.0/26"), nexthop(3));
  EXPECT_EQ(ladder.routes->entryStatus(route(2, "192.0.2.0/26"))->lastHit.value(), 5);
}

/// A level that overflows refuses exactly what has no room, and takes it in when room appears.
TEST_F(OneLadder, whatWaitsGetsTheRoomThatAppears) {
  Random random;
  std::vector<LpmKey> keys;
  std::vector<LpmKey> refused;
  for (U32 i = 0; i < 3000; ++i) {
    const LpmKey key{static_cast<U8>(i % 8), IpPrefix(IpAddr(random()), 18)};
    if (ladder.desired.contains(key)) continue;
    ladder.set(key, nexthop(i));
    keys.push_back(key);
    if (ladder.status(key) == EntryProgrammedStatus::tableFull) refused.push_back(key);
  }
  auto& level = *ladder.levels[2];
  auto& physical = level.profileConvertor().physicalTable();
  EXPECT_GT(refused.size(), 1000u);
  EXPECT_EQ(physical.waiting(&level), refused.size());
  const auto noneHasRoom = [&] {
    U32 waiting = 0;
    for (const LpmKey& key : refused) {
      if (!ladder.routes->entry(key) || ladder.status(key) != EntryProgrammedStatus::tableFull) {
        continue;
      }
      ++waiting;
      ASSERT_FALSE(physical.competitors(*level.cachedItem(LpmRoutes::keyOf(key))).empty());
    }
    ASSERT_EQ(physical.waiting(&level), waiting);
  };
  noneHasRoom();
  ladder.checkAll(random, 5000);

  for (int i = 0; i < 400; ++i) {
    ladder.del(keys[random() % keys.size()]);
    noneHasRoom();
    ASSERT_FALSE(HasFatalFailure());
  }
  ladder.checkAll(random, 5000);
  for (const LpmKey& key : keys) ladder.del(key);
  EXPECT_EQ(physical.waiting(&level), 0u);
  EXPECT_EQ(physical.engine().size(), 0u);
}

/// A (*,G) entry that goes leaves its row to a route that waits for it.
TEST_F(OneLadder, multicastMakesRoomForRoutes) {
  auto& physical = ladder.levels[5]->profileConvertor().physicalTable();
  U32 group = 0xE1000000;
  while (physical.engine().size() < 4200) {
    ladder.starG->entryIs({IpAddr(), IpAddr(group++), Bridging::VlanIdOrNone(1)}, {});
  }
  Random random;
  std::vector<LpmKey> refused;
  while (refused.size() < 50) {
    const LpmKey key{U8{0}, IpPrefix(IpAddr(random()), 29)};
    ladder.set(key, nexthop(1));
    if (ladder.status(key) == EntryProgrammedStatus::tableFull) refused.push_back(key);
  }
  ladder.starG->entryDelAll();
  ladder.writer->retry();
  for (const LpmKey& key : refused) {
    EXPECT_EQ(ladder.status(key), EntryProgrammedStatus::programmed);
  }
}

TEST_F(OneLadder, aFailedWriteShowsInTheRoutesStatusUntilItIsMended) {
  const LpmKey hashed = route(0, "10.1.2.0/24");
  const LpmKey direct = route(0, "10.0.0.0/8");
  ladder.chip.chip.failWritesIs(1);
  ladder.set(hashed, nexthop(1));
  EXPECT_EQ(ladder.status(hashed), EntryProgrammedStatus::hardwareError);
  ladder.levels[4]->syncEntries();
  EXPECT_EQ(ladder.status(hashed), EntryProgrammedStatus::programmed);
  ladder.chip.chip.failWritesIs(1);
  ladder.set(direct, nexthop(2));
  EXPECT_EQ(ladder.status(direct), EntryProgrammedStatus::hardwareError);
  ladder.writer->handleRoute(direct);
  EXPECT_EQ(ladder.status(direct), EntryProgrammedStatus::programmed);
  EXPECT_EQ(lag("10.200.0.1"), 2u);

  // Whoever mends the row, the route hears of it.
  const LpmKey other = route(0, "32.0.0.0/11");
  ladder.chip.chip.failWritesIs(1);
  ladder.set(other, nexthop(3));
  EXPECT_EQ(ladder.status(other), EntryProgrammedStatus::hardwareError);
  ladder.first->handleEntry(other);
  ladder.writer->retry();
  EXPECT_EQ(ladder.status(other), EntryProgrammedStatus::programmed);
}

/// An audit finds a row that differs, and neither its repair nor the next announcement is written.
TEST_F(OneLadder, aRouteThatCannotBeMendedIsNotCounted) {
  const LpmKey key = route(0, "10.1.2.0/24");
  ladder.set(key, nexthop(1));
  LpmBaseTable& level = *ladder.levels[4];
  const auto& physical = level.profileConvertor().physicalTable();
  const U32 row = physical.indexOf(*ladder.writer->itemOf(key));
  ladder.chip.chip.flipBit(physical.hwTables().front()->busHandle(), row, 0, 3);
  level.syncEntries();
  ladder.chip.chip.failWritesIs(1);
  for (const auto& finding : std::vector(level.profileConvertor().auditFindings())) {
    level.profileConvertorPtr()->repair(finding);
  }
  ladder.chip.chip.failWritesIs(1);
  ladder.set(key, nexthop(2));
  EXPECT_EQ(ladder.status(key), EntryProgrammedStatus::hardwareError);
  EXPECT_EQ(ladder.routes->count(LpmRoutes::held), 0u);
  ladder.set(key, nexthop(1));
  EXPECT_EQ(ladder.status(key), EntryProgrammedStatus::programmed);
  EXPECT_EQ(ladder.routes->count(LpmRoutes::held), 1u);
}

/// What comes in while a route joins others of its key does not hide that the key is in hardware.
TEST_F(OneLadder, aRouteThatJoinsOthersIsWhereTheyAre) {
  const LpmKey waits = route(0, "10.9.2.0/24");
  ladder.set(route(0, "10.1.2.0/24"), nexthop(1));
  ladder.chip.chip.failWritesIs(1);
  ladder.set(waits, nexthop(1));
  EXPECT_EQ(ladder.status(waits), EntryProgrammedStatus::hardwareError);
  ladder.set(route(0, "10.1.2.0/25"), nexthop(2));
  EXPECT_EQ(ladder.status(waits), EntryProgrammedStatus::programmed);
  EXPECT_EQ(ladder.status(route(0, "10.1.2.0/25")), EntryProgrammedStatus::programmed);
}

/// A key of a level has one flag for all of its routes: a whole route cannot carry it.
TEST_F(OneLadder, aRouteWithATrapIsNotProgrammed) {
  const LpmKey key = route(0, "10.1.2.0/24");
  ladder.set(key, nexthop(1));
  LpmResult trap = routeResult(nexthop(1), 24);
  trap.cpuTrap = true;
  ladder.routes->entryIs(key, trap);
  EXPECT_EQ(ladder.status(key), EntryProgrammedStatus::notProgrammed);
  EXPECT_EQ(ladder.routes->count(LpmRoutes::held), 0u);
  EXPECT_EQ(VelaDevice::route(ladder.chip.path, 0, IpAddr(0x0a010203)), std::nullopt);
  ladder.writer->handleRoute(key);
  EXPECT_EQ(ladder.status(key), EntryProgrammedStatus::notProgrammed);
  ladder.routes->entryIs(key, routeResult(nexthop(2), 24));
  EXPECT_EQ(ladder.status(key), EntryProgrammedStatus::programmed);
  EXPECT_EQ(ladder.routes->count(LpmRoutes::held), 1u);

  // In a batch, of a key that is programmed for another route.
  ladder.set(route(0, "10.1.2.0/25"), nexthop(1));
  ladder.routes->entryIs(key, trap);
  struct Told final : Orb::KeyObserver<LpmKey> {
    void handleKey(const LpmKey& told) override { keys.push_back(told); }
    std::vector<LpmKey> keys;
  } told;
  ladder.routes->entryStatuses().observerIs(&told);
  VelaRoutes::Routes(*ladder.writer).announceAll(std::vector{std::pair{key, nexthop(2)}});
  ladder.routes->entryStatuses().observerDel(&told);
  EXPECT_THAT(told.keys, testing::ElementsAre(key));
  EXPECT_EQ(ladder.status(key), EntryProgrammedStatus::programmed);
}

/// An entry of a level that is announced on its own takes its key from the routes that were only
/// guessed from what hardware held.
TEST(Routes, guessesGiveWayToEntriesOfTheLevels) {
  Ladder before("vela-48-5.1");
  const LpmKey key{U8{0}, Orb::fromText<IpPrefix>("10.1.2.0/24")};
  LpmResult cells;
  for (U8 i = 0; i < 4; ++i) {
    EntryCellResult cell;
    cell.nexthopIndexes = nexthop(i);
    cell.realPrefixLen = U8{26};
    cells.cellResultIs(EntryCellIndex(i), cell);
  }
  before.levels[4]->entryIs(key, cells);
  // The mask length of a row alone does not make it a route's: 64.32.0.0/11 would be that as well.
  const LpmKey first = route(1, "64.0.0.0/11");
  Lpm11Result row;
  row.cellResult = cells.cellResult(EntryCellIndex(1));
  row.cellResult.value.maskLength = MaskLength(9);
  row.cellResult.value.realPrefixLen = U8{9};
  before.first->entryIs(first, row);

  Ladder after("vela-48-5.1", Chip::Start::restart, &before.chip.chip);
  EXPECT_EQ(after.routes->entries().size(), 4u) << "guesses";
  after.levels[4]->entryIs(key, cells);
  after.first->entryIs(first, row);
  EXPECT_EQ(after.routes->entries().size(), 0u);
  EXPECT_EQ(after.routes->entryStatuses().size(), 0u);
  EXPECT_EQ(after.writer->programmedCells(), 0u);
  EXPECT_EQ(after.writer->releaseUnclaimed(), 0u);
  EXPECT_EQ(after.rowWrites(), before.rowWrites());
}

/// A route that was guessed and is withdrawn is no guess any more.
TEST(Routes, guessesCanBeWithdrawn) {
  Ladder before("vela-48-5.1");
  for (const char* each : {"10.0.0.0/9", "10.1.2.0/24"}) before.set(route(1, each), nexthop(7));
  Ladder after("vela-48-5.1", Chip::Start::restart, &before.chip.chip);
  EXPECT_EQ(after.writer->unclaimed(), 2u);
  for (const char* each : {"10.0.0.0/9", "10.1.2.0/24"}) {
    after.routes->entryDel(route(1, each));
    EXPECT_EQ(VelaDevice::route(after.chip.path, 1, route(1, each).prefix().address()),
              std::nullopt);
  }
  EXPECT_EQ(after.writer->unclaimed(), 0u);
  EXPECT_EQ(after.writer->releaseUnclaimed(), 0u);
}

/// Rows of the first level do not tell routes of other lengths apart: however they lie within each
/// other and in whatever order they are announced, no row changes meanwhile.
TEST(Routes, guessesStayUntilAllIsAnnounced) {
  Random random;
  for (int round = 0; round < 20; ++round) {
    Ladder before("vela-48-4.1");
    std::vector<LpmKey> keys;
    for (U32 i = 0; i < 40; ++i) {
      keys.push_back({U8{0}, IpPrefix(IpAddr(random()), static_cast<U8>(random.below(12)))});
      before.set(keys.back(), nexthop(random.below(3)));
    }
    Ladder after("vela-48-4.1", Chip::Start::restart, &before.chip.chip);
    for (auto i = static_cast<U32>(keys.size()); i > 1; --i) {
      std::swap(keys[i - 1], keys[random.below(i)]);
    }
    for (const LpmKey& key : keys) after.set(key, before.desired[key]);
    after.writer->complete();
    EXPECT_EQ(after.rowWrites(), before.rowWrites());
    EXPECT_EQ(after.writer->unclaimed(), 0u);
    ASSERT_NO_FATAL_FAILURE(after.checkAll(random, 200));
  }
}

/// Cells of keys that trap to the CPU are not of routes: they stay what they are.
TEST(Routes, aRestartTakesNoTrapForARoute) {
  Ladder before("vela-48-5.1");
  const LpmKey real = route(1, "10.1.2.0/24");
  before.set(real, nexthop(7));
  LpmResult trap = routeResult(nexthop(3), 24);
  trap.cpuTrap = true;
  const LpmKey trapped = route(1, "20.0.0.0/24");
  const std::size_t level26 = 4;
  before.levels[level26]->entryIs(trapped, trap);
  Lpm11Result firstTrap;
  firstTrap.cellResult = trap.cells()[0];
  firstTrap.cellResult.value.realPrefixLen = 11;
  firstTrap.cpuTrap = true;
  const LpmKey firstTrapped = route(1, "40.0.0.0/11");
  before.first->entryIs(firstTrapped, firstTrap);

  Ladder after("vela-48-5.1", Chip::Start::restart, &before.chip.chip);
  EXPECT_EQ(after.routes->entries().keys(), std::vector{real});
  after.writer->releaseUnclaimed();
  EXPECT_EQ(after.routes->entries().size(), 0u);
  EXPECT_EQ(after.levels[level26]->entries().keys(), std::vector{trapped});
  EXPECT_EQ(after.first->entries().keys(), std::vector{firstTrapped});
}

TEST(Routes, areAnnouncedByThoseWhoHearOfThem) {
  Ladder ladder("vela-48-5.1");
  VelaRoutes::Routes whole(*ladder.writer);
  Meddler first(whole);
  Meddler second(whole);
  std::vector<std::pair<LpmKey, NexthopIndexes>> routes;
  for (U32 i = 0; i < 300; ++i) {
    routes.push_back({{0, IpPrefix(IpAddr(0x0A000000 + (i << 8)), 24)}, nexthop(i)});
  }
  for (const auto& outcome : whole.announceAll(routes)) {
    ASSERT_EQ(outcome.status, EntryProgrammedStatus::programmed);
  }
  EXPECT_GT(first.told, 200u);
  EXPECT_EQ(first.told, second.told) << "one that goes takes nothing from the next";
  std::set<LpmKey> all = first.announced;
  all.insert(second.announced.begin(), second.announced.end());
  for (const auto& [key, to] : routes) all.insert(key);
  EXPECT_EQ(whole.size(), all.size());
  for (const LpmKey& key : all) ASSERT_EQ(whole.status(key), EntryProgrammedStatus::programmed);
}

/// A route that is announced while others are removed that nobody wants is not one of them.
TEST(Routes, areNotRemovedOnceTheyAreAnnounced) {
  Ladder before("vela-48-5.1");
  const std::vector<LpmKey> keys{route(0, "10.0.0.0/8"), route(0, "10.1.1.0/24"),
                                 route(1, "10.1.1.0/24")};
  for (const LpmKey& key : keys) before.set(key, nexthop(3));
  Ladder after("vela-48-5.1", Chip::Start::restart, &before.chip.chip);
  VelaRoutes::Routes whole(*after.writer);
  const LpmKey fresh = route(2, "10.1.1.0/24");
  EXPECT_EQ(whole.reconcile([&](const LpmKey& removing) {
    if (removing == keys[0]) whole.announce(keys[1], nexthop(3));
    whole.announce(fresh, nexthop(4));
    EXPECT_EQ(whole.status(fresh), EntryProgrammedStatus::programmed);
  }),
            2u);
  EXPECT_EQ(whole.status(keys[1]), EntryProgrammedStatus::programmed);
  EXPECT_EQ(whole.size(), 2u);
}

/// Bad input of an announcement, even amid a batch, is an exception before anything of it is
/// stored.
TEST(Routes, refuseWhatNoSwitchTakes) {
  Ladder ladder("vela-20-4.0");
  VelaRoutes::Routes routes(*ladder.writer);
  const std::pair<LpmKey, NexthopIndexes> batch[] = {{route(0, "10.0.0.0/20"), nexthop(1)},
                                                     {route(200, "10.0.0.0/20"), nexthop(1)}};
  EXPECT_THROW(routes.announceAll(batch), Orb::RangeException);
  for (const char* prefix : {"10.0.0.0/8", "10.1.1.0/24"}) {
    EXPECT_THROW(routes.announce(route(8, prefix), nexthop(1)), Orb::RangeException);
    EXPECT_THROW(routes.announce(route(0, prefix), {}), Orb::RangeException);
  }
  EXPECT_EQ(routes.programmed(), 1u);
  EXPECT_EQ(routes.size(), 1u);
}

}  // namespace
