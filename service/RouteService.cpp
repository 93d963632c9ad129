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

/// What a source may have of what the switch has no bound for.
constexpr std::size_t objectsMost = 65'536;
/// Interfaces whose names are kept; when there are more, all are looked up anew.
constexpr std::size_t interfacesMost = 4096;

/// After a longer pause without a tick the process stood still, and nobody was listened to.
constexpr auto tickMost = std::chrono::seconds(1);
constexpr auto interfacesPause = std::chrono::seconds(5);
constexpr auto hardwarePauseMost = std::chrono::seconds(64);

/// Why a route that is in no VRF cannot be had.
Refusal refusalOf(const RouteName& name) {
  if (name.family == AF_INET) return Refusal::unknownTable;
  if (name.family == AF_INET6) return Refusal::ipv6;
  return name.family == AF_MPLS ? Refusal::mpls : Refusal::family;
}

}  // namespace

bool isRouteLevel(const VelaAgent::Agent& agent, const VelaAgent::TableAdapter& table) {
  return table.hardware() && agent.table("Route", 0).fills(table.hardware()->table());
}

bool isRouteTable(const VelaAgent::Agent& agent, const VelaAgent::TableAdapter& table) {
  return table.name() == "Route" || table.name() == "L3Lag" || isRouteLevel(agent, table);
}

RouteService::RouteService(VelaAgent::Agent& agent, RouteSettings settings, InterfaceNamer namer)
    : agent_(agent),
      settings_(std::move(settings)),
      namer_(std::move(namer)),
      routeEntries_(agent.entriesOf("Route", 0)),
      lagEntries_(agent.entriesOf("L3Lag", 0)),
      nexthops_(settings_.nexthopFile, [this](U8 lag, U64 ports) { return writeLag(lag, ports); }),
      sources_(settings_.sources.size()),
      rebuilt_(agent.entriesOf("Route", 0).unclaimed() != 0 ||
               agent.entriesOf("L3Lag", 0).unclaimed() != 0) {
  for (const auto& [table, vrf] : settings_.vrfs) tables_[vrf] = table;
  if (!sources_.empty()) {
    rebuild();
  } else {
    routeEntries_.forEachEntry([&](VelaAgent::AnyRef key, VelaAgent::AnyRef) {
      others_[idOf(key.as<LpmKey>())] = routeEntries_.status(key);
    });
  }
  agent_.routeWriter().routes().entryStatuses().observerIs(this);
}

RouteService::~RouteService() { agent_.routeWriter().routes().entryStatuses().observerDel(this); }

/// Routes that hardware holds are nobody's so far.
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
    const U16 lag = to.l3LagIndex().value();
    if (lag >= Nexthops::lagCount) return;
    const Slot slot{static_cast<U8>(lag), to.rewriteIndex()};
    nexthops_.rebuilt(slot);
    // What is in no VRF of ours goes with all that nobody claims.
    if (!tables_.contains(at.vrf())) return orphans_.push_back(slot);
    Route& route = routes_[idOf(at)];
    route.slot = slot;
    route.placed = true;
    count(route.offer, true);
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

RouteService::RouteId RouteService::idOf(const LpmKey& key) {
  const Ipnet::IpPrefix& prefix = key.prefix();
  return U64{key.vrf()} << 40 | U64{prefix.len()} << 32 | prefix.address().number();
}

/// Nothing for a route that is in no VRF.
std::optional<RouteService::RouteId> RouteService::idOf(const RouteName& name) const {
  const auto vrf = settings_.vrfs.find(name.table);
  if (name.family != AF_INET || vrf == settings_.vrfs.end()) return std::nullopt;
  U32 address = 0;
  std::memcpy(&address, name.address.data(), sizeof address);
  return idOf({vrf->second, Ipnet::IpPrefix(Ipnet::IpAddr(ntohl(address)), name.len)});
}

LpmKey RouteService::keyOf(RouteId id) {
  return {static_cast<U8>(id >> 40),
          Ipnet::IpPrefix(Ipnet::IpAddr(static_cast<U32>(id)), static_cast<U8>(id >> 32))};
}

RouteName RouteService::nameOf(RouteId id) const {
  const LpmKey key = keyOf(id);
  RouteName name{tables_.at(key.vrf()), AF_INET, key.prefix().len()};
  const U32 address = htonl(key.prefix().address().number());
  std::memcpy(name.address.data(), &address, sizeof address);
  return name;
}

