#pragma once

#include "VelaSwitch/PortMask.h"
#include "VelaSwitch/Types.h"
#include "VelaSwitchTable/family/DirectFamily.h"

namespace VelaSwitchTable {

struct L3FloodBitmapResult {
  static constexpr const char* typeName = "VelaSwitchTable::L3FloodBitmapResult";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  auto operator<=>(const L3FloodBitmapResult&) const = default;
};

/// The ports that a layer-3 flood set goes to. The CPU port is not among them: the mask has one bit
/// less than that of a layer-3 LAG. The row has no valid bit; an empty mask is taken for no entry.
struct VELA_EXPORT L3FloodBitmapFamily
    : DirectFamilyTypes<VelaSwitch::L3FloodId, L3FloodBitmapResult, class L3FloodBitmapTable,
                        class L3FloodBitmapConvertor, class L3FloodBitmapEntry> {
  static constexpr const char* sourceUnit = "VelaTableL3FloodBitmap";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr DirectFamilyTraits traits{.index = TableIndex::l3FloodBitmap,
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

VELA_DIRECT_TEMPLATES(extern, L3FloodBitmapFamily);
VELA_CLASS(L3FloodBitmapFamily, L3FloodBitmapTable, DirectFamilyTable);
VELA_CLASS(L3FloodBitmapFamily, L3FloodBitmapEntry, DirectFamilyEntry);

class VELA_EXPORT L3FloodBitmapConvertor final : public DirectFamilyConvertor<L3FloodBitmapFamily> {
 public:
  VELA_REGISTERED(L3FloodBitmapFamily, L3FloodBitmapConvertor);

  void doInitTableStats() override;
};

VELA_DIRECT_FACTORIES(L3FloodBitmapFamily, L3FloodBitmapTable, L3FloodBitmapConvertor,
                      L3FloodBitmapEntry);

}  // namespace VelaSwitchTable
