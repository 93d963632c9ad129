#include "service/RouteService.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cstring>

#include "VelaSwitchTable/VelaTableL3Lag.h"
#include "agent/TableAdapter.h"

namespace VelaService {

using VelaAgent::EntryProgrammedStatus;
using VelaSwitch::L3LagIndex;
using VelaSwitch::LpmKey;
using VelaSwitch::NexthopIndexes;
using VelaSwitchTable::L3LagResult;

/// A route that is about to be announced.
struct RouteService::Placing {
  Route* route = nullptr;
  Slot slot;
  LpmKey key;
  NexthopIndexes result;
};

namespace {

/// How many routes go down together.
constexpr std::size_t batchSize = VelaSwitchApi::batchMost;

RouteName nameOf(const LpmKey& key, U32 table) {
  RouteName name{table, AF_INET, key.prefix().len()};
  const U32 address = htonl(key.prefix().address().number());
  std::memcpy(name.address.data(), &address, sizeof address);
  return name;
}

LpmKey keyOf(const RouteName& name, U8 vrf) {
  U32 address = 0;
  std::memcpy(&address, name.address.data(), sizeof address);
  return {vrf, Ipnet::IpPrefix(Ipnet::IpAddr(ntohl(address)), name.len)};
}

}  // namespace

RouteService::RouteService(VelaAgent::Agent& agent, RouteSettings settings, InterfaceNamer namer)
    : agent_(agent),
      settings_(std::move(settings)),
      namer_(std::move(namer)),
      routeEntries_(agent.entriesOf("Route", 0)),
      lagEntries_(agent.entriesOf("L3Lag", 0)),
      nexthops_(settings_.nexthopFile, [this](U8 lag, U64 ports) { return writeLag(lag, ports); }),
      rebuilt_(agent.entriesOf("Route", 0).unclaimed() != 0 ||
               agent.entriesOf("L3Lag", 0).unclaimed() != 0) {
  for (const auto& [table, vrf] : settings_.vrfs) tables_[vrf] = table;
  rebuild();
  agent_.routeWriter().routes().entryStatuses().observerIs(this);
}

RouteService::~RouteService() { agent_.routeWriter().routes().entryStatuses().observerDel(this); }

/// Routes that hardware holds are routes of a connection that is past.
void RouteService::rebuild() {
  lagEntries_.forEachEntry([&](VelaAgent::AnyRef key, VelaAgent::AnyRef result) {
    const U16 lag = key.as<L3LagIndex>().value();
    if (lag < Nexthops::lagCount) {
      nexthops_.lagIs(static_cast<U8>(lag), result.as<L3LagResult>().portMask().bits());
    }
  });
  routeEntries_.forEachEntry([&](VelaAgent::AnyRef key, VelaAgent::AnyRef result) {
    const auto& at = key.as<LpmKey>();
    const auto& to = result.as<NexthopIndexes>();
    const auto table = tables_.find(at.vrf());
    const U16 lag = to.l3LagIndex().value();
    if (lag >= Nexthops::lagCount) return;
    const Slot slot{static_cast<U8>(lag), to.rewriteIndex()};
    nexthops_.rebuilt(slot);
    // What is in no VRF of ours goes with all that nobody claims.
    if (table == tables_.end()) return orphans_.push_back(slot);
    Route& route = routes_[nameOf(at, table->second)];
    route.slot = slot;
    route.placed = true;
    ++figures_.routes;
    wantedIs(route, true);
    statusIs(at, route, routeEntries_.status(key));
  });
  nexthops_.started();
}

bool RouteService::writeLag(U8 lag, U64 ports) {
  const L3LagIndex key(lag);
  if (ports == 0) {
    lagEntries_.withdraw(key);
    return lagEntries_.status(key) != EntryProgrammedStatus::hardwareError;
  }
  const L3LagResult result{VelaSwitch::IngressPortMask(ports)};
  return lagEntries_.announce(key, result) == EntryProgrammedStatus::programmed;
}

void RouteService::connected(Clock::time_point now) {
  connected_ = true;
  swept_ = sweeping_ = false;
  since_ = last_ = now;
  ++connection_;
  ++figures_.connections;
  figures_.announced = 0;
  // The next daemon may call other things by the same numbers.
  objects_.clear();
  interfaces_.clear();
}

void RouteService::take(const Message& message, Clock::time_point now) {
  last_ = now;
  ++figures_.messages;
  std::visit([this](const auto& each) { take(each); }, message);
}

void RouteService::take(const RouteMessage& message) {
  if (message.withdrawn) {
    const auto at = routes_.find(message.route);
    if (at == routes_.end()) return;
    wantedIs(at->second, false);
    return enqueue(*at);
  }
  const auto [at, isNew] = routes_.try_emplace(message.route);
  Route& route = at->second;
  figures_.routes += isNew;
  figures_.announced += isNew || route.connection != connection_;
  const Hop hop = message.nexthop != 0 ? resolved(message.nexthop) : message.hop;
  // One that is there as announced costs nothing; one that was rebuilt has to be claimed.
  const bool same = route.wanted && route.hop == hop && route.placed && route.connection != 0 &&
                    route.refusal == Refusal::none;
  awaited_ = awaited_ || hop.refusal == Refusal::unknownNexthop;
  route.hop = hop;
  route.nexthop = message.nexthop;
  route.connection = connection_;
  wantedIs(route, true);
  if (!same) enqueue(*at);
}

Hop RouteService::resolved(U32 id) const {
  static constexpr Hop unknown{Hop::Kind::drop, Refusal::unknownNexthop};
  const auto at = objects_.find(id);
  if (at == objects_.end()) return unknown;
  const std::vector<U32>& group = at->second.group;
  if (group.empty()) return at->second.hop;
  const auto first = objects_.find(group.front());
  if (first == objects_.end() || !first->second.group.empty()) return unknown;
  Hop hop = first->second.hop;
  hop.ofSeveral = group.size() > 1;
  return hop;
}

void RouteService::take(const NexthopMessage& message) {
  // Its routes are withdrawn or changed by messages of their own.
  if (message.withdrawn) {
    objects_.erase(message.id);
    awaited_ = true;
    return;
  }
  const auto [at, isNew] = objects_.try_emplace(message.id);
  Nexthop& object = at->second;
  const bool same = !isNew && object.hop == message.hop && object.group == message.group;
  object = {message.hop, message.group};
  if (same || (isNew && !awaited_)) return;
  awaited_ = false;
  enqueueAll([&](Route& route) {
    if (route.nexthop == 0 || route.connection != connection_ || !route.wanted) return false;
    const Hop hop = resolved(route.nexthop);
    awaited_ = awaited_ || hop.refusal == Refusal::unknownNexthop;
    // It stays with a next hop that is gone until its own message comes.
    if (hop == route.hop || hop.refusal == Refusal::unknownNexthop) return false;
    route.hop = hop;
    return true;
  });
}

void RouteService::enqueue(Routes::value_type& route) {
  if (std::exchange(route.second.queued, true)) return;
  queue_.push_back(&route);
}

template <class Wanted>
void RouteService::enqueueAll(const Wanted& wanted) {
  for (auto& route : routes_) {
    if (wanted(route.second)) enqueue(route);
  }
}

const std::string* RouteService::interfaceName(U32 number) {
  const auto [at, isNew] = interfaces_.try_emplace(number);
  if (isNew) at->second = namer_(number);
  if (!at->second.empty()) return &at->second;
  // It may come yet.
  interfaces_.erase(at);
  return nullptr;
}

/// Finds a slot for a route that is wanted, and refers to it.
Refusal RouteService::place(const RouteName& name, const Route& route, Placing& placing) {
  if (name.family != AF_INET) return name.family == AF_INET6 ? Refusal::ipv6 : Refusal::mpls;
  const auto vrf = settings_.vrfs.find(name.table);
  if (vrf == settings_.vrfs.end()) return Refusal::unknownTable;
  const Hop& hop = route.hop;
  if (hop.refusal != Refusal::none) return hop.refusal;
  Nexthops::Owner owner;
  if (hop.kind == Hop::Kind::local) owner.ports = U64{1} << agent_.profile().ports();
  if (hop.kind == Hop::Kind::gateway) {
    const std::string* interface = interfaceName(hop.interface);
    const auto ports = interface ? settings_.portMasks.find(*interface) : settings_.portMasks.end();
    if (ports == settings_.portMasks.end()) return Refusal::noPort;
    owner = {ports->second, *interface, hop.gateway};
  }
  switch (nexthops_.acquire(owner, placing.slot)) {
    case Nexthops::Outcome::noIndex:
      return Refusal::noIndex;
    case Nexthops::Outcome::hardwareError:
      return Refusal::hardwareError;
    case Nexthops::Outcome::good:
      break;
  }
  placing.key = keyOf(name, vrf->second);
  placing.result = {L3LagIndex(placing.slot.lag), placing.slot.rewrite};
  return Refusal::none;
}

void RouteService::refusalIs(Route& route, Refusal refusal) {
  if (route.refusal != Refusal::none) --figures_.refused[static_cast<std::size_t>(route.refusal)];
  if (refusal != Refusal::none) ++figures_.refused[static_cast<std::size_t>(refusal)];
  route.refusal = refusal;
}

void RouteService::wantedIs(Route& route, bool wanted) {
  figures_.wanted += U64{wanted} - U64{route.wanted};
  route.wanted = wanted;
}

void RouteService::statusIs(const LpmKey& key, Route& route, EntryProgrammedStatus status) {
  if (route.status == status) return;
  const auto count = [this](EntryProgrammedStatus of) -> U64* {
    if (of == EntryProgrammedStatus::programmed) return &figures_.programmed;
    return of == EntryProgrammedStatus::tableFull ? &figures_.waiting : nullptr;
  };
  if (U64* before = count(route.status)) --*before;
  if (U64* after = count(status)) ++*after;
  route.status = status;
  if (statusListener_) statusListener_(key, status);
}

/// The status of a route changed, perhaps for another's sake.
void RouteService::handleKey(const LpmKey& key) {
  const auto table = tables_.find(key.vrf());
  if (table == tables_.end()) return;
  const auto at = routes_.find(nameOf(key, table->second));
  if (at != routes_.end()) statusIs(key, at->second, routeEntries_.status(key));
}

/// Takes a route out of hardware if it is there, and then its reference.
void RouteService::withdraw(Routes::value_type& route) {
  if (!std::exchange(route.second.placed, false)) return;
  const LpmKey key = keyOf(route.first, settings_.vrfs.at(route.first.table));
  routeEntries_.withdraw(key);
  agent_.settle();
  nexthops_.release(route.second.slot);
  figures_.ofSeveral -= std::exchange(route.second.ofSeveral, false);
  statusIs(key, route.second, EntryProgrammedStatus::notProgrammed);
}

/// Routes have their new slots before their old ones are given up.
void RouteService::announce() {
  if (placings_.empty()) return;
  std::vector<VelaAgent::Entries::Announcement> all;
  all.reserve(placings_.size());
  for (const Placing& placing : placings_) all.push_back({placing.key, placing.result});
  routeEntries_.announceAll(all, *this);
  agent_.settle();
  placings_.clear();
}

void RouteService::entryDone(std::size_t number, const VelaSwitchApi::EntryOutcome& outcome) {
  const Placing& placing = placings_[number];
  Route& route = *placing.route;
  if (route.placed) nexthops_.release(route.slot);
  route.slot = placing.slot;
  route.placed = true;
  figures_.ofSeveral += U64{route.hop.ofSeveral} - U64{route.ofSeveral};
  route.ofSeveral = route.hop.ofSeveral;
  statusIs(placing.key, route, outcome.status);
  const bool failed = outcome.status == EntryProgrammedStatus::hardwareError;
  refusalIs(route, failed ? Refusal::hardwareError : Refusal::none);
}

void RouteService::work(std::size_t most) {
  placings_.reserve(batchSize);
  for (; most > 0 && !queue_.empty(); --most) {
    Routes::value_type& each = *queue_.front();
    queue_.pop_front();
    Route& route = each.second;
    route.queued = false;
    if (!route.wanted) {
      withdraw(each);
      refusalIs(route, Refusal::none);
      figures_.announced -= route.connection == connection_ && connection_ != 0;
      --figures_.routes;
      routes_.erase(each.first);
      continue;
    }
    Placing placing{&route};
    const Refusal refusal = place(each.first, route, placing);
    if (refusal != Refusal::none) {
      withdraw(each);
      refusalIs(route, refusal);
      continue;
    }
    placings_.push_back(placing);
    if (placings_.size() == batchSize) announce();
  }
  announce();
  if (!queue_.empty()) return;
  if (sweeping_) return endSweep();
  // Whoever was refused for want of an index may have one now.
  if (nexthops_.freed() && figures_.refused[static_cast<std::size_t>(Refusal::noIndex)] != 0) {
    enqueueAll([](const Route& route) { return route.refusal == Refusal::noIndex; });
  }
}

void RouteService::tick(Clock::time_point now) {
  if (!queue_.empty()) return;
  const bool quiet = now - last_ >= settings_.quiet || now - since_ >= settings_.longest;
  if (connected_ && !swept_ && quiet) return beginSweep();
  // Registers that failed may answer again.
  if (figures_.refused[static_cast<std::size_t>(Refusal::hardwareError)] != 0) {
    enqueueAll([](const Route& route) { return route.refusal == Refusal::hardwareError; });
  }
}

void RouteService::beginSweep() {
  swept_ = sweeping_ = true;
  // Guesses that announced routes account for go without a write.
  if (rebuilt_) agent_.complete();
  removed_ = 0;
  enqueueAll([this](Route& route) {
    if (route.connection == connection_) return false;
    wantedIs(route, false);
    ++removed_;
    return true;
  });
}

/// What no route stands for is left of the restart: rows of levels that no route was guessed from,
/// and LAGs.
void RouteService::endSweep() {
  sweeping_ = false;
  if (!std::exchange(rebuilt_, false)) return;
  const auto ignore = [](const auto&) {};
  routeEntries_.reconcile(ignore);
  for (const auto& adapter : agent_.tables()) {
    if (routeEntries_.fills(adapter->table())) adapter->typed().reconcile(ignore);
  }
  for (const Slot slot : std::exchange(orphans_, {})) nexthops_.release(slot);
  lagEntries_.reconcile(ignore);
  agent_.settle();
}

void RouteService::forEachRefused(
    const std::function<void(const RouteName&, Refusal)>& visit) const {
  for (const auto& [name, route] : routes_) {
    const bool waits = route.status == EntryProgrammedStatus::tableFull;
    if (waits || route.refusal != Refusal::none) visit(name, route.refusal);
  }
}

}  // namespace VelaService
