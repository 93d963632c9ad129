#include "agent/RouteEntries.h"

#include <algorithm>
#include <utility>

#include "device/RouteLookup.h"

namespace VelaAgent {

using VelaDevice::DataPath;
using VelaSwitch::NexthopIndexes;

NexthopIndexes nexthopOfNumber(U64 number) {
  constexpr U32 lags = VelaSwitch::L3LagIndex::null;
  if (number >= nexthopNumbers) {
    throw InputException("next hop " + std::to_string(number) + ": there are " +
                         std::to_string(nexthopNumbers));
  }
  return {VelaSwitch::L3LagIndex(number % lags), static_cast<U8>(number / lags)};
}

RouteEntries::RouteEntries(RouteWriter& writer, const VelaSwitch::ProfileInfo& profile,
                           std::vector<TableEntries*> levels)
    : Entries("Route", 0, Orb::shapeOf<Key>, Orb::shapeOf<NexthopIndexes>,
              {lookupBy<Key>([](DataPath& dataPath, U32, const Key& route) {
                 return VelaDevice::route(dataPath, route.vrf(), route.prefix().address());
               }),
               lookupBy<RouteAddress>([](DataPath& dataPath, U32, const RouteAddress& at) {
                 return VelaDevice::route(dataPath, at.vrf(), at.address());
               })}),
      writer_(writer),
      profile_(profile),
      levels_(std::move(levels)) {}

RouteEntries::~RouteEntries() { writer_.routes().entryStatuses().observerDel(this); }

EntryProgrammedStatus RouteEntries::statusOf(const Key& key) const {
  const auto status = writer_.routes().entryStatus(key);
  if (!status) return EntryProgrammedStatus::notProgrammed;
  const bool marked = status->status == EntryProgrammedStatus::programmed && writer_.marked(key);
  return marked ? EntryProgrammedStatus::hardwareError : status->status;
}

void RouteEntries::checkResult(AnyRef result, std::vector<std::string>&) const {
  if (result.as<NexthopIndexes>().valid()) return;
  throw InputException("a route needs a next hop: l3LagIndex 57 is none");
}

bool RouteEntries::announced(AnyRef key) const {
  const Key& route = key.as<Key>();
  return writer_.routes().has(LpmRoutes::desired, route) && !writer_.unclaimed(route);
}

EntryProgrammedStatus RouteEntries::program(AnyRef key, AnyRef result) {
  const Key& route = key.as<Key>();
  return outcomeOf(route, announceRoute(route, result.as<NexthopIndexes>()));
}

/// Rows of routes that follow each other are staged together. A route whose row could not be is
/// told at once, with those before it, for what is known of it then.
void RouteEntries::announceAll(std::span<const Announcement> all, BatchListener& listener) {
  struct Change {
    bool known;
    bool changed;
  };
  std::vector<Change> changes;
  RouteWriter::Batch batch(writer_);
  std::size_t told = 0;
  const auto tellAll = [&] {
    // Whoever hears of routes may announce others; and one that is tried again is told what becomes
    // of it.
    batch.stagingIs(false);
    batch.flush();
    while (told < changes.size()) {
      const std::size_t number = told++;
      // It may have joined others of its key whose status is what it was.
      if (!writer_.routes().has(LpmRoutes::stated, all[number].key.as<Key>())) {
        writer_.routes().handleStatus(all[number].key.as<Key>());
      }
      const auto& [known, changed] = changes[number];
      listener.entryBegins(number);
      listener.entryDone(number, {known, changed, outcomeOf(all[number].key.as<Key>(), changed)});
    }
    batch.stagingIs(true);
  };
  const auto announce = [&](std::size_t number) {
    const Key& route = all[number].key.as<Key>();
    // Rows of the first level, several of a route, are not staged.
    if (number - told == VelaSwitchApi::batchMost || batch.staged(route) ||
        !writer_.levelOf(route.prefix().len())) {
      tellAll();
    }
    listener.entryBegins(number);
    batch.numberIs(number);
    const bool known = announced(all[number].key);
    const bool changed = announceRoute(route, all[number].result.as<NexthopIndexes>());
    changes.push_back({known, changed});
    if (batch.staged(route)) return;
    if (changed || statusOf(route) != EntryProgrammedStatus::programmed) tellAll();
  };
  try {
    for (std::size_t number = 0; number < all.size(); ++number) announce(number);
  } catch (...) {
    tellAll();
    throw;
  }
  tellAll();
}

bool RouteEntries::announceRoute(const Key& route, const NexthopIndexes& nexthop) {
  LpmTable& routes = writer_.routes();
  routes.flagIs(route, LpmRoutes::noted, false);
  const bool changed = routes.entryIs(route, routeResult(nexthop, route.prefix().len()));
  writer_.claim(route);
  return changed;
}

EntryProgrammedStatus RouteEntries::outcomeOf(const Key& route, bool changed) {
  LpmTable& routes = writer_.routes();
  if (!changed && statusOf(route) != EntryProgrammedStatus::programmed) writer_.handleRoute(route);
  const EntryProgrammedStatus outcome = statusOf(route);
  if (outcome == EntryProgrammedStatus::programmed) return outcome;
  if (!std::exchange(watching_, true)) routes.entryStatuses().observerIs(this);
  routes.flagIs(route, LpmRoutes::noted, true);
  return outcome;
}

void RouteEntries::handleKey(const Key& route) {
  LpmTable& routes = writer_.routes();
  if (!routes.has(LpmRoutes::noted, route)) return;
  if (statusOf(route) != EntryProgrammedStatus::programmed) return;
  routes.flagIs(route, LpmRoutes::noted, false);
  admittedIs({keyShape(), &route});
}

bool RouteEntries::withdraw(AnyRef key) { return writer_.routes().entryDel(key.as<Key>()); }

bool RouteEntries::pollHitBits(Orb::Seconds now) {
  bool good = true;
  for (TableEntries* level : levels_) good = level->pollHitBits(now) && good;
  return good;
}

std::vector<Entries::Competitor> RouteEntries::competing(AnyRef key) const {
  const Key& route = key.as<Key>();
  auto* level = writer_.levelOf(route.prefix().len());
  if (!level) return {};
  return competitorsOf(*level, level->cachedItem(LpmRoutes::keyOf(route)).get());
}

const TableEntries& RouteEntries::levelOf(const Key& route) const {
  const VelaSwitchApi::SwTable& table = writer_.tableOf(route.prefix().len());
  return **std::find_if(levels_.begin(), levels_.end(),
                        [&](const TableEntries* each) { return each->fills(table); });
}

bool RouteEntries::fills(const VelaSwitchApi::SwTable& table) const {
  return std::any_of(levels_.begin(), levels_.end(),
                     [&](const TableEntries* level) { return level->fills(table); });
}

void RouteEntries::forEachEntry(const EntryVisitor& visit) const {
  for (const Key& key : writer_.routes().entries().keys()) {
    visit(key, routeNexthop(*writer_.routes().entry(key)));
  }
}

void RouteEntries::forEachStatus(const StatusVisitor& visit) const {
  const auto statuses = writer_.routes().entryStatuses();
  for (const Key& key : statuses.keys()) {
    const auto status = statuses.find(key);
    visit(key, status->status, status->lastHit);
  }
}

template <class Wanted>
U32 RouteEntries::count(LpmRoutes::Flag flag, const Wanted& wanted) const {
  U32 count = 0;
  writer_.routes().forEachRoute(flag, [&](const LpmRoutes& routes, U32 node) {
    if (wanted(routes, node, writer_.routes().statusOf(routes, node).status)) ++count;
  });
  return count;
}

U32 RouteEntries::programmed() const {
  return count(LpmRoutes::stated, [](const LpmRoutes& routes, U32 node, auto status) {
    return status == EntryProgrammedStatus::programmed && !routes.has(LpmRoutes::unclaimed, node);
  });
}

U32 RouteEntries::waiting() const {
  return count(LpmRoutes::stated, [](const LpmRoutes&, U32, auto status) {
    return status == EntryProgrammedStatus::tableFull;
  });
}

U32 RouteEntries::refused() const {
  return count(LpmRoutes::noted, [&](const LpmRoutes& routes, U32 node, auto status) {
    return status != EntryProgrammedStatus::programmed || !routes.has(LpmRoutes::stated, node) ||
           writer_.marked(routes.routeOf(node));
  });
}

U64 RouteEntries::moves() const {
  U64 moves = 0;
  for (const TableEntries* level : levels_) moves += level->moves();
  return moves;
}

void RouteEntries::reconcile(const AnyListener& removing) {
  writer_.releaseUnclaimed([&](const Key& route) { removing(route); });
  for (const Key& key : writer_.routes().entries().keys()) {
    const EntryProgrammedStatus status = statusOf(key);
    if (status != EntryProgrammedStatus::programmed && status != EntryProgrammedStatus::tableFull) {
      writer_.handleRoute(key);
    }
  }
  writer_.retry();
}

}  // namespace VelaAgent
