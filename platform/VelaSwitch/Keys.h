#pragma once

#include <cstddef>
#include <cstring>

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
  Orb::Field<"type", U8> type;                       ///< 0 to 18: which fields take part.
  Orb::Field<"srcIp", Ipnet::IpAddr> srcIp;          ///< Source address; 0.0.0.0 for any.
  Orb::Field<"dstIp", Ipnet::IpAddr> dstIp;          ///< Destination address; 0.0.0.0 for any.
  Orb::Field<"qualifier", U8, 4> qualifier;          ///< Types 3, 7 and 11 take 15, whatever it is.
  Orb::Field<"l4Port", U16> l4Port;                  ///< Layer-4 port; 0 for any.
  Orb::Field<"natId", NatId, 3> natId{NatId::min};   ///< From type 15 on.
  Orb::Field<"natDirection", U8, 1> natDirection;    ///< From type 15 on.
  auto operator<=>(const AclHashKey&) const = default;
};

/// What an ACL entry says of the packets that it matches.
struct AclHashResult {
  static constexpr const char* typeName = "VelaSwitch::AclHashResult";
  Orb::Field<"priority", HwAclPriority> priority;  ///< Precedence among entries; 0 for none.
  Orb::Field<"counterIndex", HwCounterIndex> counterIndex;  ///< What counts them; 0 for none.
  auto operator<=>(const AclHashResult&) const = default;
};

/// A flow that address translation applies to. `natType`: 0 source address, 1 source address and
/// port, 2 destination address, 3 destination address and port.
struct NatMatchKey {
  static constexpr const char* typeName = "VelaSwitch::NatMatchKey";
  Orb::Field<"natType", U8, 2> natType;       ///< 0 to 3.
  Orb::Field<"proto", U8, 3> proto;           ///< Protocol class.
  Orb::Field<"dstIp", Ipnet::IpAddr> dstIp;   ///< Of types 2 and 3, and of dynamic tables.
  Orb::Field<"srcIp", Ipnet::IpAddr> srcIp;   ///< Of types 0 and 1, and of dynamic tables.
  Orb::Field<"dport", U16> dport;             ///< Of type 3, and of dynamic tables.
  Orb::Field<"sport", U16> sport;             ///< Of type 1, and of dynamic tables.
  Orb::Field<"qualifier", U16, 6> qualifier;  ///< Static tables alone compare it.
  auto operator<=>(const NatMatchKey&) const = default;
  U32 hash(U32 seed) const { return Orb::seededHash(*this, seed); }
};

/// A counter that an ACL refers to.
struct AclIndirectCounterHashKey {
  static constexpr const char* typeName = "VelaSwitch::AclIndirectCounterHashKey";
  static constexpr bool scalar = true;
  Orb::Field<"counterKey", U16> counterKey;  ///< All 16 bits are compared.
  auto operator<=>(const AclIndirectCounterHashKey&) const = default;
};

/// Where the counter is; 0 for nowhere.
struct AclIndirectCounterHashResult {
  static constexpr const char* typeName = "VelaSwitch::AclIndirectCounterHashResult";
  static constexpr bool scalar = true;
  Orb::Field<"counterIndex", U16, 12> counterIndex;  ///< 1 to 4095; 0 for nowhere.
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
  Orb::Field<"source", Ipnet::IpAddr> source;           ///< Of (S,G) alone.
  Orb::Field<"group", Ipnet::IpAddr> group;             ///< The low 28 bits count.
  Orb::Field<"vlanId", Bridging::VlanIdOrNone> vlanId;  ///< The VLAN that the packet comes in by.
  auto operator<=>(const MrouteKey&) const = default;
  U32 hash(U32 seed) const { return Orb::seededHash(*this, seed); }
};

/// A prefix in a VRF.
struct LpmKey {
  static constexpr const char* typeName = "VelaSwitch::LpmKey";
  Orb::Field<"vrf", U8> vrf;  ///< Below the profile's number of VRFs.
  /// 0 to 32 bits; of an entry of a level, as many as its keys have.
  Orb::Field<"prefix", Ipnet::IpPrefix> prefix;
  auto operator<=>(const LpmKey&) const = default;
  U32 hash(U32 seed) const { return Orb::seededHash(*this, seed); }
};

/// The same key, written as words. One whose fields are written one by one cannot be copied as
/// words before memory has them, and with them all that was written earlier.
[[gnu::always_inline]] inline LpmKey inWords(const LpmKey& key) {
  const U64 front = U64{key.vrf()} | U64{key.prefix().address().number()} << 32;
  const U32 back = key.prefix().len();
  LpmKey words;
  void* to = &words;
  static_assert(offsetof(LpmKey, vrf) == 0 && offsetof(LpmKey, prefix) == sizeof(U32) &&
                sizeof words == sizeof front + sizeof back);
  std::memcpy(to, &front, sizeof front);
  std::memcpy(static_cast<std::byte*>(to) + sizeof front, &back, sizeof back);
  // Else compilers see the fields behind the words, and write these.
  asm("" : "+m"(words));
  return words;
}

}  // namespace VelaSwitch