void RouteService::connected(SourceId from, Clock::time_point now) {
  if (sweep_ && sweep_->of == from) sweep_.reset();
  Source& source = sources_[from];
  source.since = source.last = ticked_ = now;
  source.spoke = source.told = source.unsure = false;
  ++source.connection;
  source.figures.connected = true;
  source.figures.complete = false;
  ++source.figures.connections;
  source.figures.announced = 0;
  while (answer(from)) continue;
  // The next daemon may call other things by the same numbers.
  source.objects.clear();
  refreshInterfaces();
}

void RouteService::disconnected(SourceId from, bool malformed) {
  sources_[from].figures.connected = false;
  sources_[from].figures.malformed += malformed;
}

void RouteService::take(SourceId from, const Message& message, Clock::time_point now) {
  notQuiet(from, now);
  if (!std::exchange(sources_[from].spoke, true)) sources_[from].since = now;
  ++sources_[from].figures.messages;
  std::visit([&](const auto& each) { take(from, each); }, message);
}

void RouteService::take(SourceId from, const RouteMessage& message) {
  Source& source = sources_[from];
  Offer offer{message.hop, message.nexthop,  message.preference, source.connection,
              from,        message.protocol, message.type};
  const auto id = idOf(message.route);
  if (!id) return foreignIs(message.route, offer, !message.withdrawn);
  if (message.withdrawn) {
    const auto at = routes_.find(*id);
    if (at == routes_.end() || !at->second.wanted) return;
    Offer* const same = offerOf(*at, offer);
    if (same && same->several && same->connection == source.connection) {
      source.unsure = true;
      return;
    }
    if (at->second.offer.rank() == offer.rank()) return offerDel(*at);
    return beatenIs(*id, offer, false);
  }
  if (message.nexthop != 0) offer.hop = resolved(source, message.nexthop);
  source.awaited = source.awaited || offer.hop.refusal == Refusal::unknownNexthop;
  if (!routes_.contains(*id)) checkRoom(source);
  Routes::value_type& each = *routes_.try_emplace(*id).first;
  const Route& route = each.second;
  Offer* const same = offerOf(each, offer);
  if (same && same->connection == source.connection) {
    const bool another = message.other != RouteMessage::Other::goes &&
                         (same->hop != offer.hop || same->nexthop != offer.nexthop ||
                          same->protocol != offer.protocol);
    same->several = offer.several = same->several || another;
    if (another && message.other == RouteMessage::Other::counts) return;
  }
  // What hardware held was perhaps a better source's, which will say so.
  const bool others =
      route.offer.source == nobody ? !heard(from) : route.offer.rank() < offer.rank();
  if (route.wanted && others) return beatenIs(*id, offer, true);
  offerIs(each, offer);
}

/// Sources have no more than there is memory for.
void RouteService::checkRoom(const Source& source) const {
  if (source.figures.routes >= settings_.routesMost) throw MalformedMessage("too many routes");
}

/// What the offer's source says of the route so far, with the same preference; null for nothing.
RouteService::Offer* RouteService::offerOf(Routes::value_type& each, const Offer& offer) {
  if (!each.second.wanted) return nullptr;
  if (each.second.offer.rank() == offer.rank()) return &each.second.offer;
  const auto others = beaten_.find(each.first);
  if (others == beaten_.end()) return nullptr;
  const auto at = std::find_if(others->second.begin(), others->second.end(),
                               [&](const Offer& other) { return other.rank() == offer.rank(); });
  return at == others->second.end() ? nullptr : &*at;
}

/// There is such a route that no VRF can have, and that is refused at once, or there is none.
void RouteService::foreignIs(const RouteName& name, const Offer& offer, bool there) {
  Source& source = sources_[offer.source];
  const auto at = source.foreign.find(name);
  if (at != source.foreign.end()) foreignDel(source, at);
  if (!there) return;
  checkRoom(source);
  source.foreign.emplace(name, offer);
  count(offer, true);
  ++figures_.wanted;
  ++figures_.refused[static_cast<std::size_t>(refusalOf(name))];
  if (settings_.sources[offer.source].answered) source.answers.push_back(name);
}

void RouteService::foreignDel(Source& source, Foreign::iterator at) {
  count(at->second, false);
  --figures_.wanted;
  --figures_.refused[static_cast<std::size_t>(refusalOf(at->first))];
  source.foreign.erase(at);
}

