#pragma once

#include "Bridging/VlanId.h"
#include "VelaSwitchTable/family/DirectFamily.h"
#include "VelaSwitchTable/family/PlainFamily.h"

namespace VelaSwitchTable {

struct VlanGroupKey {
  static constexpr const char* typeName = "VelaSwitchTable::VlanGroupKey";
  static constexpr bool scalar = true;
  Orb::Field<"group", U8> group;
  auto operator<=>(const VlanGroupKey&) const = default;
};

struct VlanGroupResult {
  static constexpr const char* typeName = "VelaSwitchTable::VlanGroupResult";
  static constexpr U8 maxVlans = 8;
  /// 0 for an unused place.
  Orb::Field<"vlanIds", std::array<Bridging::VlanIdOrNone, maxVlans>> vlanIds;
  auto operator<=>(const VlanGroupResult&) const = default;
};

/// Groups of VLANs that multicast copies leave in. Each egress processor has the rows of all groups
/// in its lookup memory, four writes a row.
struct VELA_EXPORT VlanGroupFamily
    : PlainFamilyTypes<VlanGroupKey, VlanGroupResult, class VlanGroupTable,
                       class VlanGroupConvertor, class VlanGroupConvertorLayer3> {
  static constexpr const char* sourceUnit = "VelaTableVlanGroup";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{
      .index = TableIndex::vlanGroup,
      .staticWords = {0, 0xfffffff0, 0, 0xfffffff0, 0, 0xfffffff0, 0, 0xfffffff0},
      .absentTrace = AbsentTrace::byKey};
  static constexpr U32 groups = 16;
  /// The rows stand in every egress processor.
  static U32 copies(const VelaSwitch::ProfileInfo& profile) { return egressProcessors(profile); }

  static HwIndex hwIndex(const Key& key) { return key.group(); }
  static Key keyOf(HwIndex index) { return Key{static_cast<U8>(index % groups)}; }
  static Result absentResult() { return {}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static VelaSwitchApi::RowLayout layout(const VelaSwitch::ProfileInfo& profile, U32 table);
  static void pack(const PlainRowContext& at, const Key& key, const Result& result,
                   VelaSwitchApi::RowWriter& row);
  static RowSays unpack(const PlainRowContext& at, const Key& key,
                        const VelaSwitchApi::RowReader& row, Result& result);
};

VELA_PLAIN_FAMILY(VlanGroupFamily, VlanGroupTable, VlanGroupConvertor, VlanGroupConvertorLayer3);

}  // namespace VelaSwitchTable
