#pragma once

#include "VelaSwitchTable/family/MulticastGroup.h"

namespace VelaSwitchTable {

using SGResult = MulticastResult<"VelaSwitchTable::SGResult">;

/// Multicast routes of one source: source, group and VLAN. Of the group its low 28 bits count.
struct VELA_EXPORT SGFamily : MulticastFamily<SGFamily, "VelaTableSG", SGResult> {
  static constexpr HashFamilyTraits traits =
      layer3Traits({.table = {18, "SG"},
                    .rowWords = 6,
                    .hashBits = 13,
                    .ways = 3,
                    .hitTableOffset = 18,
                    .parityWords = 4,
                    .stride = 0,
                    .decodedText = "Decoded valid entry is "});

  /// Wide flags: one bit more in front of the valid bit, and 15 zeros behind the parity, as far as
  /// the control word leaves room for them.
  static bool otherFormat(const VelaSwitch::ProfileInfo& profile) {
    return profile.fields().mrouteWideFlags();
  }
  static constexpr auto fields(const RowShape& shape) {
    constexpr U32 compare = 59;
    constexpr U32 control = 128;
    const bool wide = shape.other;
    const U32 valid = compare + wide;
    const U32 parity = valid + 5 + shape.ports + 1;
    const auto zeros = [&](U32 first, U32 width) {
      return wide && first < control ? std::min(width, control - first) : 0;
    };
    return std::to_array<RowField>({{"compare", 0, compare},
                                    {"wideFlag", compare, wide, 0},
                                    {"valid", valid, 1},
                                    {"vlanGroupId", valid + 1, 4},
                                    {"portMask", valid + 5, shape.ports + 1},
                                    {"parity", parity, 1},
                                    {"zeros2", parity + 1, zeros(parity + 1, 2), 0},
                                    {"zeros12", parity + 3, zeros(parity + 3, 12), 0},
                                    {"zeros1", parity + 15, zeros(parity + 15, 1), 0},
                                    {"row", control, 13},
                                    {"way", control + 14, 2},
                                    {"one", control + 17, 1, 1},
                                    {"selector", control + 18, 4, 8},
                                    {"wholeGroup", 160, 32}});
  }

  static constexpr KeyField keyFields[] = {{"group", groupBits}, {"source", 32}, {"vlanId", 12}};
  static constexpr auto hash = &VelaSwitch::crc13Hash;
};

VELA_HASH_FAMILY(SG);
VELA_MULTICAST_FACTORIES(VELA_FACTORY, SG, sG);
VELA_FACTORY(SGConvertor, sGConvertorFactory, ());

}  // namespace VelaSwitchTable
