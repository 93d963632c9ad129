#pragma once

#include "Bridging/EthAddr.h"
#include "Bridging/VlanId.h"
#include "VelaSwitch/PortMask.h"
#include "VelaSwitchTable/family/PlainFamily.h"

namespace VelaSwitchTable {

/// A row of the layer-2 address table; software chooses it.
struct MacVlanKey {
  static constexpr const char* typeName = "VelaSwitchTable::MacVlanKey";
  static constexpr bool scalar = true;
  Orb::Field<"row", U16> row;  ///< 0 to 1023.
  auto operator<=>(const MacVlanKey&) const = default;
};

/// An address in a VLAN, and what becomes of frames to it.
struct MacVlanResult {
  static constexpr const char* typeName = "VelaSwitchTable::MacVlanResult";
  Orb::Field<"valid", bool> valid;                      ///< Whether the row answers lookups.
  Orb::Field<"vlanId", Bridging::VlanIdOrNone> vlanId;  ///< Compared with the frame's.
  Orb::Field<"macAddr", Bridging::EthAddr> macAddr;     ///< Compared with the destination address.
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;  ///< Where frames go.
  Orb::Field<"multicast", bool> multicast;                       ///< It is a group's address.
  Orb::Field<"routed", bool> routed;                             ///< It is the router's own.
  auto operator<=>(const MacVlanResult&) const = default;
};

/// Destination addresses within a VLAN, by row, in every layer-2 processor and for the CPU.
struct VELA_EXPORT MacVlanFamily : IndexedFamily<"VelaTableMacVlan", MacVlanKey, MacVlanResult> {
  static constexpr PlainFamilyTraits traits{.table = {111, "MacVlan"},
                                            .rowWords = 5,
                                            .parityWords = 4,
                                            .staticWords = {0, 0, 0, 0, 0xffffffff},
                                            .absentTrace = AbsentTrace::byKey};
  static constexpr auto fields(const RowShape& shape) {
    const U32 flags = 60 + shape.ports + 1;
    const RowField list[] = {
        {"vlanId", 0, 12},        {"macAddr", 12, 48},      {"portMask", 60, shape.ports + 1},
        {"multicast", flags, 1},  {"routed", flags + 1, 1}, {"valid", flags + 2, 1},
        {"parity", flags + 3, 1}, {"row", 128, 10},         {"one", 145, 1, 1},
        {"selector", 146, 4, 12}};
    return std::to_array(list);
  }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
};

VELA_PLAIN_FAMILY(MacVlan, Layer2All);

}  // namespace VelaSwitchTable
