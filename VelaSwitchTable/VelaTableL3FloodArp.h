#pragma once

#include "Bridging/EthAddr.h"
#include "Bridging/VlanId.h"
#include "VelaSwitch/Types.h"
#include "VelaSwitchTable/family/DirectFamily.h"
#include "VelaSwitchTable/family/LookupMemory.h"

namespace VelaSwitchTable {

/// What is written into the copies of a flood set.
struct L3FloodArpResult {
  static constexpr const char* typeName = "VelaSwitchTable::L3FloodArpResult";
  Orb::Field<"ethAddr", Bridging::EthAddr> ethAddr;     ///< Destination address.
  Orb::Field<"vlanId", Bridging::VlanIdOrNone> vlanId;  ///< VLAN of the copies; 0 for none.
  auto operator<=>(const L3FloodArpResult&) const = default;
};

/// Ethernet address and VLAN that the copies of a layer-3 flood set leave with.
///
/// A row is four writes into the lookup memory of the egress processors, a data word and a control
/// word each: two memory rows, each in two copies. The row has no valid bit; one with address and
/// VLAN 0 is taken for empty.
struct VELA_EXPORT L3FloodArpFamily
    : IndexedFamily<"VelaTableL3FloodArp", VelaSwitch::L3FloodId, L3FloodArpResult> {
  static constexpr DirectFamilyTraits traits{.table = {91, "L3FloodArp"},
                                             .placement = DirectPlacement::everyEgressProcessor,
                                             .prefix = "egress/processor[%d]/",
                                             .rowWords = memoryWords,
                                             .staticWords = memoryStaticWords};
  /// Pairs 0 and 1 hold the head of the address, 2 and 3 its tail with the VLAN.
  static constexpr auto fields(const RowShape&) {
    constexpr RowField head{"ethAddrHead", 0, 32};
    constexpr RowField none{"none", 0, 0};
    constexpr RowField tail{"ethAddrTail", 16, 16};
    constexpr RowField vlanId{"vlanId", 0, 16};
    return memoryRow({{{{head, none}}, {{head, none}}, {{tail, vlanId}}, {{tail, vlanId}}}});
  }
  static constexpr std::array handPacked{"ethAddr"};
  /// Flood ids have a row but for the last, which stands for none.
  static U32 rows(const VelaSwitch::ProfileInfo&) { return VelaSwitch::L3FloodId::null; }
  static std::vector<std::string> registers() { return memoryRegisters(); }
  static Key keyOf(HwIndex index) { return Key(index & 0xff); }
  static void packMore(const VelaSwitch::ProfileInfo& profile, const Result& result,
                       RowWriterOf<L3FloodArpFamily>& row);
  static void packPlace(HwIndex index, RowWriterOf<L3FloodArpFamily>& row);
  static bool isSound(const RowReaderOf<L3FloodArpFamily>& row) { return memorySound(row); }
  static void unpackMore(const VelaSwitch::ProfileInfo& profile,
                         const RowReaderOf<L3FloodArpFamily>& row, Result& result);
  static std::string describe(const Result& result) {
    return Orb::text("mac:", result.ethAddr(), " vid:", result.vlanId());
  }
};

VELA_DIRECT_FAMILY(L3FloodArp);

}  // namespace VelaSwitchTable
