#include "service/Messages.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>

#include <cstring>
#include <string_view>

namespace VelaService {

std::string toText(const RouteName& name) {
  if (name.family == AF_MPLS) {
    // The label has the first 20 bits of its entry.
    U32 entry = 0;
    std::memcpy(&entry, name.address.data(), sizeof entry);
    return "label " + std::to_string(ntohl(entry) >> 12);
  }
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (!inet_ntop(name.family, name.address.data(), text.data(), text.size())) {
    return "family " + std::to_string(name.family);
  }
  std::string all = std::string(text.data()) + "/" + std::to_string(name.len);
  if (name.table != RT_TABLE_MAIN) all += " table " + std::to_string(name.table);
  return all;
}

std::size_t RouteNameHash::operator()(const RouteName& name) const noexcept {
  std::array<char, sizeof name.address + 6> all;
  std::memcpy(all.data(), name.address.data(), sizeof name.address);
  std::memcpy(all.data() + sizeof name.address, &name.table, sizeof name.table);
  all[all.size() - 2] = static_cast<char>(name.family);
  all[all.size() - 1] = static_cast<char>(name.len);
  return std::hash<std::string_view>()({all.data(), all.size()});
}

const char* nameOf(Refusal refusal) {
  static constexpr std::array<const char*, refusals> names{
      "none",         "ipv6",           "family", "mpls",    "routeType",
      "unknownTable", "unknownNexthop", "noPort", "noIndex", "hardwareError"};
  return names[static_cast<std::size_t>(refusal)];
}

const char* meaningOf(Refusal refusal) {
  static constexpr std::array<const char*, refusals> meanings{
      "it is not refused",
      "it or its gateway is IPv6",
      "it is a label's, or its next hop pushes one",
      "its type is none of unicast, local, blackhole, unreachable, prohibit",
      "its table is not among the tables of the configuration",
      "its next hop was not announced; it is taken up when that comes",
      "its gateway's interface is not among the interfaces of the configuration",
      "all next hops of the switch are taken; it is tried again when one becomes free",
      "what its next hop needs could not be written; it is tried again"};
  return meanings[static_cast<std::size_t>(refusal)];
}

}  // namespace VelaService
