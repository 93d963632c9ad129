#pragma once

#include "VelaSwitch/PortMask.h"
#include "VelaSwitch/Types.h"
#include "VelaSwitchTable/family/DirectFamily.h"

namespace VelaSwitchTable {

struct L3LagResult {
  static constexpr const char* typeName = "VelaSwitchTable::L3LagResult";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  Orb::Field<"cpuPriority", bool> cpuPriority;
  auto operator<=>(const L3LagResult&) const = default;
};

/// The ports that a layer-3 LAG stands for, the CPU port among them. The row has no valid bit; an
/// empty mask without priority is taken for no entry.
struct VELA_EXPORT L3LagFamily
    : DirectFamilyTypes<VelaSwitch::L3LagIndex, L3LagResult, class L3LagTable, class L3LagConvertor,
                        class L3LagEntry> {
  static constexpr const char* sourceUnit = "VelaTableL3Lag";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr DirectFamilyTraits traits{.index = TableIndex::l3Lag,
                                             .placement = DirectPlacement::everyPipeline,
                                             .prefix = "ingress/processor_l3[%d]/",
                                             .rowWords = 3,
                                             .staticWords = {0, 0, 0xffffffff}};

  static U32 rows(const VelaSwitch::ProfileInfo& profile);
  static std::vector<std::string> registers() { return {"hash_data0", "hash_data1", "hash_ctl"}; }
  static HwIndex hwIndex(const Key& key);
  static Key keyOf(HwIndex index);
  static RowLayout layout(const VelaSwitch::ProfileInfo& profile);
  static void pack(const VelaSwitch::ProfileInfo& profile, const Key& key, const Result& result,
                   bool valid, RowWriter& row);
  static void packStatic(HwIndex index, RowWriter& row);
  static std::optional<std::pair<Result, bool>> unpack(const VelaSwitch::ProfileInfo& profile,
                                                       const RowReader& row);
  static void describe(Orb::TextSink& sink, const Result& result);
};

VELA_DIRECT_FAMILY(L3LagFamily, L3LagTable, L3LagConvertor, L3LagEntry);

}  // namespace VelaSwitchTable
