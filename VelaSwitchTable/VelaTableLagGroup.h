#pragma once

#include <iosfwd>

#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using LagGroupKey = PortKeyOf<"VelaSwitchTable::LagGroupKey">;

struct LagGroupResult {
  static constexpr const char* typeName = "VelaSwitchTable::LagGroupResult";
  Orb::Field<"lagGroupId", U32, 6> lagGroupId;  ///< 63 stands for no group.
  auto operator<=>(const LagGroupResult&) const = default;
};

/// The form for people.
VELA_EXPORT std::ostream& operator<<(std::ostream& out, const LagGroupResult& result);

/// The LAG that a port belongs to: in the layer-2 processor that serves the port, and for the CPU.
/// A port without an entry has group 0; a row that says 63 is neither compared nor taken over.
struct VELA_EXPORT LagGroupFamily
    : PlainFamilyTypes<LagGroupKey, LagGroupResult, class LagGroupTable, class LagGroupConvertor,
                       class LagGroupConvertorLayer2All>,
      PortRows<LagGroupKey> {
  static constexpr const char* sourceUnit = "VelaTableLagGroup";
  static inline Trace::Handle trace{sourceUnit};
  /// A row of no group says nothing, to audits neither. Group 0 is a group: a port in it is taken
  /// over as an entry.
  static constexpr PlainFamilyTraits traits{.index = TableIndex::lagGroup,
                                            .staticWords = {0, 0xffffffff},
                                            .ignoresRows = true,
                                            .rebuildsDefaults = true};
  /// Every port in a group is to have an entry that says so.
  static bool marks(const Result* entry, const Result& row) { return !entry || *entry != row; }

  static Result absentResult() { return {}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static VelaSwitchApi::RowLayout layout(const VelaSwitch::ProfileInfo& profile, U32 table);
  static void pack(const PlainRowContext& at, const Key& key, const Result& result,
                   VelaSwitchApi::RowWriter& row);
  static RowSays unpack(const PlainRowContext& at, const Key& key,
                        const VelaSwitchApi::RowReader& row, Result& result);
};

VELA_PORT_PIPELINE_FAMILY(LagGroupFamily, LagGroupTable, LagGroupConvertor,
                          LagGroupConvertorLayer2All);

}  // namespace VelaSwitchTable
