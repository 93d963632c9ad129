#pragma once

#include "Bridging/VlanId.h"
#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using NativeVlanKey = PortKeyOf<"VelaSwitchTable::NativeVlanKey">;

/// The tag that untagged frames of a port have within the switch.
struct VELA_EXPORT NativeVlanResult {
  static constexpr const char* typeName = "VelaSwitchTable::NativeVlanResult";
  Orb::Field<"nativeVlanId", Bridging::VlanId> nativeVlanId;  ///< 1 unless told.
  Orb::Field<"dei", U8, 1> dei;                               ///< Drop-eligible indicator.
  Orb::Field<"pcp", U8, 3> pcp;                               ///< Priority code point.
  auto operator<=>(const NativeVlanResult&) const = default;
  /// The form for people.
  std::string resultString() const;
};

/// The tag that a port gives its untagged traffic: VLAN 1 unless told otherwise. Ingress and egress
/// each have a register of the port.
struct VELA_EXPORT NativeVlanFamily
    : IndexedFamily<"VelaTableNativeVlan", NativeVlanKey, NativeVlanResult> {
  static constexpr PlainFamilyTraits traits{.table = {101, "NativeVlan"}, .rowWords = 4};
  static constexpr RowField fields[] = {{"nativeVlanId", 0, 12}, {"dei", 12, 1}, {"pcp", 13, 3}};
  static constexpr PortRegister portRegisters[] = {
      {"Egress", "egress/port[%d]/vlan_tci"}, {"Ingress", "pipeline[%d]/port[%d]/default_vlan"}};
};

VELA_PLAIN_FAMILY(NativeVlan, Layer2All);

}  // namespace VelaSwitchTable
