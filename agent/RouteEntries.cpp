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
      levels_(std::move(levels)) {
  writer_.routes().entryStatuses().observerIs(&refusals_);
}

RouteEntries::~RouteEntries() { writer_.routes().entryStatuses().observerDel(&refusals_); }

EntryProgrammedStatus RouteEntries::statusOf(const Key& key) const {
  const auto* status = writer_.routes().entryStatus(key);
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
  return writer_.routes().entry(route) && !writer_.unclaimed(route);
}

EntryProgrammedStatus RouteEntries::program(AnyRef key, AnyRef result) {
  const Key& route = key.as<Key>();
  refusals_.forget(route);
  const bool changed = writer_.routes().entryIs(
      route, routeResult(result.as<NexthopIndexes>(), route.prefix().len()));
  writer_.claim(route);
  if (!changed && statusOf(route) != EntryProgrammedStatus::programmed) writer_.handleRoute(route);
  const EntryProgrammedStatus outcome = statusOf(route);
  if (outcome != EntryProgrammedStatus::programmed) refusals_.is(route);
  return outcome;
}

bool RouteEntries::withdraw(AnyRef key) {
  const Key& route = key.as<Key>();
  refusals_.forget(route);
  return writer_.routes().entryDel(route);
}

bool RouteEntries::pollHitBits(Orb::Seconds now) {
  bool good = true;
  for (TableEntries* level : levels_) good = level->pollHitBits(now) && good;
  return good;
}

std::vector<Entries::Competitor> RouteEntries::competing(AnyRef key) const {
  const Key& route = key.as<Key>();
  auto* level = writer_.levelOf(route.prefix().len());
  if (!level) return {};
  return competitorsOf(*level, level->cachedItem(HashedLevel::keyOf(route)).get());
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
  const auto& statuses = writer_.routes().entryStatuses();
  for (const Key& key : statuses.keys()) {
    const auto* status = statuses.find(key);
    visit(key, status->status, status->lastHit);
  }
}

U32 RouteEntries::programmed() const {
  U32 count = 0;
  writer_.routes().entryStatuses().forEach([&](const Key& key, const auto& status) {
    if (status.status == EntryProgrammedStatus::programmed && !writer_.unclaimed(key)) ++count;
  });
  return count;
}

U32 RouteEntries::waiting() const {
  U32 count = 0;
  writer_.routes().entryStatuses().forEach([&](const Key&, const auto& status) {
    if (status.status == EntryProgrammedStatus::tableFull) ++count;
  });
  return count;
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
