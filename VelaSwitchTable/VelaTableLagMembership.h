#pragma once

#include "VelaSwitch/ChipPortMap.h"
#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using LagMembershipKey = PortKeyOf<"VelaSwitchTable::LagMembershipKey">;

struct LagMembershipFields {
  static constexpr const char* typeName = "VelaSwitchTable::LagMembershipResult";
  static constexpr const char* noTextReason =
      "No String constructor for LagMembershipResult - has collection";

  Orb::Field<"port", VelaSwitch::ChipPortMap> port;
  Orb::Field<"lagGroupId", U32> lagGroupId;  ///< Not in hardware.
  auto operator<=>(const LagMembershipFields&) const = default;
};

struct LagMembershipResult : LagMembershipFields {
  using Fields = LagMembershipFields;

  LagMembershipResult() = default;
  /// A result of the group, without ports.
  explicit LagMembershipResult(U32 group) { lagGroupId = group; }
  auto operator<=>(const LagMembershipResult&) const = default;

  void portIs(VelaSwitch::ChipPortId id, bool member) { port.value.is(id, member); }
  void portDel(VelaSwitch::ChipPortId id) { port.value.del(id); }
  void portDelAll() { port.value = {}; }
};

/// The ports of the LAG that a port belongs to: in the layer-2 processor that serves the port, and
/// for the CPU.
struct VELA_EXPORT LagMembershipFamily
    : PlainFamilyTypes<LagMembershipKey, LagMembershipResult, class LagMembershipTable,
                       class LagMembershipConvertor, class LagMembershipConvertorLayer2All>,
      PortRows<LagMembershipKey> {
  static constexpr const char* sourceUnit = "VelaTableLagMembership";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::lagMembership,
                                            .tracesHandling = true};

  static Result absentResult() { return {}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static VelaSwitchApi::RowLayout layout(const VelaSwitch::ProfileInfo& profile, U32 table);
  static void pack(const PlainRowContext& at, const Key& key, const Result& result,
                   VelaSwitchApi::RowWriter& row);
  static RowSays unpack(const PlainRowContext& at, const Key& key,
                        const VelaSwitchApi::RowReader& row, Result& result);
};

VELA_PORT_PIPELINE_FAMILY(LagMembershipFamily, LagMembershipTable, LagMembershipConvertor,
                          LagMembershipConvertorLayer2All);

}  // namespace VelaSwitchTable
