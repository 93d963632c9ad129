#include "agent/RouteEntries.h"

#include <algorithm>

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

RouteEntries::RouteEntries(VelaRoutes::RouteWriter& writer, const VelaSwitch::ProfileInfo& profile,
                           std::vector<TableEntries*> levels)
    : Entries("Route", 0, Orb::shapeOf<Key>, Orb::shapeOf<NexthopIndexes>,
              {lookupBy<Key>([](DataPath& dataPath, U32, const Key& route) {
                 return VelaDevice::route(dataPath, route.vrf(), route.prefix().address());
               }),
               lookupBy<RouteAddress>([](DataPath& dataPath, U32, const RouteAddress& at) {
                 return VelaDevice::route(dataPath, at.vrf(), at.address());
               })}),
      routes_(writer),
      profile_(profile),
      levels_(std::move(levels)) {
  routes_.admissionListenerIs(this);
  for (U8 len = 0; len <= 32; ++len) {
    levelOf_[len] = *std::find_if(levels_.begin(), levels_.end(), [&](const TableEntries* each) {
      return each->fills(writer.tableOf(len));
    });
  }
}

void RouteEntries::checkResult(AnyRef result, std::vector<std::string>&) const {
  if (result.as<NexthopIndexes>().valid()) return;
  throw InputException("a route needs a next hop: l3LagIndex 57 is none");
}

void RouteEntries::announceAll(std::span<const Announcement> all, BatchListener& listener) {
  const auto routeAt = [&](std::size_t number) {
    return VelaRoutes::Routes::Route(all[number].key.as<Key>(),
                                     all[number].result.as<NexthopIndexes>());
  };
  routes_.announceAll(all.size(), routeAt, listener);
}

Orb::Seconds RouteEntries::lastHit(AnyRef key) const {
  const auto status = routes_.writer().routes().entryStatus(key.as<Key>());
  return status ? status->lastHit : Orb::Seconds();
}

bool RouteEntries::pollHitBits(Orb::Seconds now) {
  bool good = true;
  for (TableEntries* level : levels_) good = level->pollHitBits(now) && good;
  return good;
}

bool RouteEntries::fills(const VelaSwitchApi::SwTable& table) const {
  return std::any_of(levels_.begin(), levels_.end(),
                     [&](const TableEntries* level) { return level->fills(table); });
}

std::vector<Competitor> RouteEntries::yielding(AnyRef key) const {
  const Key shared = VelaSwitchTable::LpmRoutes::keyOf(key.as<Key>());
  const TableEntries& level = levelOf(key.as<Key>());
  return level.engine() ? level.yielding(shared) : std::vector<Competitor>();
}

AnyValue RouteEntries::resultOf(AnyRef key) const {
  const auto nexthop = routes_.nexthop(key.as<Key>());
  return nexthop ? AnyValue::of(*nexthop) : AnyValue();
}

void RouteEntries::forEachEntry(const EntryVisitor& visit) const {
  for (const Key& key : routes_.writer().routes().entries().keys()) {
    visit(key, *routes_.nexthop(key));
  }
}

void RouteEntries::forEachStatus(const StatusVisitor& visit) const {
  const auto statuses = routes_.writer().routes().entryStatuses();
  for (const Key& key : statuses.keys()) {
    const auto status = statuses.find(key);
    visit(key, status->status, status->lastHit);
  }
}

U64 RouteEntries::moves() const {
  U64 moves = 0;
  for (const TableEntries* level : levels_) moves += level->moves();
  return moves;
}

void RouteEntries::reconcile(const AnyListener& removing) {
  routes_.reconcile([&](const Key& route) { removing(route); });
}

}  // namespace VelaAgent
