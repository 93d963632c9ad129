#include "Generator.h"

#include "VelaSwitchTable/VelaTableCopp.h"
#include "VelaSwitchTable/VelaTableLpmTables.h"

namespace VelaTest {
namespace {

constexpr U32 spread = 2654435761u;  ///< Odd, so that numbers times it are all different.

std::string ip(U32 address) { return Orb::text(Ipnet::IpAddr(address)); }

std::string prefix(U32 address, U8 len) {
  return Orb::text(Ipnet::IpPrefix(Ipnet::IpAddr(address), len));
}

bool isLevel(const std::string& table) { return table.starts_with("Lpm") && table != "Lpm11"; }

U8 baseLength(const std::string& level) {
  const int longest = std::stoi(level.substr(3));
  for (const auto& each : VelaSwitchTable::lpmLevels) {
    if (each.longest() == longest) return each.prefixBaseLen;
  }
  throw std::logic_error("no level " + level);
}

bool ofPorts(const std::string& table) {
  for (const char* each : {"NativeVlan", "PortConfig", "L2Control", "LagGroup", "LagLookUp",
                           "LagMembership", "LagHashControl", "RxPortMirror"}) {
    if (table == each) return true;
  }
  return false;
}

}  // namespace

U32 Generator::keys(const std::string& table) const {
  if (ofPorts(table)) return profile_.ports();
  if (table == "VlanMembership" || table == "FloodSet") return 400;
  if (table == "MacVlan") return 1024;
  if (table == "VlanGroup") return 16;
  if (table == "Copp") return 5;
  if (table == "L3FloodArp" || table == "L3FloodBitmap") return 128;
  if (table == "L3Lag") return 57;
  if (table == "Lpm11") return profile_.vrfs() * 100;
  if (table == "HashTest") return 12;
  if (table == "SG" || table == "NatMatch") return 20000;
  return 6000;
}

Json Generator::key(const std::string& table, U32 number) const {
  number %= keys(table);
  const U32 bits = number * spread;
  const U32 vrf = bits % profile_.vrfs();
  if (table == "VlanMembership" || table == "FloodSet") return 1 + number * 10;
  if (table == "Copp") return number;
  if (table == "Lpm11") {
    return {{"vrf", number % profile_.vrfs()},
            {"prefix", prefix(number / profile_.vrfs() << 23, 11)}};
  }
  if (isLevel(table)) {
    // Few keys of a VRF, so that the shortest level has enough.
    const U8 len = baseLength(table);
    return {{"vrf", number % profile_.vrfs()},
            {"prefix", prefix((number / profile_.vrfs() * spread >> 7) << (32 - len), len)}};
  }
  if (table == "Route") {
    const U8 lengths[] = {8, 10, 12, 16, 19, 22, 24, 27, 29, 32};
    return {{"vrf", vrf}, {"prefix", prefix(bits, lengths[number % std::size(lengths)])}};
  }
  if (table == "SG") {
    return {{"source", ip(bits)}, {"group", ip(0xE0000000 | bits >> 8)}, {"vlanId", number % 4095}};
  }
  if (table == "StarG") return {{"group", ip(0xE0000000 | bits >> 4)}, {"vlanId", number % 4095}};
  if (table == "NatMatch") {
    return {{"natType", 1},
            {"proto", number % 8},
            {"srcIp", ip(bits)},
            {"sport", number % 65535 + 1},
            {"qualifier", number % 64}};
  }
  if (table == "NatDynMatch") {
    return {{"natType", 1},       {"proto", number % 8}, {"srcIp", ip(bits)},
            {"dstIp", ip(~bits)}, {"sport", number},     {"dport", bits >> 16}};
  }
  if (table == "AclHash") {
    return {{"aclId", number % 16},     {"type", 12},
            {"srcIp", ip(bits)},        {"dstIp", ip(bits * spread | 1)},
            {"qualifier", number % 16}, {"l4Port", number % 65535 + 1}};
  }
  if (table == "AclIndirectCounterHash") return bits >> 16;
  if (table == "NatRewrite") {
    return {{"baseChipPortId", bits % (profile_.ports() / 2) * 2}, {"rewriteIndex", number % 4096}};
  }
  return number;
}

/// A mask of the bits that is neither empty nor full.
std::string Generator::mask(U32 bits) {
  const U64 all = (U64{1} << bits) - 1;
  const U64 value = (U64{random_()} << 32 | random_()) & all & ~U64{2};
  return VelaAgent::hexText(value | 1, 0);
}

Json Generator::result(const std::string& table, const Json& key) {
  const U32 ports = profile_.ports();
  const auto nexthop = [&](U8 length) -> Json {
    return {{"l3LagIndex", random_.below(57)},
            {"rewriteIndex", random_.below(64)},
            {"realPrefixLen", length}};
  };
  if (table == "VlanMembership") {
    Json result = {{"permitMask", mask(ports)},
                   {"vrfBits", random_.below(profile_.vrfs())},
                   {"unicastRoute", random_.flip()},
                   {"broadcastToCpu", random_.flip()}};
    if (profile_.registerFormat().major() >= 4) {
      result["aclId"] = {{"0", random_.below(16)}, {"1", random_.below(16)}};
      result["natId"] = {{"1", random_.below(8)}};
    }
    return result;
  }
  if (table == "FloodSet") return {{"uucPortMask", mask(ports)}, {"umcPortMask", mask(ports)}};
  if (table == "NativeVlan") {
    return {{"nativeVlanId", 2 + random_.below(4093)}, {"pcp", random_.below(8)}};
  }
  if (table == "PortConfig") {
    return {{"portMode", random_.flip() ? "access" : "qinq"}, {"txDisabled", random_.flip()}};
  }
  if (table == "L2Control") {
    return {{"isMlagPeer", random_.flip()}, {"learnOnly", true}, {"learnDisabled", random_.flip()}};
  }
  if (table == "LagGroup") return {{"lagGroupId", 1 + random_.below(28)}};
  if (table == "LagLookUp") return {{"buckets", 1 + random_.below(0xfe)}};
  if (table == "LagMembership") {
    return {{"port", {random_.below(ports), key}}, {"lagGroupId", random_.below(60)}};
  }
  if (table == "LagHashControl") {
    return {{"useVlanId", true}, {"useSipAndDip", random_.flip()}, {"hashSeed", random_.below(64)}};
  }
  if (table == "RxPortMirror") return {{"portMask", mask(ports)}, {"enabled", true}};
  if (table == "MacVlan") {
    return {{"valid", true},
            {"vlanId", random_.below(4095)},
            {"macAddr", Orb::text(Bridging::EthAddr(U64{random_()} << 8 | 1))},
            {"portMask", mask(ports)},
            {"multicast", random_.flip()},
            {"routed", random_.flip()}};
  }
  if (table == "VlanGroup") {
    Json vlans = Json::array();
    for (U32 i = 0; i < 8; ++i) vlans.push_back(1 + random_.below(4094));
    return {{"vlanIds", vlans}};
  }
  if (table == "Copp") {
    using namespace VelaSwitchTable;
    const CoppEntryKey at{static_cast<U8>(key.get<U32>())};
    const bool scale = profile_.hwApi() >= VelaSwitch::ProfileHwApi{5u, 1u};
    return VelaAgent::toJson(
        CoppEntry::fromCpuHardwareValue(at, 1 + random_.below(0x3fffe), scale));
  }
  if (table == "L3FloodArp") {
    return {{"ethAddr", Orb::text(Bridging::EthAddr(U64{random_()} << 16 | 1))},
            {"vlanId", random_.below(4095)}};
  }
  if (table == "L3FloodBitmap") return {{"portMask", mask(ports)}};
  if (table == "L3Lag") return {{"portMask", mask(ports)}, {"cpuPriority", random_.flip()}};
  if (table == "NatRewrite") {
    return {{"newIp", ip(random_())},
            {"newPort", 1 + random_.below(65535)},
            {"l3ChecksumCorrection", random_.below(65536)}};
  }
  if (table == "Lpm11") {
    return {{"cellResult", nexthop(0)}, {"cpuTrap", random_.flip()}};
  }
  if (isLevel(table)) {
    Json cells = Json::array();
    const U8 base = baseLength(table);
    for (U32 cell = 0; cell < 4; ++cell) {
      cells.push_back(cell != 1 && random_.flip()
                          ? Json(nullptr)
                          : nexthop(static_cast<U8>(base + random_.below(3))));
    }
    return {{"cells", cells}, {"cpuTrap", random_.flip()}};
  }
  if (table == "Route") {
    Json hop = nexthop(0);
    hop.erase("realPrefixLen");
    return hop;
  }
  if (table == "SG" || table == "StarG") {
    return {{"vlanGroupId", random_.below(16)}, {"portMask", mask(ports)}};
  }
  if (table == "NatMatch" || table == "NatDynMatch") {
    return {{"valid", true},
            {"proto", random_.below(4)},
            {"natRewriteId", random_.below(4096)},
            {"trapToCpu", random_.flip()},
            {"l3LagIndex", random_.below(57)},
            {"rewriteIndex", random_.below(64)}};
  }
  if (table == "AclHash") {
    return {{"priority", random_.below(256)}, {"counterIndex", random_.below(4096)}};
  }
  if (table == "AclIndirectCounterHash") return 1 + random_.below(4095);
  return random_();
}

std::vector<std::string> profileNames() {
  std::vector<std::string> names;
  for (const auto& profile : VelaSwitch::ProfileInfo::builtIns()) names.push_back(profile->name());
  return names;
}

std::string profileTestName(const testing::TestParamInfo<std::string>& profile) {
  std::string name = profile.param;
  std::replace_if(
      name.begin(), name.end(), [](char c) { return !std::isalnum(c); }, '_');
  return name;
}

bool comparable(const std::string& table) {
  return table != "Copp" && table != "LagMembership" && table != "Lpm11";
}

std::vector<Group> groups(const VelaSwitch::ProfileInfo& profile) {
  std::vector<Group> all;
  Group routes{{"Route", "Lpm11"}, {{"Route", 0}}};
  for (const auto& level : VelaSwitchTable::lpmLevels) {
    routes.make.push_back("Lpm" + std::to_string(level.longest()));
  }
  for (const auto& family : VelaAgent::families()) {
    // Level 29 has (*,G) entries among its rows; remapped protocols have no registers.
    if (family.name == "StarG" || family.name == "ProtocolRemap") continue;
    Group group{{family.name}, {}};
    for (U32 i = 0; i < family.instances(profile); ++i) group.tables.emplace_back(family.name, i);
    if (family.name == "Lpm29") {
      group.make.push_back("StarG");
      group.tables.emplace_back("StarG", 0);
    }
    all.push_back(std::move(group));
  }
  all.push_back(std::move(routes));
  return all;
}

}  // namespace VelaTest
