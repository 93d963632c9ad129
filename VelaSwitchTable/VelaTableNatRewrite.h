#pragma once

#include "Ipnet/IpAddr.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitchTable/family/DirectFamily.h"

namespace VelaSwitchTable {

struct NatRewriteResult {
  static constexpr const char* typeName = "VelaSwitchTable::NatRewriteResult";
  Orb::Field<"newIp", Ipnet::IpAddr> newIp;
  Orb::Field<"newPort", U16> newPort;
  Orb::Field<"l3ChecksumCorrection", U16> l3ChecksumCorrection;
  auto operator<=>(const NatRewriteResult&) const = default;
};

/// What egress writes into a translated packet. Each pair of chip ports has 4096 rows, in the
/// egress processor that serves the pair; the control word names the row within the processor
/// alone. The row has no valid bit; one that is all 0 is taken for empty.
struct VELA_EXPORT NatRewriteFamily
    : DirectFamilyTypes<VelaSwitch::NatRewriteKey, NatRewriteResult, class NatRewriteTable,
                        class NatRewriteConvertor, class NatRewriteEntry> {
  static constexpr const char* sourceUnit = "VelaTableNatRewrite";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr DirectFamilyTraits traits{.index = TableIndex::natRewrite,
                                             .placement = DirectPlacement::sharedOut,
                                             .prefix = "egress/processor[%d]/",
                                             .rowWords = 3,
                                             .staticWords = {0, 0, 0xffffffff},
                                             .rowsPerBlock = 4096};
  static constexpr U32 entriesPerPortPair = traits.rowsPerBlock;

  static U32 rows(const VelaSwitch::ProfileInfo& profile);
  static std::vector<std::string> registers() {
    return {"nat_lum_ip", "nat_lum_chksm_prt", "nat_lum_ctl_addr_data"};
  }
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

VELA_DIRECT_TEMPLATES(extern, NatRewriteFamily);
VELA_CLASS(NatRewriteFamily, NatRewriteTable, DirectFamilyTable);
VELA_CLASS(NatRewriteFamily, NatRewriteEntry, DirectFamilyEntry);

class VELA_EXPORT NatRewriteConvertor final : public DirectFamilyConvertor<NatRewriteFamily> {
 public:
  VELA_REGISTERED(NatRewriteFamily, NatRewriteConvertor);

  void doInitTableStats() override;
  /// The port pair.
  U32 capacityIndexFromEntry(const DirectBaseEntry& entry) const override;
};

VELA_DIRECT_FACTORIES(NatRewriteFamily, NatRewriteTable, NatRewriteConvertor, NatRewriteEntry);

}  // namespace VelaSwitchTable
