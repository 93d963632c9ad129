#pragma once

#include "Bridging/VlanId.h"
#include "VelaSwitchTable/family/LookupMemory.h"
#include "VelaSwitchTable/family/PlainFamily.h"

namespace VelaSwitchTable {

/// A group of VLANs.
struct VlanGroupKey {
  static constexpr const char* typeName = "VelaSwitchTable::VlanGroupKey";
  static constexpr bool scalar = true;
  Orb::Field<"group", U8> group;  ///< 0 to 15, the `vlanGroupId` of multicast routes.
  auto operator<=>(const VlanGroupKey&) const = default;
};

/// The VLANs that a multicast packet is copied into.
struct VlanGroupResult {
  static constexpr const char* typeName = "VelaSwitchTable::VlanGroupResult";
  static constexpr U8 maxVlans = 8;  ///< Of a group.
  /// 0 for an unused place.
  Orb::Field<"vlanIds", std::array<Bridging::VlanIdOrNone, maxVlans>> vlanIds;
  auto operator<=>(const VlanGroupResult&) const = default;
};

/// Groups of VLANs that multicast copies leave in. Each egress processor has the rows of all groups
/// in its lookup memory, four writes a row.
struct VELA_EXPORT VlanGroupFamily
    : IndexedFamily<"VelaTableVlanGroup", VlanGroupKey, VlanGroupResult> {
  static constexpr PlainFamilyTraits traits{.table = {110, "VlanGroup"},
                                            .rowWords = memoryWords,
                                            .staticWords = memoryStaticWords,
                                            .absentTrace = AbsentTrace::byKey};
  static constexpr auto fields(const RowShape&) {
    return memoryRow({{{{{"vlanId[0]", 0, 12}, {"vlanId[1]", 16, 12}}},
                       {{{"vlanId[2]", 0, 12}, {"vlanId[3]", 16, 12}}},
                       {{{"vlanId[4]", 0, 12}, {"vlanId[5]", 16, 12}}},
                       {{{"vlanId[6]", 0, 12}, {"vlanId[7]", 16, 12}}}}});
  }
  static constexpr std::array handPacked{"vlanIds"};
  static constexpr U32 groups = 16;
  /// The rows stand in every egress processor.
  static U32 copies(const VelaSwitch::ProfileInfo& profile) { return egressProcessors(profile); }

  static Key keyOf(HwIndex index) { return Key{static_cast<U8>(index % groups)}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static void packMore(const PlainRowContext& at, const Key& key, const Result& result,
                       RowWriterOf<VlanGroupFamily>& row);
  static RowSays unpackMore(const PlainRowContext& at, const Key& key,
                            const RowReaderOf<VlanGroupFamily>& row, Result& result);
};

VELA_PLAIN_FAMILY(VlanGroup, Layer3);

}  // namespace VelaSwitchTable