/// Whether all sources before this one told what they have, since the start.
bool RouteService::heard(SourceId before) const {
  return std::all_of(sources_.begin(), sources_.begin() + before,
                     [](const Source& each) { return each.heard; });
}

/// What the offer's source adds to its figures, or takes away.
void RouteService::count(const Offer& offer, bool there) {
  const U64 by = there ? 1 : ~U64{0};
  if (offer.source == nobody) {
    figures_.unclaimed += by;
    return;
  }
  Source& source = sources_[offer.source];
  source.figures.routes += by;
  if (offer.connection == source.connection) source.figures.announced += by;
}

/// An offer that counts now: its source's former one, or one that others have to give way to.
void RouteService::offerIs(Routes::value_type& each, const Offer& offer) {
  Route& route = each.second;
  const Offer before = route.offer;
  // One that is there as announced costs nothing; one that was rebuilt has to be claimed.
  const bool same = route.wanted && before.source != nobody && before.hop == offer.hop &&
                    route.placed && route.refusal == Refusal::none;
  if (route.wanted) {
    count(before, false);
    if (before.source == nobody) {
      // It may have waited for better ones to be heard.
      beatenIs(each.first, offer, false);
    } else if (before.rank() != offer.rank()) {
      beatenIs(each.first, before, true);
    }
  }
  count(offer, true);
  route.offer = offer;
  route.told = false;
  wantedIs(route, true);
  same ? answerIs(each.first, route) : enqueue(each);
}

/// The source whose route it is shall be told what became of it, when that is known.
void RouteService::answerIs(RouteId id, Route& route) {
  const SourceId source = route.offer.source;
  if (source == nobody || !settings_.sources[source].answered) return;
  if (!std::exchange(route.answering, true)) sources_[source].answers.push_back(nameOf(id));
}

std::optional<RouteService::Answer> RouteService::answer(SourceId to) {
  Source& source = sources_[to];
  while (!source.answers.empty()) {
    const RouteName name = source.answers.front();
    source.answers.pop_front();
    const auto said = [&](const Offer& offer, bool programmed) {
      return Answer{
          {name, false, offer.nexthop, offer.hop, offer.preference, offer.protocol, offer.type},
          programmed};
    };
    const auto id = idOf(name);
    if (!id) {
      const auto foreign = source.foreign.find(name);
      if (foreign != source.foreign.end()) return said(foreign->second, false);
      continue;
    }
    const auto at = routes_.find(*id);
    if (at == routes_.end()) continue;
    Route& route = at->second;
    route.answering = false;
    const Offer& offer = route.offer;
    // What is queued is told afterwards.
    if (route.queued || !route.wanted) continue;
    if (offer.source != to || offer.connection != source.connection) continue;
    const bool programmed = route.status == EntryProgrammedStatus::programmed;
    if (std::exchange(route.told, true) && route.toldOf == programmed) continue;
    route.toldOf = programmed;
    return said(offer, programmed);
  }
  return std::nullopt;
}

/// The offer that counts is gone: the next one does.
void RouteService::offerDel(Routes::value_type& each) {
  Route& route = each.second;
  count(route.offer, false);
  const auto others = beaten_.find(each.first);
  if (others == beaten_.end()) {
    wantedIs(route, false);
  } else {
    const auto byRank = [](const Offer& one, const Offer& other) {
      return one.rank() < other.rank();
    };
    route.offer = *std::min_element(others->second.begin(), others->second.end(), byRank);
    count(route.offer, true);
    beatenIs(each.first, route.offer, false);
  }
  enqueue(each);
}

/// There is such an offer beside the one that counts, or there is none.
void RouteService::beatenIs(RouteId id, const Offer& offer, bool there) {
  // It may lie there.
  const Offer copy = offer;
  std::vector<Offer>& offers = beaten_[id];
  std::erase_if(offers, [&](const Offer& each) {
    if (each.rank() != copy.rank()) return false;
    count(each, false);
    return true;
  });
  if (there) {
    count(copy, true);
    offers.push_back(copy);
  }
  if (offers.empty()) beaten_.erase(id);
}

Hop RouteService::resolved(const Source& source, U32 id) {
  static constexpr Hop unknown{Hop::Kind::drop, Refusal::unknownNexthop};
  const auto at = source.objects.find(id);
  if (at == source.objects.end()) return unknown;
  const Nexthop& object = at->second;
  if (object.first == 0) return object.hop;
  const auto first = source.objects.find(object.first);
  if (first == source.objects.end() || first->second.first != 0) return unknown;
  Hop hop = first->second.hop;
  hop.ofSeveral = object.hop.ofSeveral;
  return hop;
}

