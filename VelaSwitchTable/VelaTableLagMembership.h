#pragma once

#include "VelaSwitch/ChipPortMap.h"
#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using LagMembershipKey = PortKeyOf<"VelaSwitchTable::LagMembershipKey">;

/// The fields of LagMembershipResult.
struct LagMembershipFields {
  static constexpr const char* typeName = "VelaSwitchTable::LagMembershipResult";
  static constexpr const char* noTextReason =
      "No String constructor for LagMembershipResult - has collection";

  Orb::Field<"port", VelaSwitch::ChipPortMap> port;  ///< True of the LAG's ports.
  Orb::Field<"lagGroupId", U32> lagGroupId;          ///< Not in hardware.
  auto operator<=>(const LagMembershipFields&) const = default;
};

/// The ports of a LAG, and its number.
struct LagMembershipResult : LagMembershipFields {
  using Fields = LagMembershipFields;  ///< What is compared, hashed and written as text.

  LagMembershipResult() = default;
  /// A result of the group, without ports.
  explicit LagMembershipResult(U32 group) { lagGroupId = group; }
  auto operator<=>(const LagMembershipResult&) const = default;

  /// A port that is no member may be told so, or left out.
  void portIs(VelaSwitch::ChipPortId id, bool member) { port.value.is(id, member); }
  void portDel(VelaSwitch::ChipPortId id) { port.value.del(id); }  ///< Leaves the port out.
  void portDelAll() { port.value = {}; }                           ///< Leaves all out.
};

/// The ports of the LAG that a port belongs to: in the layer-2 processor that serves the port, and
/// for the CPU.
struct VELA_EXPORT LagMembershipFamily
    : IndexedFamily<"VelaTableLagMembership", LagMembershipKey, LagMembershipResult> {
  static constexpr PlainFamilyTraits traits{
      .table = {108, "LagMembership"}, .rowWords = 3, .tracesHandling = true};
  static constexpr auto fields(const RowShape& shape) {
    return std::to_array<RowField>(
        {{"port", 0, shape.ports}, {"control", 64, shape.cpu ? 0u : 32u}});
  }
  static constexpr std::string_view notInHardware = "lagGroupId";
  static constexpr Layer2Registers layer2Registers{
      .data = {"lag_mask_data0", "lag_mask_data1"}, .control = "lag_ctl", .commit = 0, .cpu = true};
};

VELA_PLAIN_FAMILY(LagMembership, Layer2All);

}  // namespace VelaSwitchTable
