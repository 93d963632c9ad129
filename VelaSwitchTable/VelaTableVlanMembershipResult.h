#pragma once

#include "Bridging/VlanId.h"
#include "Orb/Value.h"
#include "VelaSwitch/PipeMap.h"

namespace VelaSwitchTable {

struct VlanMembershipKey {
  static constexpr const char* typeName = "VelaSwitchTable::VlanMembershipKey";
  static constexpr bool scalar = true;
  static constexpr bool bareText = true;
  Orb::Field<"vid", Bridging::VlanId> vid;
  auto operator<=>(const VlanMembershipKey&) const = default;
};

/// What a VLAN is: its ports, what of it goes to the CPU, its VRF and, per pipe, its ACL and NAT.
struct VELA_EXPORT VlanMembershipResult {
  static constexpr const char* typeName = "VelaSwitchTable::VlanMembershipResult";
  static constexpr const char* noTextReason =
      "No String constructor for VlanMembershipResult - has collection";

  Orb::Field<"permitMask", U64> permitMask;  ///< Bit n: port n is a member; low 48 bits used.
  Orb::Field<"learnToCpu", bool> learnToCpu{true};
  Orb::Field<"unknownMulticastToCpu", bool> unknownMulticastToCpu;
  Orb::Field<"multicastJoinToCpu", bool> multicastJoinToCpu;
  Orb::Field<"broadcastToCpu", bool> broadcastToCpu;
  Orb::Field<"unknownDaToCpu", bool> unknownDaToCpu;
  Orb::Field<"multicastJoinToEgress", bool> multicastJoinToEgress{true};
  Orb::Field<"vrfBits", U8> vrfBits;  ///< As many low bits as the profile has VRF bits.
  Orb::Field<"unicastRoute", bool> unicastRoute;
  Orb::Field<"multicastRoute", bool> multicastRoute;
  Orb::Field<"aclId", VelaSwitch::PipeMap<VelaSwitch::HwAclId>> aclId;
  Orb::Field<"aclEnable", VelaSwitch::PipeMap<U8>> aclEnable;
  Orb::Field<"aclDefaultPermit", VelaSwitch::PipeMap<bool>> aclDefaultPermit;
  Orb::Field<"natId", VelaSwitch::PipeMap<VelaSwitch::NatId>> natId;
  Orb::Field<"natEnable", VelaSwitch::PipeMap<U8>> natEnable;
  auto operator<=>(const VlanMembershipResult&) const = default;

  /// Whether anything differs from the default.
  explicit operator bool() const { return *this != VlanMembershipResult{}; }

  using PipeId = VelaSwitch::PipeId;
  void aclIdIs(PipeId pipe, VelaSwitch::HwAclId id) { aclId.value.is(pipe, id); }
  void aclIdDel(PipeId pipe) { aclId.value.del(pipe); }
  void aclIdDelAll() { aclId.value.delAll(); }
  void aclEnableIs(PipeId pipe, U8 enable) { aclEnable.value.is(pipe, enable); }
  void aclEnableDel(PipeId pipe) { aclEnable.value.del(pipe); }
  void aclEnableDelAll() { aclEnable.value.delAll(); }
  void aclDefaultPermitIs(PipeId pipe, bool permit) { aclDefaultPermit.value.is(pipe, permit); }
  void aclDefaultPermitDel(PipeId pipe) { aclDefaultPermit.value.del(pipe); }
  void aclDefaultPermitDelAll() { aclDefaultPermit.value.delAll(); }
  void natIdIs(PipeId pipe, VelaSwitch::NatId id) { natId.value.is(pipe, id); }
  void natIdDel(PipeId pipe) { natId.value.del(pipe); }
  void natIdDelAll() { natId.value.delAll(); }
  void natEnableIs(PipeId pipe, U8 enable) { natEnable.value.is(pipe, enable); }
  void natEnableDel(PipeId pipe) { natEnable.value.del(pipe); }
  void natEnableDelAll() { natEnable.value.delAll(); }

  /// The fields that are not per pipe, for people.
  std::string resultString() const;
};

/// The form for people: resultString() and, for each map that is not empty, its pipes.
VELA_EXPORT std::ostream& operator<<(std::ostream& out, const VlanMembershipResult& result);

}  // namespace VelaSwitchTable