void RouteService::take(SourceId from, const NexthopMessage& message) {
  Source& source = sources_[from];
  // Its routes are withdrawn or changed by messages of their own.
  if (message.withdrawn) {
    source.objects.erase(message.id);
    source.awaited = true;
    return;
  }
  Nexthop object{message.hop};
  if (!message.group.empty()) {
    object.first = message.group.front();
    object.hop.ofSeveral = message.group.size() > 1;
  }
  const auto [at, isNew] = source.objects.try_emplace(message.id, object);
  if (source.objects.size() > objectsMost) throw MalformedMessage("too many next hops");
  if (isNew ? !source.awaited : at->second == object) return;
  at->second = object;
  source.changed = nexthopsChanged_ = true;
}

/// Routes have the next hops that their objects say by now. One walk over all routes is for all
/// objects that changed.
void RouteService::followNexthops() {
  if (!std::exchange(nexthopsChanged_, false)) return;
  std::vector<bool> changed;
  for (Source& source : sources_) {
    changed.push_back(std::exchange(source.changed, false));
    if (changed.back()) source.awaited = false;
  }
  const auto changes = [&](Offer& offer) {
    if (offer.source == nobody || !changed[offer.source] || offer.nexthop == 0) return false;
    Source& source = sources_[offer.source];
    if (offer.connection != source.connection) return false;
    const Hop hop = resolved(source, offer.nexthop);
    source.awaited = source.awaited || hop.refusal == Refusal::unknownNexthop;
    // It stays with a next hop that is gone until its own message comes.
    if (hop == offer.hop || hop.refusal == Refusal::unknownNexthop) return false;
    offer.hop = hop;
    return true;
  };
  for (auto& [id, offers] : beaten_) {
    for (Offer& offer : offers) changes(offer);
  }
  enqueueAll([&](RouteId, Route& route) { return route.wanted && changes(route.offer); });
}

void RouteService::enqueue(Routes::value_type& route) {
  if (std::exchange(route.second.queued, true)) return;
  queue_.push_back(&route);
}

template <class Wanted>
void RouteService::enqueueAll(const Wanted& wanted) {
  for (auto& route : routes_) {
    if (wanted(route.first, route.second)) enqueue(route);
  }
}

const std::string& RouteService::interfaceName(U32 number) {
  if (interfaces_.size() >= interfacesMost && !interfaces_.contains(number)) interfaces_.clear();
  const auto [at, isNew] = interfaces_.try_emplace(number);
  if (isNew) at->second = namer_(number);
  return at->second;
}

/// Routes follow interfaces that have another name, or one at last.
void RouteService::refreshInterfaces() {
  std::unordered_set<U32> renamed;
  for (auto& [number, name] : interfaces_) {
    std::string now = namer_(number);
    if (now == name) continue;
    name = std::move(now);
    renamed.insert(number);
  }
  if (renamed.empty()) return;
  enqueueAll([&](RouteId, const Route& route) {
    const Hop& hop = route.offer.hop;
    return route.wanted && hop.kind == Hop::Kind::gateway && renamed.contains(hop.interface);
  });
}

/// Whose slot a route that is wanted has to have.
Refusal RouteService::ownerOf(const Route& route, Nexthops::Owner& owner) {
  const Hop& hop = route.offer.hop;
  if (hop.refusal != Refusal::none) return hop.refusal;
  if (hop.kind == Hop::Kind::local) owner.ports = U64{1} << agent_.profile().ports();
  if (hop.kind == Hop::Kind::gateway) {
    const std::string& interface = interfaceName(hop.interface);
    const auto ports = settings_.portMasks.find(interface);
    if (ports == settings_.portMasks.end()) return Refusal::noPort;
    owner = {ports->second, interface, hop.gateway};
  }
  return Refusal::none;
}

