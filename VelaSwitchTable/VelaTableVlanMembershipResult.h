#pragma once

#include "Bridging/VlanId.h"
#include "Orb/Value.h"
#include "VelaSwitch/PipeMap.h"

namespace VelaSwitchTable {

/// A VLAN.
struct VlanMembershipKey {
  static constexpr const char* typeName = "VelaSwitchTable::VlanMembershipKey";
  static constexpr bool scalar = true;
  static constexpr bool bareText = true;
  Orb::Field<"vid", Bridging::VlanId> vid;  ///< The row in each VLAN table.
  auto operator<=>(const VlanMembershipKey&) const = default;
};

/// What a VLAN is: its ports, what of it goes to the CPU, its VRF and, per pipe, its ACL and NAT.
struct VELA_EXPORT VlanMembershipResult {
  static constexpr const char* typeName = "VelaSwitchTable::VlanMembershipResult";
  static constexpr const char* noTextReason =
      "No String constructor for VlanMembershipResult - has collection";

  Orb::Field<"permitMask", U64> permitMask;  ///< Bit n: port n is a member; low 48 bits used.
  Orb::Field<"learnToCpu", bool> learnToCpu{true};                  ///< Frames from new addresses.
  Orb::Field<"unknownMulticastToCpu", bool> unknownMulticastToCpu;  ///< Groups that nobody joined.
  Orb::Field<"multicastJoinToCpu", bool> multicastJoinToCpu;        ///< Membership reports.
  Orb::Field<"broadcastToCpu", bool> broadcastToCpu;                ///< Broadcasts.
  Orb::Field<"unknownDaToCpu", bool> unknownDaToCpu;                ///< Unknown destinations.
  Orb::Field<"multicastJoinToEgress", bool> multicastJoinToEgress{true};  ///< Reports go out too.
  Orb::Field<"vrfBits", U8> vrfBits;              ///< As many low bits as the profile has VRF bits.
  Orb::Field<"unicastRoute", bool> unicastRoute;  ///< Unicast is routed.
  Orb::Field<"multicastRoute", bool> multicastRoute;  ///< Multicast is routed.
  /// The ACL that frames are checked against.
  Orb::Field<"aclId", VelaSwitch::PipeMap<VelaSwitch::HwAclId>> aclId;
  Orb::Field<"aclEnable", VelaSwitch::PipeMap<U8>> aclEnable;  ///< 1 where they are; bit 0 used.
  /// Frames that match no entry pass.
  Orb::Field<"aclDefaultPermit", VelaSwitch::PipeMap<bool>> aclDefaultPermit;
  /// The NAT that frames are subject to.
  Orb::Field<"natId", VelaSwitch::PipeMap<VelaSwitch::NatId>> natId;
  Orb::Field<"natEnable", VelaSwitch::PipeMap<U8>> natEnable;  ///< 1 where they are; bit 0 used.
  auto operator<=>(const VlanMembershipResult&) const = default;

  /// Whether anything differs from the default.
  explicit operator bool() const { return *this != VlanMembershipResult{}; }

  using PipeId = VelaSwitch::PipeId;
  ///@{ Gives a pipe a value, or takes it back: without one rows say none, or off.
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
  ///@}

  /// The fields that are not per pipe, for people.
  std::string resultString() const;
};

/// The form for people: resultString() and, for each map that is not empty, its pipes.
VELA_EXPORT std::ostream& operator<<(std::ostream& out, const VlanMembershipResult& result);

}  // namespace VelaSwitchTable
