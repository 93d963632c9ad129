#pragma once

#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using L2ControlKey = PortKeyOf<"VelaSwitchTable::L2ControlKey">;

/// What layer 2 does otherwise at a port.
struct VELA_EXPORT L2ControlResult {
  static constexpr const char* typeName = "VelaSwitchTable::L2ControlResult";
  Orb::Field<"isMlagPeer", bool> isMlagPeer;  ///< The port leads to the other switch of an MLAG.
  Orb::Field<"learnOnly", bool> learnOnly;    ///< Frames are learned from, not forwarded.
  Orb::Field<"learnDisabled", bool> learnDisabled;  ///< Frames are not learned from.
  auto operator<=>(const L2ControlResult&) const = default;
  /// The form for people.
  std::string resultString() const { return Orb::fieldsText(*this); }
};

/// A port's layer-2 switches.
struct VELA_EXPORT L2ControlFamily
    : IndexedFamily<"VelaTableL2Control", L2ControlKey, L2ControlResult> {
  static constexpr PlainFamilyTraits traits{.table = {103, "L2Control"}, .rowWords = 1};
  static constexpr RowField fields[] = {
      {"isMlagPeer", 0, 1}, {"learnOnly", 1, 1}, {"learnDisabled", 2, 1}};
  static constexpr PortRegister portRegisters[] = {{"", "pipeline[%d]/port[%d]/l2_control"}};
};

VELA_PLAIN_FAMILY(L2Control, Layer2All);

}  // namespace VelaSwitchTable