/// Finds a slot for the route, its own if there is no other, and refers to it.
Refusal RouteService::place(const Nexthops::Owner& owner, RouteId id, Placing& placing) {
  const Route& route = *placing.route;
  switch (nexthops_.acquire(owner, placing.slot, route.placed ? &route.slot : nullptr)) {
    case Nexthops::Outcome::noIndex:
      return Refusal::noIndex;
    case Nexthops::Outcome::hardwareError:
      return Refusal::hardwareError;
    case Nexthops::Outcome::good:
      break;
  }
  placing.key = keyOf(id);
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
  Level& level = levelOf(idOf(key));
  level.waiting += U64{status == EntryProgrammedStatus::tableFull} -
                   U64{route.status == EntryProgrammedStatus::tableFull};
  const auto count = [this](EntryProgrammedStatus of) -> U64* {
    if (of == EntryProgrammedStatus::programmed) return &figures_.programmed;
    return of == EntryProgrammedStatus::tableFull ? &figures_.waiting : nullptr;
  };
  if (U64* before = count(route.status)) --*before;
  if (U64* after = count(status)) ++*after;
  route.status = status;
  answerIs(idOf(key), route);
  if (statusListener_) statusListener_(key, status);
}

/// The status of a route changed, perhaps for another's sake.
void RouteService::handleKey(const LpmKey& key) {
  const auto at = routes_.find(idOf(key));
  const EntryProgrammedStatus status = routeEntries_.status(key);
  if (at != routes_.end()) {
    // Another's change may fail in a row that they share.
    if (status == EntryProgrammedStatus::hardwareError) {
      refusalIs(at->second, Refusal::hardwareError);
    }
    return statusIs(key, at->second, status);
  }
  const auto other = others_.try_emplace(idOf(key), EntryProgrammedStatus::notProgrammed).first;
  const bool same = std::exchange(other->second, status) == status;
  if (status == EntryProgrammedStatus::notProgrammed) others_.erase(other);
  if (!same && statusListener_) statusListener_(key, status);
}

/// Takes a route out of hardware if it is there, and then its reference; returns whether it is out.
bool RouteService::withdraw(Routes::value_type& each) {
  Route& route = each.second;
  if (!route.placed && route.status == EntryProgrammedStatus::notProgrammed) return true;
  const LpmKey key = keyOf(each.first);
  if (route.placed) {
    routeEntries_.withdraw(key);
    agent_.settle();
    figures_.ofSeveral -= std::exchange(route.ofSeveral, false);
    if (!rowsKnown(key)) {
      statusIs(key, route, EntryProgrammedStatus::hardwareError);
      return false;
    }
    route.placed = false;
    giveUp(each.first, route.slot, true);
  }
  statusIs(key, route, EntryProgrammedStatus::notProgrammed);
  return true;
}

/// Whether each row that a route may have been in is known to be as desired. One that is to be
/// empty and is not is tried again.
bool RouteService::rowsKnown(const LpmKey& route) {
  const VelaSwitchApi::SwTable& table = agent_.routeWriter().tableOf(route.prefix().len());
  const auto& all = agent_.tables();
  auto& level = (*std::find_if(all.begin(), all.end(), [&](const auto& each) {
                  return &each->table() == &table;
                }))->typed();
  const auto known = [&](const LpmKey& row) {
    const auto failed = [&] { return level.status(row) == EntryProgrammedStatus::hardwareError; };
    if (failed() && !level.resultOf(row)) level.withdraw(row);
    return !failed();
  };
  constexpr U8 firstLength = VelaRoutes::FirstLevel::keyLength;
  const U8 length = route.prefix().len();
  if (length > firstLength) return known(VelaSwitchTable::LpmRoutes::keyOf(route));
  bool good = true;
  for (U32 row = 0; row < U32{1} << (firstLength - length); ++row) {
    const U32 address = route.prefix().address().number() | row << (32 - firstLength);
    good = known({route.vrf(), Ipnet::IpPrefix(Ipnet::IpAddr(address), firstLength)}) && good;
  }
  return good;
}

/// A slot that a route had goes, and those that it had before; but not while a row may say so.
void RouteService::giveUp(RouteId id, Slot slot, bool rowsKnown) {
  if (!rowsKnown) {
    std::vector<Slot>& slots = lingering_[id];
    if (std::find(slots.begin(), slots.end(), slot) == slots.end()) return slots.push_back(slot);
  }
  nexthops_.release(slot);
  const auto before = lingering_.find(id);
  if (!rowsKnown || before == lingering_.end()) return;
  for (const Slot each : before->second) nexthops_.release(each);
  lingering_.erase(before);
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
  if (route.placed) giveUp(idOf(placing.key), route.slot, rowsKnown(placing.key));
  route.slot = placing.slot;
  route.placed = true;
  figures_.ofSeveral += U64{route.offer.hop.ofSeveral} - U64{route.ofSeveral};
  route.ofSeveral = route.offer.hop.ofSeveral;
  statusIs(placing.key, route, outcome.status);
  const bool failed = outcome.status == EntryProgrammedStatus::hardwareError;
  refusalIs(route, failed ? Refusal::hardwareError : Refusal::none);
}

