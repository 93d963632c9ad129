#pragma once

#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using LagHashControlKey = PortKeyOf<"VelaSwitchTable::LagHashControlKey">;

/// What enters the hash of a frame to a LAG.
struct VELA_EXPORT LagHashControlResult {
  static constexpr const char* typeName = "VelaSwitchTable::LagHashControlResult";
  Orb::Field<"useVlanId", bool> useVlanId;        ///< The VLAN id does.
  Orb::Field<"unused", bool> unused;              ///< Kept, and written like the others.
  Orb::Field<"useSipAndDip", bool> useSipAndDip;  ///< Source and destination IP addresses do.
  Orb::Field<"hashSeed", U8, 6> hashSeed;         ///< What the hash starts from.
  auto operator<=>(const LagHashControlResult&) const = default;
  /// The form for people.
  std::string resultString() const;
};

/// What of a frame enters the hash that picks a LAG member, by ingress port.
struct VELA_EXPORT LagHashControlFamily
    : IndexedFamily<"VelaTableLagHashControl", LagHashControlKey, LagHashControlResult> {
  static constexpr PlainFamilyTraits traits{.table = {104, "LagHashControl"}, .rowWords = 1};
  static constexpr RowField fields[] = {
      {"useVlanId", 0, 1}, {"unused", 1, 1}, {"useSipAndDip", 2, 1}, {"hashSeed", 3, 6}};
  static constexpr PortRegister portRegisters[] = {{"", "pipeline[%d]/port[%d]/lhash_ctl"}};
};

VELA_PLAIN_FAMILY(LagHashControl, Layer3);

}  // namespace VelaSwitchTable
