#pragma once

#include "Bridging/EthAddr.h"
#include "Bridging/VlanId.h"
#include "VelaSwitch/PortMask.h"
#include "VelaSwitchTable/family/PlainFamily.h"
#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

struct MacVlanKey {
  static constexpr const char* typeName = "VelaSwitchTable::MacVlanKey";
  static constexpr bool scalar = true;
  Orb::Field<"row", U16> row;
  auto operator<=>(const MacVlanKey&) const = default;
};

struct MacVlanResult {
  static constexpr const char* typeName = "VelaSwitchTable::MacVlanResult";
  Orb::Field<"valid", bool> valid;
  Orb::Field<"vlanId", Bridging::VlanIdOrNone> vlanId;
  Orb::Field<"macAddr", Bridging::EthAddr> macAddr;
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  Orb::Field<"multicast", bool> multicast;
  Orb::Field<"routed", bool> routed;
  auto operator<=>(const MacVlanResult&) const = default;
};

/// Destination addresses within a VLAN, by row, in every layer-2 processor and for the CPU.
struct VELA_EXPORT MacVlanFamily
    : PlainFamilyTypes<MacVlanKey, MacVlanResult, class MacVlanTable, class MacVlanConvertor,
                       class MacVlanConvertorLayer2All> {
  static constexpr const char* sourceUnit = "VelaTableMacVlan";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::macVlan,
                                            .staticWords = {0, 0, 0, 0, 0xffffffff},
                                            .absentTrace = AbsentTrace::byKey};

  static HwIndex hwIndex(const Key& key) { return key.row(); }
  static Key keyOf(HwIndex index) { return Key{static_cast<U16>(index)}; }
  static Result absentResult() { return {}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static VelaSwitchApi::RowLayout layout(const VelaSwitch::ProfileInfo& profile, U32 table);
  static void pack(const PlainRowContext& at, const Key& key, const Result& result,
                   VelaSwitchApi::RowWriter& row);
  static RowSays unpack(const PlainRowContext& at, const Key& key,
                        const VelaSwitchApi::RowReader& row, Result& result);
};

VELA_PLAIN_FAMILY(MacVlanFamily, MacVlanTable, MacVlanConvertor, MacVlanConvertorLayer2All);

}  // namespace VelaSwitchTable
