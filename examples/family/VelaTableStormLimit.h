#pragma once

#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using StormLimitKey = PortKeyOf<"VelaSwitchTable::StormLimitKey">;

/// What a port may receive of frames that go to all others.
struct StormLimitResult {
  static constexpr const char* typeName = "VelaSwitchTable::StormLimitResult";
  Orb::Field<"broadcastRate", U16, 12> broadcastRate;  ///< Frames a millisecond.
  Orb::Field<"multicastRate", U16, 12> multicastRate;
  Orb::Field<"drop", bool> drop;  ///< Rather than mark them.
  auto operator<=>(const StormLimitResult&) const = default;
};

/// Storm control, in one register a port.
struct VELA_EXPORT StormLimitFamily
    : IndexedFamily<"VelaTableStormLimit", StormLimitKey, StormLimitResult> {
  static constexpr PlainFamilyTraits traits{.table = {116, "StormLimit"}, .rowWords = 1};
  static constexpr RowField fields[] = {
      {"broadcastRate", 0, 12}, {"multicastRate", 12, 12}, {"drop", 31, 1}};
  static constexpr PortRegister portRegisters[] = {{"", "pipeline[%d]/port[%d]/storm_limit"}};
};

VELA_PLAIN_FAMILY(StormLimit, Layer2All);

}  // namespace VelaSwitchTable
