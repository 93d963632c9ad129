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
  rebuild();
}

RouteService::~RouteService() = default;

/// The kernel's tables by their VRFs.
std::map<U8, U32> RouteService::tables() const {
  std::map<U8, U32> tables;
  for (const auto& [table, vrf] : settings_.vrfs) tables[vrf] = table;
  return tables;
}

/// Routes that hardware holds are routes of a connection that is past.
void RouteService::rebuild() {
  lagEntries_.forEachEntry([&](VelaAgent::AnyRef key, VelaAgent::AnyRef result) {
    const U16 lag = key.as<L3LagIndex>().value();
    if (lag < Nexthops::lagCount) {
      nexthops_.lagIs(static_cast<U8>(lag), result.as<L3LagResult>().portMask().bits());
    }
  });
  const auto tables = this->tables();
  routeEntries_.forEachEntry([&](VelaAgent::AnyRef key, VelaAgent::AnyRef result) {
    const auto& at = key.as<LpmKey>();
    const auto& to = result.as<NexthopIndexes>();
    const auto table = tables.find(at.vrf());
    const U16 lag = to.l3LagIndex().value();
    if (lag >= Nexthops::lagCount) return;
    const Slot slot{static_cast<U8>(lag), to.rewriteIndex()};
    nexthops_.rebuilt(slot);
    // What is in no VRF of ours goes with all that nobody claims.
    if (table == tables.end()) return orphans_.push_back(slot);
    Route& route = routes_[nameOf(at, table->second)];
    route.slot = slot;
    route.placed = route.wanted = true;
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
  // The next daemon may call other things by the same numbers.
  objects_.clear();
  interfaces_.clear();
}

void RouteService::take(const Message& message, Clock::time_point now) {
  last_ = now;
  ++messages_;
  std::visit([this](const auto& each) { take(each); }, message);
}

void RouteService::take(const RouteMessage& message) {
  if (message.withdrawn) {
    const auto at = routes_.find(message.route);
    if (at == routes_.end()) return;
    at->second.wanted = false;
    return enqueue(*at);
  }
  auto& entry = *routes_.try_emplace(message.route).first;
  Route& route = entry.second;
  const Hop hop = message.nexthop != 0 ? resolved(message.nexthop) : message.hop;
  // One that is there as announced costs nothing; one that was rebuilt has to be claimed.
  const bool same = route.wanted && route.hop == hop && route.placed && route.connection != 0 &&
                    route.refusal == Refusal::none;
  awaited_ = awaited_ || hop.refusal == Refusal::unknownNexthop;
  route.hop = hop;
  route.nexthop = message.nexthop;
  route.connection = connection_;
  route.wanted = true;
  if (!same) enqueue(entry);
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
  if (route.refusal != Refusal::none) --refused_[static_cast<std::size_t>(route.refusal)];
  if (refusal != Refusal::none) ++refused_[static_cast<std::size_t>(refusal)];
  route.refusal = refusal;
}

/// Takes a route out of hardware if it is there, and then its reference.
void RouteService::withdraw(Routes::value_type& route) {
  if (!std::exchange(route.second.placed, false)) return;
  routeEntries_.withdraw(keyOf(route.first, settings_.vrfs.at(route.first.table)));
  agent_.settle();
  nexthops_.release(route.second.slot);
}

/// Routes have their new slots before their old ones are given up.
void RouteService::announce(std::vector<Placing>& placings) {
  if (placings.empty()) return;
  std::vector<VelaAgent::Entries::Announcement> all;
  all.reserve(placings.size());
  for (const Placing& placing : placings) all.push_back({placing.key, placing.result});
  VelaSwitchApi::EntryOutcomes outcomes;
  routeEntries_.announceAll(all, outcomes);
  agent_.settle();
  for (std::size_t number = 0; number < placings.size(); ++number) {
    const Placing& placing = placings[number];
    Route& route = *placing.route;
    if (route.placed) nexthops_.release(route.slot);
    route.slot = placing.slot;
    route.placed = true;
    const bool failed = outcomes.all[number].status == EntryProgrammedStatus::hardwareError;
    refusalIs(route, failed ? Refusal::hardwareError : Refusal::none);
  }
  placings.clear();
}

void RouteService::work(std::size_t most) {
  std::vector<Placing> placings;
  placings.reserve(std::min(most, batchSize));
  for (; most > 0 && !queue_.empty(); --most) {
    Routes::value_type& each = *queue_.front();
    queue_.pop_front();
    Route& route = each.second;
    route.queued = false;
    if (!route.wanted) {
      withdraw(each);
      refusalIs(route, Refusal::none);
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
    placings.push_back(std::move(placing));
    if (placings.size() == batchSize) announce(placings);
  }
  announce(placings);
  if (!queue_.empty()) return;
  if (sweeping_) return endSweep();
  // Whoever was refused for want of an index may have one now.
  if (nexthops_.freed() && refused_[static_cast<std::size_t>(Refusal::noIndex)] != 0) {
    enqueueAll([](const Route& route) { return route.refusal == Refusal::noIndex; });
  }
}

void RouteService::tick(Clock::time_point now) {
  if (!queue_.empty()) return;
  const bool quiet = now - last_ >= settings_.quiet || now - since_ >= settings_.longest;
  if (connected_ && !swept_ && quiet) return beginSweep();
  // Registers that failed may answer again.
  if (refused_[static_cast<std::size_t>(Refusal::hardwareError)] != 0) {
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
    route.wanted = false;
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

RouteService::Figures RouteService::figures() const {
  Figures all{connected_, removed().has_value(), malformed_, connection_, messages_};
  all.queued = queue_.size();
  all.refused = refused_;
  for (const auto& [name, route] : routes_) {
    all.offered += route.wanted;
    all.stale += route.connection != connection_ || connection_ == 0;
    all.ofSeveral += route.placed && route.hop.ofSeveral;
  }
  return all;
}

void RouteService::forEachRefused(
    const std::function<void(const RouteName&, Refusal)>& visit) const {
  for (const auto& [name, route] : routes_) {
    if (route.refusal != Refusal::none) visit(name, route.refusal);
  }
}

void RouteService::forEachWaiting(const std::function<void(const RouteName&)>& visit) const {
  if (routeEntries_.waiting() == 0) return;
  const auto tables = this->tables();
  routeEntries_.forEachStatus(
      [&](VelaAgent::AnyRef key, EntryProgrammedStatus status, Orb::Seconds) {
        if (status != EntryProgrammedStatus::tableFull) return;
        const auto& at = key.as<LpmKey>();
        visit(nameOf(at, tables.at(at.vrf())));
      });
}

}  // namespace VelaService
