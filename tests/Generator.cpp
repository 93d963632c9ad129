#include "Generator.h"

#include <sstream>

#include "Bridging/EthAddr.h"
#include "VelaSwitchTable/VelaTableCopp.h"
#include "VelaSwitchTable/VelaTableLpmTables.h"
#include "agent/Events.h"
#include "agent/Registry.h"

namespace VelaTest {
namespace {

constexpr U32 spread = 2654435761u;  ///< Odd, so that numbers times it are all different.

std::string ip(U32 address) { return Orb::text(Ipnet::IpAddr(address)); }

std::string prefix(U32 address, U8 len) {
  return Orb::text(Ipnet::IpPrefix(Ipnet::IpAddr(address), len));
}

/// The key with all of its fields, as tables tell it.
template <class Key>
Json spelled(const Json& key) {
  return VelaAgent::toJson(VelaAgent::fromJson<Key>(key));
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

/// The results that are independent fields, each with what it may be.
const std::map<std::string, std::string>& plainResults() {
  static const std::string nexthop = "l3LagIndex=0..56 rewriteIndex=0..63";
  static const std::string flow =
      "valid=true proto=0..3 natRewriteId=0..4095 trapToCpu=flag " + nexthop;
  static const std::string multicast = "vlanGroupId=0..15 portMask=ports";
  static const std::map<std::string, std::string> all{
      {"VlanMembership",
       "permitMask=ports learnToCpu=flag unknownMulticastToCpu=flag multicastJoinToCpu=flag "
       "broadcastToCpu=flag unknownDaToCpu=flag multicastJoinToEgress=flag unicastRoute=flag "
       "multicastRoute=flag"},
      {"FloodSet", "uucPortMask=ports umcPortMask=ports"},
      {"NativeVlan", "nativeVlanId=2..4094 pcp=0..7"},
      {"L2Control", "isMlagPeer=flag learnOnly=true learnDisabled=flag"},
      {"LagGroup", "lagGroupId=1..28"},
      {"LagLookUp", "buckets=1..254"},
      {"LagHashControl", "useVlanId=true useSipAndDip=flag hashSeed=0..63"},
      {"RxPortMirror", "portMask=ports enabled=true"},
      {"MacVlan",
       "valid=true vlanId=0..4094 macAddr=mac portMask=ports multicast=flag routed=flag"},
      {"L3FloodArp", "ethAddr=mac vlanId=0..4094"},
      {"L3FloodBitmap", "portMask=ports"},
      {"L3Lag", "portMask=ports cpuPriority=flag"},
      {"NatRewrite", "newIp=ip newPort=1..65535 l3ChecksumCorrection=0..65535"},
      {"Route", nexthop},
      {"SG", multicast},
      {"StarG", multicast},
      {"NatMatch", flow},
      {"NatDynMatch", flow},
      {"AclHash", "priority=0..255 counterIndex=0..4095"}};
  return all;
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
    const U32 type = number % 4;
    Json key = {{"natType", type},
                {"proto", number / 4 % 8},
                {type < 2 ? "srcIp" : "dstIp", ip(bits)},
                {"qualifier", number % 64}};
    // The others translate an address alone.
    if (type == 1) key["sport"] = number % 65535 + 1;
    if (type == 3) key["dport"] = number % 65535 + 1;
    return spelled<VelaSwitch::NatMatchKey>(key);
  }
  if (table == "NatDynMatch") {
    return spelled<VelaSwitch::NatMatchKey>({{"natType", number / 8 % 4},
                                             {"proto", number % 8},
                                             {"srcIp", ip(bits)},
                                             {"dstIp", ip(~bits)},
                                             {"sport", number},
                                             {"dport", bits >> 16}});
  }
  if (table == "AclHash") {
    return spelled<VelaSwitch::AclHashKey>({{"aclId", number % 16},
                                            {"type", 12},
                                            {"srcIp", ip(bits)},
                                            {"dstIp", ip(bits * spread | 1)},
                                            {"qualifier", number % 16},
                                            {"l4Port", number % 65535 + 1}});
  }
  if (table == "AclIndirectCounterHash") return bits >> 16;
  if (table == "NatRewrite") {
    return {{"baseChipPortId", bits % (profile_.ports() / 2) * 2}, {"rewriteIndex", number % 4096}};
  }
  return number;
}

/// A random value of a kind: a range of numbers, or by a name.
Json Generator::random(const std::string& kind) {
  if (kind == "true") return true;
  if (kind == "flag") return random_.flip();
  if (kind == "ip") return ip(random_());
  if (kind == "mac") return Orb::text(Bridging::EthAddr(U64{random_()} << 16 | 1));
  if (kind == "ports") {
    const U64 all = (U64{1} << profile_.ports()) - 1;
    const U64 some = (U64{random_()} << 32 | random_()) & all & ~U64{2};  // not all, but one
    return VelaAgent::hexText(some | 1, 0);
  }
  const auto least = std::stoul(kind);
  const auto most = std::stoul(kind.substr(kind.find("..") + 2));
  return least + random_.below(static_cast<U32>(most - least + 1));
}

Json Generator::result(const std::string& table, const Json& key) {
  Json result;
  if (const auto plain = plainResults().find(table); plain != plainResults().end()) {
    std::istringstream fields(plain->second);
    for (std::string name, value; std::getline(fields >> std::ws, name, '=') && fields >> value;) {
      result[name] = random(value);
    }
    if (table != "VlanMembership") return result;
    result["vrfBits"] = random_.below(profile_.vrfs());
    if (profile_.registerFormat().major() < 4) return result;
    // Rows do not tell what is 0 from what was not given.
    for (const char* pipe : {"0", "1"}) {
      result["aclId"][pipe] = 1 + random_.below(15);
      result["natId"][pipe] = 2 + random_.below(6);
      for (const char* flag : {"aclEnable", "natEnable"}) {
        if (random_.flip()) result[flag][pipe] = 1;
      }
      if (random_.flip()) result["aclDefaultPermit"][pipe] = true;
    }
    return result;
  }
  const auto cell = [&](U8 length) {
    Json hop = this->result("Route", key);
    hop["realPrefixLen"] = length;
    return hop;
  };
  if (table == "PortConfig") {
    return {{"portMode", random_.flip() ? "access" : "qinq"}, {"txDisabled", random_.flip()}};
  }
  if (table == "LagMembership") {
    return {{"port", {random_.below(profile_.ports()), key}}, {"lagGroupId", random_.below(60)}};
  }
  if (table == "VlanGroup") {
    for (U32 i = 0; i < 8; ++i) result["vlanIds"].push_back(1 + random_.below(4094));
    return result;
  }
  if (table == "Copp") {
    using namespace VelaSwitchTable;
    const CoppEntryKey at{static_cast<U8>(key.get<U32>())};
    const bool scale = profile_.hwApi() >= VelaSwitch::ProfileHwApi{5u, 1u};
    return VelaAgent::toJson(
        CoppEntry::fromCpuHardwareValue(at, 1 + random_.below(0x3fffe), scale));
  }
  if (table == "Lpm11") return {{"cellResult", cell(0)}, {"cpuTrap", random_.flip()}};
  if (isLevel(table)) {
    const U8 base = baseLength(table);
    for (U32 i = 0; i < 4; ++i) {
      const bool none = i != 1 && random_.flip();
      const auto length = static_cast<U8>(base + random_.below(3));
      result["cells"].push_back(none ? Json(nullptr) : cell(length));
    }
    result["cpuTrap"] = random_.flip();
    return result;
  }
  if (table == "AclIndirectCounterHash") return 1 + random_.below(4095);
  return random_();
}

EntryKey Generator::randomKey(const Group& group, U32 numbers) {
  const auto tables = static_cast<U32>(group.tables.size());
  const U32 table = random_.below(tables);
  return {table, key(group.tables[table].first, random_.below(numbers) * tables + table)};
}

Desired Generator::entries(const Group& group, U32 most) {
  Desired desired;
  const auto tables = static_cast<U32>(group.tables.size());
  for (U32 table = 0; table < tables; ++table) {
    const std::string& name = group.tables[table].first;
    for (U32 i = 0; i < std::min(keys(name) / 2, most); ++i) {
      const Json at = key(name, i * tables + table);
      desired[{table, at}] = result(name, at);
    }
  }
  return desired;
}

void GroupAgent::setAll(const Desired& desired) {
  struct Listener final : VelaAgent::BatchListener {
    void entryDone(std::size_t number, const VelaAgent::EntryOutcome&) override {
      ASSERT_EQ(number, done++);
    }
    std::size_t done = 0;
  };
  for (auto at = desired.begin(); at != desired.end();) {
    auto& entries = of(at->first).typed();
    std::vector<std::pair<VelaAgent::AnyValue, VelaAgent::AnyValue>> values;
    const std::size_t tableOfAll = at->first.first;
    for (; at != desired.end() && at->first.first == tableOfAll; ++at) {
      auto& [key, result] = values.emplace_back(entries.keyShape(), entries.resultShape());
      VelaAgent::anyFromJson(at->first.second, profile(), key.shape(), key.value());
      VelaAgent::anyFromJson(at->second, profile(), result.shape(), result.value());
      entries.check(key, result);
    }
    std::vector<VelaAgent::Entries::Announcement> all;
    all.reserve(values.size());
    for (const auto& [key, result] : values) all.push_back({key, result});
    Listener listener;
    entries.announceAll(all, listener);
    EXPECT_EQ(listener.done, all.size());
    settle();
  }
}

void GroupAgent::expectFound(const EntryKey& key, const Json& result) {
  const Json hit = find(key);
  ASSERT_FALSE(hit.is_null()) << of(key).name() << key.second;
  if (comparable(of(key).name())) {
    ASSERT_TRUE(VelaAgent::meets(hit, result)) << of(key).name() << key.second << hit << result;
  }
}

void GroupAgent::expectTruth() {
  for (std::size_t at = 0; at < group.tables.size(); ++at) {
    const VelaAgent::TableAdapter& table = of({at, {}});
    U32 programmed = 0;
    U32 waiting = 0;
    for (const auto& status : table.statuses()) {
      waiting += status.status == EntryProgrammedStatus::tableFull ? 1 : 0;
      if (status.status != EntryProgrammedStatus::programmed) continue;
      programmed += table.typed().announced(status.value) ? 1 : 0;
      ASSERT_FALSE(find({at, status.key}).is_null()) << table.name() << status.key;
    }
    ASSERT_EQ(table.programmed(), programmed) << table.name();
    ASSERT_EQ(table.waiting(), waiting) << table.name();
  }
}

void expectNoFindings(const VelaAgent::Agent& agent) {
  for (const auto& table : agent.tables()) {
    table->audit();
    ASSERT_TRUE(table->findings().empty()) << table->name() << Json(table->findings().size());
  }
}

std::map<Row, std::vector<U32>> rowsOf(GroupAgent& agent) {
  std::map<Row, std::vector<U32>> all;
  for (const auto& table : agent.tables()) {
    for (const auto& [id, hwTable] : table->convertor().hwTables()) {
      const auto& [family, instance, number, name] = hwTable->descriptor().identity;
      const auto* memory = agent.chip().find(family, instance, id);
      for (U32 index = 0; index <= memory->lastIndex; ++index) {
        const U32* words = memory->row(index);
        if (words) all[{name, index}].assign(words, words + memory->rowWords());
      }
    }
  }
  return all;
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
    for (U32 i = 0; i < family.instances(profile.pipelines()); ++i)
      group.tables.emplace_back(family.name, i);
    if (family.name == "Lpm29") {
      group.make.emplace_back("StarG");
      group.tables.emplace_back("StarG", 0);
    }
    all.push_back(std::move(group));
  }
  all.push_back(std::move(routes));
  return all;
}

}  // namespace VelaTest
