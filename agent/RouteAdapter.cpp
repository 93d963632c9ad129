#include "agent/RouteAdapter.h"

#include "device/RouteLookup.h"

namespace VelaAgent {

using Key = RouteEntries::Key;

void RouteAdapter::checkResultForm(const Json& result) const {
  if (result.is_object() && result.contains("cpuTrap")) {
    throw InputException(
        "cpuTrap belongs to a key of a level, such as Lpm26, not to a whole route");
  }
}

const Lookup& RouteAdapter::lookupFor(const Json& asked) const {
  const bool byKey = asked.is_object() && asked.contains("prefix");
  return byKey ? typed().lookups().front() : typed().lookups().back();
}

const TableEntries* RouteAdapter::levelOf(AnyRef key) const {
  return &static_cast<const RouteEntries&>(typed()).levelOf(key.as<Key>());
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
  const auto lag = VelaDevice::l3Lag(dataPath, hit["l3LagIndex"].get<U32>());
  if (!lag) return;
  Json ports = Json::array();
  for (U32 port = 0; port < 64; ++port) {
    if ((lag->portMask().bits() >> port & 1) != 0) ports.push_back(port);
  }
  explanation["ports"] = std::move(ports);
}

}  // namespace VelaAgent