/// Carries out what was said of a route; it may be gone then.
void RouteService::workOn(Routes::value_type& each) {
  Route& route = each.second;
  route.queued = false;
  if (route.wanted) answerIs(each.first, route);
  Level& level = levelOf(each.first);
  level.held -= std::exchange(route.held, false);
  if (!route.wanted) {
    if (!withdraw(each)) return refusalIs(route, Refusal::hardwareError);
    refusalIs(route, Refusal::none);
    routes_.erase(each.first);
    return;
  }
  Nexthops::Owner owner;
  Placing placing{&route};
  Refusal refusal = ownerOf(route, owner);
  // A table that many wait for keeps records of them all; any of those takes room that comes.
  if (refusal == Refusal::none && !route.placed &&
      level.waiting - level.held >= settings_.waitingMost) {
    route.held = true;
    ++level.held;
    refusalIs(route, Refusal::none);
    return statusIs(keyOf(each.first), route, EntryProgrammedStatus::tableFull);
  }
  if (refusal == Refusal::none) refusal = place(owner, each.first, placing);
  if (refusal == Refusal::noIndex && route.placed) {
    // Others that are about to leave its slot may leave it to it alone.
    announce();
    refusal = place(owner, each.first, placing);
  }
  if (refusal != Refusal::none) {
    return refusalIs(route, withdraw(each) ? refusal : Refusal::hardwareError);
  }
  placings_.push_back(placing);
  if (placings_.size() == batchSize) announce();
}

void RouteService::work(std::size_t most) {
  followNexthops();
  placings_.reserve(batchSize);
  for (; most > 0 && !queue_.empty(); --most) {
    Routes::value_type& each = *queue_.front();
    queue_.pop_front();
    ++carriedOut_;
    workOn(each);
  }
  announce();
  goOnSweeping();
  if (queue_.empty()) tryAgain();
}

/// What others left may do for those that were refused for want of it.
void RouteService::tryAgain() {
  if (carriedOut_ < triedUntil_) return;
  if (nexthops_.freed() && figures_.refused[static_cast<std::size_t>(Refusal::noIndex)] != 0) {
    enqueueAll([](RouteId, const Route& route) { return route.refusal == Refusal::noIndex; });
  }
  for (const Level& level : levels_) {
    if (level.held == 0 || level.waiting - level.held > settings_.waitingMost / 2) continue;
    U64 room = settings_.waitingMost - (level.waiting - level.held);
    enqueueAll([&](RouteId id, const Route& route) {
      if (!route.held || &levelOf(id) != &level || room == 0) return false;
      --room;
      return true;
    });
  }
  triedUntil_ = queuedSoFar();
}

/// Registers that failed, or a file, may answer again.
void RouteService::retryHardware(Clock::time_point now) {
  if (figures_.refused[static_cast<std::size_t>(Refusal::hardwareError)] == 0 &&
      !nexthops_.leftOver()) {
    hardwareAt_ = now;
    hardwarePause_ = std::chrono::seconds(1);
    return;
  }
  if (now < hardwareAt_) return;
  nexthops_.emptyLeftOver();
  enqueueAll([](RouteId, const Route& route) { return route.refusal == Refusal::hardwareError; });
  hardwareAt_ = now + hardwarePause_;
  hardwarePause_ = std::min<Clock::duration>(2 * hardwarePause_, hardwarePauseMost);
}

/// A source that is held up, or that nobody listened to, cannot say what it has: that time does not
/// count.
void RouteService::holdTimes(Clock::time_point now) {
  const auto passed = now - std::exchange(ticked_, now);
  for (SourceId each = 0; each < sourceCount(); ++each) {
    if (!full(each) && passed <= tickMost) continue;
    notQuiet(each, now);
    sources_[each].since += passed;
  }
}

void RouteService::tick(Clock::time_point now) {
  followNexthops();
  holdTimes(now);
  if (now >= interfacesAt_) {
    interfacesAt_ = now + interfacesPause;
    refreshInterfaces();
  }
  if (!sweep_) beginSweep();
  tryAgain();
  retryHardware(now);
}

