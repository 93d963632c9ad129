#pragma once

#include "Bridging/EthAddr.h"
#include "Bridging/VlanId.h"
#include "VelaSwitch/Types.h"
#include "VelaSwitchTable/family/DirectFamily.h"

namespace VelaSwitchTable {

struct L3FloodArpResult {
  static constexpr const char* typeName = "VelaSwitchTable::L3FloodArpResult";
  Orb::Field<"ethAddr", Bridging::EthAddr> ethAddr;
  Orb::Field<"vlanId", Bridging::VlanIdOrNone> vlanId;
  auto operator<=>(const L3FloodArpResult&) const = default;
};

/// Ethernet address and VLAN that the copies of a layer-3 flood set leave with.
///
/// A row is four writes into the lookup memory of the egress processors, a data word and a control
/// word each: two memory rows, each in two copies. The row has no valid bit; one with address and
/// VLAN 0 is taken for empty.
struct VELA_EXPORT L3FloodArpFamily
    : DirectFamilyTypes<VelaSwitch::L3FloodId, L3FloodArpResult, class L3FloodArpTable,
                        class L3FloodArpConvertor, class L3FloodArpEntry> {
  static constexpr const char* sourceUnit = "VelaTableL3FloodArp";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr DirectFamilyTraits traits{
      .index = TableIndex::l3FloodArp,
      .placement = DirectPlacement::everyEgressProcessor,
      .prefix = "egress/processor[%d]/",
      .rowWords = 8,
      .staticWords = {0, 0xfffffff0, 0, 0xfffffff0, 0, 0xfffffff0, 0, 0xfffffff0}};

  static U32 rows(const VelaSwitch::ProfileInfo& profile);
  static std::vector<std::string> registers() {
    return {"lum_data", "lum_ctl_addr_data", "lum_data", "lum_ctl_addr_data",
            "lum_data", "lum_ctl_addr_data", "lum_data", "lum_ctl_addr_data"};
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

VELA_DIRECT_FAMILY(L3FloodArpFamily, L3FloodArpTable, L3FloodArpConvertor, L3FloodArpEntry);

}  // namespace VelaSwitchTable
