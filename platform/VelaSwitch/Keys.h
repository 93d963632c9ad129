#pragma once

#include "Bridging/VlanId.h"
#include "Ipnet/IpAddr.h"
#include "Ipnet/IpPrefix.h"
#include "Orb/Value.h"
#include "VelaSwitch/Types.h"

/// Keys and results that the tables and the data path have in common.
namespace VelaSwitch {

/// What the ingress ACL processor matches. Which fields take part depends on the type code: 0 to 6
/// destination and port, 7 to 10 source and port, 11 to 14 both addresses and port, from 15 on both
/// addresses with the NAT selection. An address or port of 0 matches any.
struct AclHashKey {
  static constexpr const char* typeName = "VelaSwitch::AclHashKey";
  static constexpr U8 types = 19;  ///< How many type codes hardware can tell apart.
  Orb::Field<"aclId", HwAclId> aclId{HwAclId::min};  ///< 4 bits used.
  Orb::Field<"type", U8> type;
  Orb::Field<"srcIp", Ipnet::IpAddr> srcIp;
  Orb::Field<"dstIp", Ipnet::IpAddr> dstIp;
  Orb::Field<"qualifier", U8, 4> qualifier;
  Orb::Field<"l4Port", U16> l4Port;
  Orb::Field<"natId", NatId, 3> natId{NatId::min};
  Orb::Field<"natDirection", U8, 1> natDirection;
  auto operator<=>(const AclHashKey&) const = default;
};

struct AclHashResult {
  static constexpr const char* typeName = "VelaSwitch::AclHashResult";
  Orb::Field<"priority", HwAclPriority> priority;
  Orb::Field<"counterIndex", HwCounterIndex> counterIndex;
  auto operator<=>(const AclHashResult&) const = default;
};

/// A flow that address translation applies to. `natType`: 0 source address, 1 source address and
/// port, 2 destination address, 3 destination address and port.
struct NatMatchKey {
  static constexpr const char* typeName = "VelaSwitch::NatMatchKey";
  Orb::Field<"natType", U8, 2> natType;
  Orb::Field<"proto", U8, 3> proto;  ///< Protocol class.
  Orb::Field<"dstIp", Ipnet::IpAddr> dstIp;
  Orb::Field<"srcIp", Ipnet::IpAddr> srcIp;
  Orb::Field<"dport", U16> dport;
  Orb::Field<"sport", U16> sport;
  Orb::Field<"qualifier", U16, 6> qualifier;
  auto operator<=>(const NatMatchKey&) const = default;
  U32 hash(U32 seed) const { return Orb::seededHash(*this, seed); }
};

/// A counter that an ACL refers to.
struct AclIndirectCounterHashKey {
  static constexpr const char* typeName = "VelaSwitch::AclIndirectCounterHashKey";
  static constexpr bool scalar = true;
  Orb::Field<"counterKey", U16> counterKey;
  auto operator<=>(const AclIndirectCounterHashKey&) const = default;
};

/// Where the counter is; 0 for nowhere.
struct AclIndirectCounterHashResult {
  static constexpr const char* typeName = "VelaSwitch::AclIndirectCounterHashResult";
  static constexpr bool scalar = true;
  Orb::Field<"counterIndex", U16, 12> counterIndex;
  auto operator<=>(const AclIndirectCounterHashResult&) const = default;
};

/// A row of the NAT rewrites. Each pair of chip ports has its own.
struct NatRewriteKey {
  static constexpr const char* typeName = "VelaSwitch::NatRewriteKey";
  Orb::Field<"baseChipPortId", ChipPortId> baseChipPortId;  ///< The even port of the pair.
  Orb::Field<"rewriteIndex", U16> rewriteIndex;             ///< 0 to 4095.
  auto operator<=>(const NatRewriteKey&) const = default;
};

/// A multicast route: a group in a VLAN, from one source where the table asks for it.
struct MrouteKey {
  static constexpr const char* typeName = "VelaSwitch::MrouteKey";
  Orb::Field<"source", Ipnet::IpAddr> source;
  Orb::Field<"group", Ipnet::IpAddr> group;  ///< The low 28 bits count.
  Orb::Field<"vlanId", Bridging::VlanIdOrNone> vlanId;
  auto operator<=>(const MrouteKey&) const = default;
  U32 hash(U32 seed) const { return Orb::seededHash(*this, seed); }
};

/// A prefix in a VRF.
struct LpmKey {
  static constexpr const char* typeName = "VelaSwitch::LpmKey";
  Orb::Field<"vrf", U8> vrf;
  Orb::Field<"prefix", Ipnet::IpPrefix> prefix;
  auto operator<=>(const LpmKey&) const = default;
  U32 hash(U32 seed) const { return Orb::seededHash(*this, seed); }
};

}  // namespace VelaSwitch
