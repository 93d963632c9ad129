#include "service/Messages.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>

#include <cstring>
#include <string_view>

namespace VelaService {

std::string toText(const RouteName& name) {
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
      "none",           "ipv6",   "mpls",    "routeType",    "unknownTable",
      "unknownNexthop", "noPort", "noIndex", "hardwareError"};
  return names[static_cast<std::size_t>(refusal)];
}

}  // namespace VelaService
