#pragma once

#include "Bridging/VlanId.h"
#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using NativeVlanKey = PortKeyOf<"VelaSwitchTable::NativeVlanKey">;

struct VELA_EXPORT NativeVlanResult {
  static constexpr const char* typeName = "VelaSwitchTable::NativeVlanResult";
  Orb::Field<"nativeVlanId", Bridging::VlanId> nativeVlanId;
  Orb::Field<"dei", U8, 1> dei;
  Orb::Field<"pcp", U8, 3> pcp;
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
