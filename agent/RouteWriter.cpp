#include "agent/RouteWriter.h"

namespace VelaAgent {

using VelaSwitchTable::LpmBaseTable;
using VelaSwitchTable::LpmResult;

RouteWriter::RouteWriter(Orb::Ptr<VelaSwitchTable::LpmTable> routes,
                         Orb::Ptr<VelaSwitchTable::Lpm11Table> firstLevel,
                         std::vector<Orb::Ptr<LpmBaseTable>> levels)
    : routes_(std::move(routes)), first_(*routes_, forgetting(), std::move(firstLevel)) {
  for (auto& table : levels) {
    hashed_.push_back(std::make_unique<HashedLevel>(*routes_, forgetting(), std::move(table)));
  }
  routes_->entries().observerIs(this);
}

RouteWriter::~RouteWriter() { routes_->entries().observerDel(this); }

RouteLevel::RoutesListener RouteWriter::forgetting() {
  return [this](const RouteLevel::Routes& routes) { rebuilt_.forget(routes); };
}

const HashedLevel* RouteWriter::hashedFor(U8 prefixLen) const {
  constexpr U8 step = VelaSwitchTable::LpmLevel::prefixRange + 1;
  if (prefixLen <= FirstLevel::keyLength) return nullptr;
  return hashed_[static_cast<std::size_t>(prefixLen - FirstLevel::keyLength - 1) / step].get();
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

void RouteWriter::handleKey(const Key& route) {
  const LpmResult* announced = routes_->entry(route);
  const bool trap = announced && announced->cpuTrap();
  levelFor(route.prefix().len()).routeIs(route, trap ? nullptr : announced, rebuilt_.change());
  if (!announced) {
    rebuilt_.claim(route);
    routes_->entryStatusDel(route);
  }
  if (!trap) return;
  // A key of a level holds several routes, and has one flag for them all.
  VelaSwitchTable::LpmTable::trace(3, "not programming a route with cpuTrap: ", route);
  routes_->entryStatusIs(VelaSwitchTable::LpmStatus(route));
}

void RouteWriter::handleRoute(const Key& route) {
  const LpmResult* result = routes_->entry(route);
  if (result && !result->cpuTrap()) levelFor(route.prefix().len()).tryAgain(route, *result);
}

void RouteWriter::rebuild() {
  rebuilt_.take([&](const RouteLevel::Guess& guess) {
    forEachLevel([&](const RouteLevel& level) { level.forEachGuess(guess); });
  });
}

void RouteWriter::claim(const Key& route) {
  if (rebuilt_.claim(route)) handleRoute(route);
}

/// Where registers do not tell a route's length, each of its rows was taken for a route of its own.
/// Those that lead where the route around them does were this one. Not known before all routes are:
/// one between the two may have another next hop.
void RouteWriter::complete() {
  const RouteLevel::Routes explained =
      rebuilt_.those([&](const Key& route) { return first_.partOfRouteAround(route); });
  rebuilt_.forget(explained);
  for (const Key& route : explained) first_.writeCellsOf(route, RouteChange::desired);
}

U64 RouteWriter::programmedCells() const {
  U64 count = 0;
  forEachLevel([&](const RouteLevel& level) { count += level.programmedCells(); });
  return count;
}

}  // namespace VelaAgent
