#pragma once

#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

/// How a port takes VLAN tags: all VLANs tagged, one untagged, or one around the sender's own tags.
enum class PortMode : U8 { trunk, access, qinq };
VELA_EXPORT void appendText(Orb::TextSink& sink, PortMode mode);
/// Throws Orb::TextException for another word than "trunk", "access" and "qinq".
VELA_EXPORT void parseText(Orb::TextCursor& cursor, PortMode& mode);
/// Throws Orb::RangeException for bits that are no mode.
VELA_EXPORT void fromRowBits(PortMode& mode, U64 bits);

using PortConfigKey = PortKeyOf<"VelaSwitchTable::PortConfigKey">;

/// What a port does.
struct VELA_EXPORT PortConfigResult {
  static constexpr const char* typeName = "VelaSwitchTable::PortConfigResult";
  Orb::Field<"portMode", PortMode> portMode;                      ///< Trunk unless told.
  Orb::Field<"txDisabled", bool> txDisabled;                      ///< Nothing is sent.
  Orb::Field<"l2ForwardingDisabled", bool> l2ForwardingDisabled;  ///< Nothing is bridged.
  auto operator<=>(const PortConfigResult&) const = default;
  /// The form for people.
  std::string resultString() const;
};

/// A port's VLAN mode, and what is switched off at it. Both of the port's registers hold the same.
struct VELA_EXPORT PortConfigFamily
    : IndexedFamily<"VelaTablePortConfig", PortConfigKey, PortConfigResult> {
  static constexpr PlainFamilyTraits traits{.table = {102, "PortConfig"}, .rowWords = 4};
  static constexpr RowField fields[] = {
      {"portMode", 0, 2}, {"txDisabled", 2, 1}, {"l2ForwardingDisabled", 3, 1}};
  static constexpr PortRegister portRegisters[] = {{"", "egress/port[%d]/cfg"},
                                                   {"Vlan", "egress/port[%d]/vlan_cfg"}};
};

VELA_PLAIN_FAMILY(PortConfig, Layer2All);

}  // namespace VelaSwitchTable
