#pragma once

#include "Ipnet/IpAddr.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitchTable/family/DirectFamily.h"

namespace VelaSwitchTable {

/// What is put in place of an address and a port.
struct NatRewriteResult {
  static constexpr const char* typeName = "VelaSwitchTable::NatRewriteResult";
  Orb::Field<"newIp", Ipnet::IpAddr> newIp;  ///< Source or destination, as the match says.
  Orb::Field<"newPort", U16> newPort;        ///< Likewise.
  Orb::Field<"l3ChecksumCorrection", U16> l3ChecksumCorrection;  ///< Added to the IP checksum.
  auto operator<=>(const NatRewriteResult&) const = default;
};

/// What egress writes into a translated packet. Each pair of chip ports has 4096 rows, in the
/// egress processor that serves the pair; the control word names the row within the processor
/// alone. The row has no valid bit; one that is all 0 is taken for empty.
struct VELA_EXPORT NatRewriteFamily
    : IndexedFamily<"VelaTableNatRewrite", VelaSwitch::NatRewriteKey, NatRewriteResult> {
  static constexpr DirectFamilyTraits traits{.table = {96, "NatRewrite"},
                                             .placement = DirectPlacement::sharedOut,
                                             .prefix = "egress/processor[%d]/",
                                             .rowWords = 3,
                                             .staticWords = {0, 0, 0xffffffff},
                                             .rowsPerBlock = 4096};
  static constexpr RowField fields[] = {{"newIp", 0, 32},
                                        {"newPort", 32, 16},
                                        {"l3ChecksumCorrection", 48, 16},
                                        {"index", 65, 12},
                                        {"one", 77, 1, 1}};
  static constexpr U32 entriesPerPortPair = traits.rowsPerBlock;

  static U32 rows(const VelaSwitch::ProfileInfo& profile) {
    return egressProcessors(profile) * entriesPerPortPair;
  }
  static std::vector<std::string> registers() {
    return {"nat_lum_ip", "nat_lum_chksm_prt", "nat_lum_ctl_addr_data"};
  }
  static HwIndex hwIndex(const Key& key);
  static Key keyOf(HwIndex index);
};

VELA_DIRECT_FAMILY(NatRewrite);

}  // namespace VelaSwitchTable
