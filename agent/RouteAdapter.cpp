#include "agent/RouteAdapter.h"
#include "device/RouteLookup.h"

#include <algorithm>

namespace VelaAgent {
namespace {

using VelaSwitch::NexthopIndexes;

/// What a packet is looked up with.
struct RouteAddress {
  static constexpr const char* typeName = "VelaAgent::RouteAddress";
  Orb::Field<"vrf", U8> vrf;
  Orb::Field<"address", Ipnet::IpAddr> address;
};

}  // namespace

NexthopIndexes nexthopOfNumber(U64 number) {
  constexpr U32 lags = VelaSwitch::L3LagIndex::null;
  if (number >= nexthopNumbers) {
    throw InputException("next hop " + std::to_string(number) + ": there are " +
                         std::to_string(nexthopNumbers));
  }
  return {VelaSwitch::L3LagIndex(number % lags), static_cast<U8>(number / lags)};
}

RouteAdapter::RouteAdapter(RouteWriter& writer, const VelaSwitch::ProfileInfo& profile,
                           std::vector<HwTableAdapter*> levels)
    : TableAdapter("Route", 0), writer_(writer), profile_(profile), levels_(std::move(levels)) {
  writer_.routes().entryStatuses().observerIs(&refusals_);
}

RouteAdapter::~RouteAdapter() { writer_.routes().entryStatuses().observerDel(&refusals_); }

RouteAdapter::Key RouteAdapter::keyFromJson(const Json& json) const {
  if (json.is_object() && !json.contains("prefix")) throw InputException("prefix is missing");
  return fromJson<Key>(json, profile_);
}

EntryProgrammedStatus RouteAdapter::status(const Key& key) const {
  const auto* status = writer_.routes().entryStatus(key);
  if (!status) return EntryProgrammedStatus::notProgrammed;
  const bool marked = status->status == EntryProgrammedStatus::programmed && writer_.marked(key);
  return marked ? EntryProgrammedStatus::hardwareError : status->status;
}

EntryProgrammedStatus RouteAdapter::set(const Json& key, const Json& result) {
  const Key route = keyFromJson(key);
  if (result.is_object() && result.contains("cpuTrap")) {
    throw InputException(
        "cpuTrap belongs to a key of a level, such as Lpm26, not to a whole route");
  }
  const auto nexthop = result.is_null() ? NexthopIndexes{} : fromJson<NexthopIndexes>(result);
  warnOfCuts(route, nexthop, bitsOfType);
  if (!nexthop.valid()) throw InputException("a route needs a next hop: l3LagIndex 57 is none");
  refusals_.forget(route);
  announcedBeforeIs(writer_.routes().entry(route) && !writer_.unclaimed(route));
  const bool changed =
      writer_.routes().entryIs(route, RouteWriter::resultOf(nexthop, route.prefix().len()));
  writer_.claim(route);
  if (!changed && status(route) != EntryProgrammedStatus::programmed) writer_.handleRoute(route);
  const EntryProgrammedStatus outcome = status(route);
  if (outcome != EntryProgrammedStatus::programmed) refusals_.is(route);
  return outcome;
}

bool RouteAdapter::del(const Json& key) {
  const Key route = keyFromJson(key);
  refusals_.forget(route);
  return writer_.routes().entryDel(route);
}

/// By address, or by a prefix, which stands for its first address.
Json RouteAdapter::lookup(VelaDevice::DataPath& dataPath, const Json& key) const {
  if (key.is_object() && key.contains("prefix")) {
    const Key route = keyFromJson(key);
    return hitToJson(VelaDevice::route(dataPath, route.vrf(), route.prefix().address()));
  }
  const auto at = fromJson<RouteAddress>(key, profile_);
  return hitToJson(VelaDevice::route(dataPath, at.vrf(), at.address()));
}

bool RouteAdapter::pollHitBits(Orb::Seconds now) {
  bool good = true;
  for (HwTableAdapter* level : levels_) good = level->pollHitBits(now) && good;
  return good;
}

std::vector<TableAdapter::Competitor> RouteAdapter::competing(const Json& key) const {
  const Key route = keyFromJson(key);
  auto* level = writer_.levelOf(route.prefix().len());
  if (!level) return {};
  return competitorsOf(*level, RouteWriter::levelKey(route));
}

std::optional<std::string> RouteAdapter::levelOf(const Json& key) const {
  const Key route = keyFromJson(key);
  const VelaSwitchApi::SwTable& table = writer_.tableOf(route.prefix().len());
  const auto level = std::find_if(levels_.begin(), levels_.end(),
                                  [&](const HwTableAdapter* each) { return each->fills(table); });
  return (*level)->name();
}

/// The prefix that matched, where registers tell its length, and the ports that its LAG has.
void RouteAdapter::explain(VelaDevice::DataPath& dataPath, const Json& key, const Json& hit,
                           Json& explanation) const {
  if (hit.is_null()) return;
  const Json& length = hit["realPrefixLen"];
  if (!length.is_null()) {
    const auto address = key.contains("prefix") ? fromJson<Key>(key).prefix().address()
                                                : fromJson<RouteAddress>(key).address();
    explanation["prefix"] = toJson(Ipnet::IpPrefix(address, length.get<U8>()));
  }
  const auto lag = l3Lag(dataPath, hit["l3LagIndex"].get<U32>());
  if (!lag) return;
  Json ports = Json::array();
  for (U32 port = 0; port < 64; ++port) {
    if ((lag->portMask().bits() >> port & 1) != 0) ports.push_back(port);
  }
  explanation["ports"] = std::move(ports);
}

bool RouteAdapter::fills(const VelaSwitchApi::SwTable& table) const {
  return std::any_of(levels_.begin(), levels_.end(),
                     [&](const HwTableAdapter* level) { return level->fills(table); });
}

void RouteAdapter::forEachEntry(const EntryVisitor& visit) const {
  for (const Key& key : writer_.routes().entries().keys()) {
    visit(toJson(key), toJson(RouteWriter::nexthopOf(*writer_.routes().entry(key))));
  }
}

std::vector<TableAdapter::Status> RouteAdapter::statuses() const {
  std::vector<Status> all;
  const auto& statuses = writer_.routes().entryStatuses();
  all.reserve(statuses.size());
  for (const Key& key : statuses.keys()) {
    const auto* status = statuses.find(key);
    all.push_back({toJson(key), status->status, status->lastHit});
  }
  return all;
}

U32 RouteAdapter::programmed() const {
  U32 count = 0;
  writer_.routes().entryStatuses().forEach([&](const Key& key, const auto& status) {
    if (status.status == EntryProgrammedStatus::programmed && !writer_.unclaimed(key)) ++count;
  });
  return count;
}

U32 RouteAdapter::waiting() const {
  U32 count = 0;
  writer_.routes().entryStatuses().forEach([&](const Key&, const auto& status) {
    if (status.status == EntryProgrammedStatus::tableFull) ++count;
  });
  return count;
}

U64 RouteAdapter::moves() const {
  U64 moves = 0;
  for (const HwTableAdapter* level : levels_) moves += level->moves();
  return moves;
}

void RouteAdapter::reconcile(const KeyVisitor& removing) {
  writer_.releaseUnclaimed([&](const Key& route) { removing(toJson(route)); });
  for (const Key& key : writer_.routes().entries().keys()) {
    if (status(key) != EntryProgrammedStatus::programmed &&
        status(key) != EntryProgrammedStatus::tableFull) {
      writer_.handleRoute(key);
    }
  }
  writer_.retry();
}

}  // namespace VelaAgent