/// When a source has told all, or its time is over, and what it said is carried out, the rest goes.
void RouteService::beginSweep() {
  for (SourceId each = 0; each < sourceCount(); ++each) {
    const Source& source = sources_[each];
    if (!source.figures.connected || !source.spoke || source.figures.complete) continue;
    const SourceSettings& settings = settings_.sources[each];
    if (source.told || ticked_ - source.last >= settings.quiet ||
        ticked_ - source.since >= settings.longest) {
      sweep_ = Sweep{each, queuedSoFar()};
      return;
    }
  }
}

void RouteService::goOnSweeping() {
  if (!sweep_ || carriedOut_ < sweep_->after) return;
  if (sweep_->collected) return endSweep();
  collectStale(sweep_->of);
  sweep_->after = queuedSoFar();
  sweep_->collected = true;
}

/// What the source did not announce on this connection goes, and with the last source what hardware
/// held and nobody announced.
void RouteService::collectStale(SourceId of) {
  Source& source = sources_[of];
  source.heard = true;
  source.figures.removed = 0;
  const bool last = rebuilt_ && heard(sourceCount());
  // Guesses that announced routes account for go without a write.
  if (last) agent_.complete();
  const auto stale = [&](const Offer& offer) {
    if (offer.source == nobody) return last;
    return offer.source == of && offer.connection != source.connection;
  };
  for (auto at = beaten_.begin(); at != beaten_.end();) {
    std::vector<Offer>& offers = at->second;
    std::erase_if(offers, [&](const Offer& offer) {
      if (stale(offer)) count(offer, false);
      return stale(offer);
    });
    at = offers.empty() ? beaten_.erase(at) : std::next(at);
  }
  for (auto at = source.foreign.begin(); at != source.foreign.end();) {
    const auto each = at++;
    if (!stale(each->second)) continue;
    foreignDel(source, each);
    ++source.figures.removed;
  }
  for (auto& route : routes_) {
    if (!route.second.wanted || !stale(route.second.offer)) continue;
    offerDel(route);
    ++source.figures.removed;
  }
}

/// What no route stands for is left of the restart: rows of levels that no route was guessed from,
/// and LAGs.
void RouteService::endSweep() {
  sources_[std::exchange(sweep_, std::nullopt)->of].figures.complete = true;
  if (!heard(sourceCount()) || !std::exchange(rebuilt_, false)) return;
  const auto ignore = [](const auto&) {};
  routeEntries_.reconcile(ignore);
  for (const auto& adapter : agent_.tables()) {
    if (routeEntries_.fills(adapter->table())) adapter->typed().reconcile(ignore);
  }
  for (const Slot slot : std::exchange(orphans_, {})) nexthops_.release(slot);
  lagEntries_.reconcile(ignore);
  agent_.settle();
}

std::optional<VelaAgent::NotTold> RouteService::whyNotTold(const LpmKey& route) const {
  const auto at = routes_.find(idOf(route));
  if (at == routes_.end() || !at->second.wanted) return std::nullopt;
  if (at->second.held) {
    return VelaAgent::NotTold{"held",
                              "as many of its level wait for room as may; it has its turn "
                              "when half of these have come in or gone"};
  }
  const Refusal refusal = at->second.refusal;
  if (refusal == Refusal::none) return std::nullopt;
  return VelaAgent::NotTold{VelaService::nameOf(refusal), meaningOf(refusal)};
}

RouteService::RefusedRoutes RouteService::refused() const {
  RefusedRoutes list(*this);
  list.routes_.reserve(figures_.wanted);
  for (const auto& [id, route] : routes_) {
    const bool waits = route.status == EntryProgrammedStatus::tableFull;
    if (waits || route.refusal != Refusal::none) {
      list.routes_.push_back(id << 8 | static_cast<U64>(route.refusal));
    }
  }
  for (const Source& source : sources_) {
    for (const auto& foreign : source.foreign) list.foreign_.push_back(foreign.first);
  }
  return list;
}

std::pair<RouteName, Refusal> RouteService::RefusedRoutes::operator[](std::size_t number) const {
  if (number < routes_.size()) {
    const U64 route = routes_[number];
    return {service_.nameOf(route >> 8), static_cast<Refusal>(route & 0xFF)};
  }
  const RouteName& name = foreign_[number - routes_.size()];
  return {name, refusalOf(name)};
}

}  // namespace VelaService
