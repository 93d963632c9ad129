#pragma once

#include <optional>
#include <string>

#include <string_view>
#include <vector>

#include "Bridging/EthAddr.h"
#include "Bridging/VlanId.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitch/PipeMap.h"
#include "VelaSwitch/PortMask.h"
#include "VelaSwitch/Profile.h"
#include "device/SimulatedSwitch.h"

/// What the packet pipelines do with the tables: lookups from register words alone. Everything here
/// is written from the hardware's side, with bit arithmetic and hashes of its own, so that an error
/// in packing shows as a wrong answer.
namespace VelaDevice {

struct HashTestHit {
  static constexpr const char* typeName = "VelaDevice::HashTestHit";
  Orb::Field<"result", U32> result;
  auto operator<=>(const HashTestHit&) const = default;
};

/// A VLAN's row as a port's pipeline sees it, or the whole VLAN put together from all slices.
struct VlanHit {
  static constexpr const char* typeName = "VelaDevice::VlanHit";
  Orb::Field<"permitMask", U64> permitMask;
  Orb::Field<"learnToCpu", bool> learnToCpu;
  Orb::Field<"unknownMulticastToCpu", bool> unknownMulticastToCpu;
  Orb::Field<"multicastJoinToCpu", bool> multicastJoinToCpu;
  Orb::Field<"broadcastToCpu", bool> broadcastToCpu;
  Orb::Field<"unknownDaToCpu", bool> unknownDaToCpu;
  Orb::Field<"multicastJoinToEgress", bool> multicastJoinToEgress;
  Orb::Field<"vrfBits", U8> vrfBits;
  Orb::Field<"unicastRoute", bool> unicastRoute;
  Orb::Field<"multicastRoute", bool> multicastRoute;
  Orb::Field<"aclId", VelaSwitch::PipeMap<U8>> aclId;
  Orb::Field<"aclEnable", VelaSwitch::PipeMap<U8>> aclEnable;
  Orb::Field<"aclDefaultPermit", VelaSwitch::PipeMap<bool>> aclDefaultPermit;
  Orb::Field<"natId", VelaSwitch::PipeMap<U8>> natId;
  Orb::Field<"natEnable", VelaSwitch::PipeMap<U8>> natEnable;
  auto operator<=>(const VlanHit&) const = default;
};

/// The next hop that a route lookup ends at.
struct RouteHit {
  static constexpr const char* typeName = "VelaDevice::RouteHit";
  Orb::Field<"l3LagIndex", U16> l3LagIndex;
  Orb::Field<"rewriteIndex", U8> rewriteIndex;
  /// Nothing where registers do not tell.
  Orb::Field<"realPrefixLen", std::optional<U8>> realPrefixLen;
  auto operator<=>(const RouteHit&) const = default;
};

/// A row of the first level.
struct Lpm11Hit {
  static constexpr const char* typeName = "VelaDevice::Lpm11Hit";
  Orb::Field<"cellResult", RouteHit> cellResult;
  Orb::Field<"cpuTrap", bool> cpuTrap;
  auto operator<=>(const Lpm11Hit&) const = default;
};

/// A row of a hashed level.
struct LpmRowHit {
  static constexpr const char* typeName = "VelaDevice::LpmRowHit";
  Orb::Field<"cells", std::vector<std::optional<RouteHit>>> cells;
  Orb::Field<"cpuTrap", bool> cpuTrap;
  auto operator<=>(const LpmRowHit&) const = default;
};

/// Who gets a copy of a multicast packet.
struct MrouteHit {
  static constexpr const char* typeName = "VelaDevice::MrouteHit";
  Orb::Field<"vlanGroupId", U8> vlanGroupId;
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  auto operator<=>(const MrouteHit&) const = default;
};

/// What a translated packet's match says.
struct NatHit {
  static constexpr const char* typeName = "VelaDevice::NatHit";
  Orb::Field<"valid", bool> valid;
  Orb::Field<"proto", U8> proto;
  Orb::Field<"natRewriteId", U16> natRewriteId;
  Orb::Field<"useAcl", std::optional<bool>> useAcl;  ///< Static matches alone.
  Orb::Field<"trapToCpu", bool> trapToCpu;
  Orb::Field<"l3LagIndex", U16> l3LagIndex;
  Orb::Field<"rewriteIndex", U8> rewriteIndex;
  auto operator<=>(const NatHit&) const = default;
};

struct NatRewriteHit {
  static constexpr const char* typeName = "VelaDevice::NatRewriteHit";
  Orb::Field<"newIp", Ipnet::IpAddr> newIp;
  Orb::Field<"newPort", U16> newPort;
  Orb::Field<"l3ChecksumCorrection", U16> l3ChecksumCorrection;
  auto operator<=>(const NatRewriteHit&) const = default;
};

/// A packet that may be translated, and the port that it leaves by.
struct Flow {
  static constexpr const char* typeName = "VelaDevice::Flow";
  Orb::Field<"proto", U8> proto;  ///< Protocol class.
  Orb::Field<"srcIp", Ipnet::IpAddr> srcIp;
  Orb::Field<"dstIp", Ipnet::IpAddr> dstIp;
  Orb::Field<"sport", U16> sport;
  Orb::Field<"dport", U16> dport;
  Orb::Field<"qualifier", U16> qualifier;
  Orb::Field<"egressPort", U16> egressPort;
};

struct FlowHit {
  static constexpr const char* typeName = "VelaDevice::FlowHit";
  Orb::Field<"matchedBy", std::string> matchedBy;  ///< The family whose row matched.
  Orb::Field<"match", NatHit> match;
  Orb::Field<"rewrite", NatRewriteHit> rewrite;
};

struct CounterHit {
  static constexpr const char* typeName = "VelaDevice::CounterHit";
  Orb::Field<"counterIndex", U16> counterIndex;
  auto operator<=>(const CounterHit&) const = default;
};

struct FloodArpHit {
  static constexpr const char* typeName = "VelaDevice::FloodArpHit";
  Orb::Field<"ethAddr", Bridging::EthAddr> ethAddr;
  Orb::Field<"vlanId", U16> vlanId;
  auto operator<=>(const FloodArpHit&) const = default;
};

struct PortMaskHit {
  static constexpr const char* typeName = "VelaDevice::PortMaskHit";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  auto operator<=>(const PortMaskHit&) const = default;
};

struct L3LagHit {
  static constexpr const char* typeName = "VelaDevice::L3LagHit";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  Orb::Field<"cpuPriority", bool> cpuPriority;
  auto operator<=>(const L3LagHit&) const = default;
};

/// The lookups of one switch. A lookup that matches a row of a table with hit bits sets its bit.
class VELA_EXPORT DataPath {
 public:
  /// Both must outlive the data path.
  DataPath(SimulatedSwitch& chip, const VelaSwitch::ProfileInfo& profile)
      : chip_(chip), profile_(profile) {}

