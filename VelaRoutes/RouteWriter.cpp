#include "VelaRoutes/RouteWriter.h"

#include <algorithm>
#include <utility>

#include "VelaSwitchTable/VelaTableLpmTables.h"

namespace VelaRoutes {

using VelaSwitchTable::LpmBaseTable;

/// While one exists, routes change for another reason.
class RouteWriter::Changing {
 public:
  Changing(RouteWriter& writer, RouteChange change)
      : change_(writer.change_), before_(std::exchange(change_, change)) {}
  ~Changing() { change_ = before_; }

 private:
  RouteChange& change_;
  RouteChange before_;
};

void RouteWriter::Batch::is(bool on) {
  for (const auto& level : writer_.hashed_) level->batchIs(on);
  stagingIs(true);
}

void RouteWriter::Batch::flush() {
  for (const auto& level : writer_.hashed_) level->flush();
}

bool RouteWriter::Batch::staged(const Key& route) const {
  const HashedLevel* level = writer_.hashedFor(route.prefix().len());
  const LpmRoutes* shared = level ? writer_.routes_->routesOf(LpmRoutes::keyOf(route)) : nullptr;
  return shared && level->staged(*shared);
}

Ladder makeLadder(VelaSwitchApi::SwitchTables& tables) {
  Ladder ladder{
      VelaSwitchTable::lpmTableFactory("Route"), VelaSwitchTable::lpm11TableFactory("Lpm11"), {}};
  tables.tableIs(ladder.firstLevel);
  for (const VelaSwitchTable::LpmLevel& level : VelaSwitchTable::lpmLevels) {
    ladder.levels.push_back(
        VelaSwitchTable::lpmLevelTableFactory(level.longest(), level.table.name));
    tables.tableIs(ladder.levels.back());
  }
  return ladder;
}

RouteWriter::RouteWriter(Ladder ladder)
    : routes_(std::move(ladder.routes)),
      first_(*routes_, forgetting(), std::move(ladder.firstLevel)) {
  U32 rows = 0;
  for (auto& table : ladder.levels) {
    rows += table->profileConvertor().physicalTable().engine().capacity();
    hashed_.push_back(
        std::make_unique<HashedLevel>(*routes_, forgetting(), std::move(table), staging_));
    const VelaSwitchTable::LpmLevel& level = hashed_.back()->table().level();
    std::fill(&hashedFor_[level.prefixBaseLen], &hashedFor_[level.longest()] + 1,
              hashed_.back().get());
  }
  // Two ways have room for about half as many keys as they have rows.
  routes_->reserve(rows / 2);
  routes_->levelsAre(this);
}

RouteWriter::~RouteWriter() { routes_->levelsAre(nullptr); }

RouteLevel::RoutesListener RouteWriter::forgetting() {
  return [this](const RouteLevel::Routes& routes) { forget(routes); };
}

const RouteLevel& RouteWriter::levelFor(U8 prefixLen) const {
  const HashedLevel* hashed = hashedFor(prefixLen);
  return hashed ? static_cast<const RouteLevel&>(*hashed) : first_;
}

RouteLevel& RouteWriter::levelFor(U8 prefixLen) {
  return const_cast<RouteLevel&>(std::as_const(*this).levelFor(prefixLen));
}

LpmBaseTable* RouteWriter::levelOf(U8 prefixLen) const {
  const HashedLevel* hashed = hashedFor(prefixLen);
  return hashed ? &hashed->table() : nullptr;
}

void RouteWriter::soon(const Key& route) const {
  const Key key = LpmRoutes::keyOf(route);
  const U32 tag = VelaSwitchApi::entryTag(key);
  routes_->soon(tag);
  keySoon(key, tag);
}

void RouteWriter::keySoon(const Key& key, U32 tag) const {
  if (const HashedLevel* level = hashedFor(key.prefix().len())) level->table().soon(tag);
}

const VelaSwitchApi::HashBaseCuckooEntry* RouteWriter::itemOf(const Key& route) const {
  const HashedLevel* level = hashedFor(route.prefix().len());
  const LpmRoutes* shared = level ? routes_->routesOf(LpmRoutes::keyOf(route)) : nullptr;
  return shared ? level->itemOf(*shared) : nullptr;
}

template <class Visitor>
void RouteWriter::forEachLevel(const Visitor& visit) const {
  visit(first_);
  for (const auto& level : hashed_) visit(*level);
}

std::vector<RouteWriter::Key> RouteWriter::routesAt(const VelaSwitchApi::SwTable& level,
                                                    const Key& key) const {
  std::vector<Key> routes;
  forEachLevel([&](const RouteLevel& each) {
    if (&each.table() == &level) routes = each.routesAt(key);
  });
  return routes;
}

[[gnu::cold]] void RouteWriter::traceTrap(const Key& route) {
  LpmTable::trace(3, "not programming a route with cpuTrap: ", route);
}

void RouteWriter::handleRoute(LpmRoutes& shared, U32 node) {
  if (shared.has(LpmRoutes::desired, node) && !shared.tree.has(node)) [[unlikely]]
    traceTrap(shared.routeOf(node));
  levelFor(shared.key.prefix().len()).handleRoute(shared, node, change_);
}

void RouteWriter::stateRoute(const LpmRoutes& shared, U32 node, LpmStatus& status) const {
  levelFor(shared.key.prefix().len()).stateRoute(shared, node, status);
}

bool RouteWriter::staged(const LpmRoutes& shared) const {
  return levelFor(shared.key.prefix().len()).staged(shared);
}

bool RouteWriter::marked(const Key& route) const {
  return levelFor(route.prefix().len()).marked(route);
}

void RouteWriter::retry() { first_.retry(); }

VelaSwitchApi::SwTable& RouteWriter::tableOf(U8 prefixLen) const {
  return levelFor(prefixLen).table();
}

bool RouteWriter::announce(const Key& route, VelaSwitch::NexthopIndexes nexthop) {
  const Changing changing(*this, RouteChange::desired);
  const bool changed = routes_->entryIs(route, routeResult(nexthop, route.prefix().len()));
  claim(route);
  return changed;
}

bool RouteWriter::withdraw(const Key& route) {
  const Changing changing(*this, RouteChange::desired);
  return routes_->entryDel(route);
}

void RouteWriter::checkRoute(const Key& route) const {
  if (route.vrf() < first_.table().profile().vrfs()) return;
  throw Orb::RangeException("VelaSwitch::LpmKey::vrf >= VelaSwitch::ProfileInfo::vrfs not allowed");
}

void RouteWriter::handleRoute(const Key& route) {
  LpmRoutes* shared = routes_->routesOf(LpmRoutes::keyOf(route));
  if (!shared || !shared->tree.has(shared->nodeOf(route))) return;
  levelFor(route.prefix().len()).tryAgain(*shared, shared->nodeOf(route));
}

void RouteWriter::rebuild() {
  const Changing changing(*this, RouteChange::guessed);
  forEachLevel([&](const RouteLevel& level) {
    level.forEachGuess([&](const Key& route, VelaSwitch::NexthopIndexes nexthop) {
      routes_->entryIs(route, routeResult(nexthop, route.prefix().len()));
      routes_->flagIs(route, LpmRoutes::unclaimed, true);
    });
  });
}

void RouteWriter::claim(const Key& route) {
  if (routes_->flagIs(route, LpmRoutes::unclaimed, false)) handleRoute(route);
}

/// Those of the guesses that nobody announced go, and their keys stay as they are.
void RouteWriter::forget(const RouteLevel::Routes& guesses) {
  const Changing changing(*this, RouteChange::guessed);
  for (const Key& route : guesses) {
    if (unclaimed(route)) routes_->entryDel(route);
  }
}

/// Where registers do not tell a route's length, each of its rows was taken for a route of its own.
/// Those that lead where the route around them does were this one. Not known before all routes are:
/// one between the two may have another next hop.
void RouteWriter::complete() {
  RouteLevel::Routes explained = routes_->keys(LpmRoutes::unclaimed);
  std::erase_if(explained, [&](const Key& route) { return !first_.partOfRouteAround(route); });
  forget(explained);
  for (const Key& route : explained) first_.writeCellsOf(route, RouteChange::desired);
}

U32 RouteWriter::releaseUnclaimed(const std::function<void(const Key&)>& removing) {
  U32 released = 0;
  for (const Key& route : routes_->keys(LpmRoutes::unclaimed)) {
    // Whoever hears of one may announce another.
    if (!unclaimed(route)) continue;
    if (removing) removing(route);
    if (!routes_->flagIs(route, LpmRoutes::unclaimed, false)) continue;
    const Changing changing(*this, RouteChange::released);
    routes_->entryDel(route);
    ++released;
  }
  return released;
}

U64 RouteWriter::programmedCells() const {
  U64 count = first_.programmedCells();
  routes_->forEachKey([&](const LpmRoutes& shared) {
    const bool held = shared.written && shared.nodes[LpmRoutes::held] != 0;
    const HashedLevel* level = held ? hashedFor(shared.key.prefix().len()) : nullptr;
    if (level && level->inHardware(shared)) ++count;
  });
  return count;
}

}  // namespace VelaRoutes
