#pragma once

#include "VelaSwitchTable/family/PlainFamily.h"

namespace VelaSwitchTable {

/// An IP protocol.
struct ProtocolRemapKey {
  static constexpr const char* typeName = "VelaSwitchTable::ProtocolRemapKey";
  static constexpr bool scalar = true;
  Orb::Field<"protocol", U8> protocol;  ///< As in the IP header.
  auto operator<=>(const ProtocolRemapKey&) const = default;
};

/// What it counts as for NAT.
struct ProtocolRemapResult {
  static constexpr const char* typeName = "VelaSwitchTable::ProtocolRemapResult";
  static constexpr bool scalar = true;
  Orb::Field<"remappedProtocol", U8, 3> remappedProtocol;  ///< The `proto` of NAT keys.
  auto operator<=>(const ProtocolRemapResult&) const = default;
};

/// The protocol class that NAT keys carry for an IP protocol. A mapping of software: no register
/// holds it.
struct VELA_EXPORT ProtocolRemapFamily
    : IndexedFamily<"VelaTableProtocolRemap", ProtocolRemapKey, ProtocolRemapResult> {
  static constexpr PlainFamilyTraits traits{.table = {113, "ProtocolRemap"}};
  static constexpr auto fields(const RowShape&) { return std::array<RowField, 0>(); }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo&) { return {}; }
  /// The class of a protocol that no entry remaps: 1 for TCP, 2 for UDP, 3 for ICMP, else 0.
  static U8 usualClass(U8 protocol);
};

VELA_PLAIN_CLASSES(ProtocolRemapFamily, ProtocolRemapTable, ProtocolRemapConvertor,
                   ProtocolRemapConvertorLayer3);
VELA_CLASS(ProtocolRemapFamily, ProtocolRemapConvertorLayer3, PlainFamilyLayerConvertor);

class VELA_EXPORT ProtocolRemapTable final : public PlainFamilyTable<ProtocolRemapFamily> {
 public:
  VELA_REGISTERED(ProtocolRemapFamily, ProtocolRemapTable);
  using PlainFamilyTable::PlainFamilyTable;
  /// The class of a protocol, 0 to 7.
  U8 remappedProtocol(U8 protocol) const;
};

}  // namespace VelaSwitchTable
