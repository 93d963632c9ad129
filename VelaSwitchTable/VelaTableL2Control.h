#pragma once

#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using L2ControlKey = PortKeyOf<"VelaSwitchTable::L2ControlKey">;

struct VELA_EXPORT L2ControlResult {
  static constexpr const char* typeName = "VelaSwitchTable::L2ControlResult";
  Orb::Field<"isMlagPeer", bool> isMlagPeer;
  Orb::Field<"learnOnly", bool> learnOnly;
  Orb::Field<"learnDisabled", bool> learnDisabled;
  auto operator<=>(const L2ControlResult&) const = default;
  /// The form for people.
  std::string resultString() const;
};

/// A port's layer-2 switches.
struct VELA_EXPORT L2ControlFamily
    : PlainFamilyTypes<L2ControlKey, L2ControlResult, class L2ControlTable,
                       class L2ControlConvertor, class L2ControlConvertorLayer2All>,
      PortWordFamily<L2ControlFamily, L2ControlKey, L2ControlResult> {
  static constexpr const char* sourceUnit = "VelaTableL2Control";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::l2Control};
  static constexpr U8 rowWords = 1;
  static constexpr VelaSwitchApi::RowField fields[] = {
      {"isMlagPeer", 0, 1}, {"learnOnly", 1, 1}, {"learnDisabled", 2, 1}};
  static constexpr PortRegister registers[] = {{"", "pipeline[%d]/port[%d]/l2_control"}};
};
static_assert(VelaSwitchApi::wellFormed(L2ControlFamily::fields, L2ControlFamily::rowWords));

VELA_PLAIN_FAMILY(L2ControlFamily, L2ControlTable, L2ControlConvertor, L2ControlConvertorLayer2All);

}  // namespace VelaSwitchTable