  std::optional<HashTestHit> hashTest(U32 key);
  /// The ACL stage of a pipeline.
  std::optional<VelaSwitch::AclHashResult> acl(U32 pipeline, const VelaSwitch::AclHashKey& key);
  /// The VLAN as the pipeline of a port sees it: its slice of the ports.
  std::optional<VlanHit> vlan(U32 port, Bridging::VlanId vid);
  /// The VLAN's row in every table: the ports of all slices, and the pipes' fields of all tables.
  std::optional<VlanHit> vlan(Bridging::VlanId vid);

  /// The longest route that covers the address: the hashed levels from the longest on, then the
  /// first level.
  std::optional<RouteHit> route(U32 vrf, Ipnet::IpAddr address);
  /// The row of a hashed level, such as "Lpm23", that the address falls into.
  std::optional<LpmRowHit> lpmRow(std::string_view family, U32 vrf, Ipnet::IpAddr address);
  /// The row of the first level that the address falls into.
  std::optional<Lpm11Hit> lpm11(U32 vrf, Ipnet::IpAddr address);

  /// The multicast route of the packet's source, or else that of any source.
  std::optional<MrouteHit> multicast(const VelaSwitch::MrouteKey& key);
  std::optional<MrouteHit> sg(const VelaSwitch::MrouteKey& key);
  std::optional<MrouteHit> starG(const VelaSwitch::MrouteKey& key);

  /// Address translation: the match of a static or dynamic table, the rewrite of a port pair, and a
  /// packet's way through both.
  std::optional<NatHit> natMatch(U32 instance, const VelaSwitch::NatMatchKey& key);
  std::optional<NatHit> natDynMatch(U32 instance, const VelaSwitch::NatMatchKey& key);
  std::optional<NatRewriteHit> natRewrite(U32 basePort, U32 index);
  std::optional<FlowHit> flow(const Flow& flow);

  /// The counter behind a key in a pipeline's ACL processor.
  std::optional<CounterHit> aclCounter(U32 pipeline, U16 key);

  /// Layer-3 results. A row without an entry holds zeros, and the data path finds those.
  std::optional<FloodArpHit> l3FloodArp(U32 floodId);
  std::optional<PortMaskHit> l3FloodBitmap(U32 floodId);
  std::optional<L3LagHit> l3Lag(U32 index);

 private:
  U32 vrfBits() const;
  std::optional<VlanHit> vlanRow(U32 table, Bridging::VlanId vid);

  SimulatedSwitch& chip_;
  const VelaSwitch::ProfileInfo& profile_;
};

}  // namespace VelaDevice
