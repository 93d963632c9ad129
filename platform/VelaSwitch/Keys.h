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
  Orb::Field<"aclId", HwAclId> aclId{HwAclId::min};  ///< 4 bits used.
  Orb::Field<"type", U8> type;
  Orb::Field<"srcIp", Ipnet::IpAddr> srcIp;
  Orb::Field<"dstIp", Ipnet::IpAddr> dstIp;
  Orb::Field<"qualifier", U8> qualifier;  ///< 4 bits used.
  Orb::Field<"l4Port", U16> l4Port;
  Orb::Field<"natId", NatId> natId{NatId::min};  ///< 3 bits used.
  Orb::Field<"natDirection", U8> natDirection;   ///< 1 bit used.
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
  Orb::Field<"natType", U8> natType;
  Orb::Field<"proto", U8> proto;  ///< Protocol class, 3 bits used.
  Orb::Field<"dstIp", Ipnet::IpAddr> dstIp;
  Orb::Field<"srcIp", Ipnet::IpAddr> srcIp;
  Orb::Field<"dport", U16> dport;
  Orb::Field<"sport", U16> sport;
  Orb::Field<"qualifier", U16> qualifier;  ///< 6 bits used.
  auto operator<=>(const NatMatchKey&) const = default;
};

/// A multicast route: a group in a VLAN, from one source where the table asks for it.
struct MrouteKey {
  static constexpr const char* typeName = "VelaSwitch::MrouteKey";
  Orb::Field<"source", Ipnet::IpAddr> source;
  Orb::Field<"group", Ipnet::IpAddr> group;  ///< The low 28 bits count.
  Orb::Field<"vlanId", Bridging::VlanIdOrNone> vlanId;
  auto operator<=>(const MrouteKey&) const = default;
};

/// A prefix in a VRF.
struct LpmKey {
  static constexpr const char* typeName = "VelaSwitch::LpmKey";
  Orb::Field<"vrf", U8> vrf;
  Orb::Field<"prefix", Ipnet::IpPrefix> prefix;
  auto operator<=>(const LpmKey&) const = default;
};

}  // namespace VelaSwitch
