#pragma once

#include <iosfwd>

#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using LagGroupKey = PortKeyOf<"VelaSwitchTable::LagGroupKey">;

/// The LAG of a port.
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
    : IndexedFamily<"VelaTableLagGroup", LagGroupKey, LagGroupResult> {
  /// A row of no group says nothing, to audits neither. Group 0 is a group: a port in it is taken
  /// over as an entry.
  static constexpr PlainFamilyTraits traits{.table = {115, "LagGroup"},
                                            .rowWords = 2,
                                            .staticWords = {0, 0xffffffff},
                                            .ignoresRows = true,
                                            .rebuildsDefaults = true};
  static constexpr auto fields(const RowShape& shape) {
    return std::to_array<RowField>({{"lagGroupId", 0, 32}, {"control", 32, shape.cpu ? 0u : 32u}});
  }
  static constexpr Layer2Registers layer2Registers{
      .data = {"lag_group_data0"}, .control = "lag_ctl", .cpu = true};
  /// Every port in a group is to have an entry that says so.
  static bool marks(const Result* entry, const Result& row) { return !entry || *entry != row; }
  static RowSays unpackMore(const PlainRowContext&, const Key&, const RowReaderOf<LagGroupFamily>&,
                            Result& result);
};

VELA_PLAIN_FAMILY(LagGroup, Layer2All);

}  // namespace VelaSwitchTable
