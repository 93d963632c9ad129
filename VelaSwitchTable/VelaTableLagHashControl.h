#pragma once

#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using LagHashControlKey = PortKeyOf<"VelaSwitchTable::LagHashControlKey">;

struct VELA_EXPORT LagHashControlResult {
  static constexpr const char* typeName = "VelaSwitchTable::LagHashControlResult";
  Orb::Field<"useVlanId", bool> useVlanId;
  Orb::Field<"unused", bool> unused;  ///< Kept, and written like the others.
  Orb::Field<"useSipAndDip", bool> useSipAndDip;
  Orb::Field<"hashSeed", U8, 6> hashSeed;
  auto operator<=>(const LagHashControlResult&) const = default;
  /// The form for people.
  std::string resultString() const;
};

/// What of a frame enters the hash that picks a LAG member, by ingress port.
struct VELA_EXPORT LagHashControlFamily
    : PlainFamilyTypes<LagHashControlKey, LagHashControlResult, class LagHashControlTable,
                       class LagHashControlConvertor, class LagHashControlConvertorLayer3>,
      PortWordFamily<LagHashControlFamily, LagHashControlKey, LagHashControlResult> {
  static constexpr const char* sourceUnit = "VelaTableLagHashControl";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::lagHashControl};
  static constexpr U8 rowWords = 1;
  static constexpr VelaSwitchApi::RowField fields[] = {
      {"useVlanId", 0, 1}, {"unused", 1, 1}, {"useSipAndDip", 2, 1}, {"hashSeed", 3, 6}};
  static constexpr PortRegister registers[] = {{"", "pipeline[%d]/port[%d]/lhash_ctl"}};
};
static_assert(VelaSwitchApi::wellFormed(LagHashControlFamily::fields,
                                        LagHashControlFamily::rowWords));

VELA_PLAIN_FAMILY(LagHashControlFamily, LagHashControlTable, LagHashControlConvertor,
                  LagHashControlConvertorLayer3);

}  // namespace VelaSwitchTable
