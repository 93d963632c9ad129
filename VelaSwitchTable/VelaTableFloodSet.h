#pragma once

#include "Bridging/VlanId.h"
#include "VelaSwitchTable/VlanTables.h"

namespace VelaSwitchTable {

/// Where frames of a VLAN go whose destination is not known; bit n is port n.
struct VELA_EXPORT FloodSetResult {
  static constexpr const char* typeName = "VelaSwitchTable::FloodSetResult";
  Orb::Field<"uucPortMask", U64> uucPortMask;  ///< Unknown unicast.
  Orb::Field<"umcPortMask", U64> umcPortMask;  ///< Unknown multicast.
  auto operator<=>(const FloodSetResult&) const = default;
  /// The form for people.
  std::string resultString() const;
};

/// A flood set with the time of its last change.
struct FloodSetEntry {
  static constexpr const char* typeName = "VelaSwitchTable::FloodSetEntry";
  Orb::Field<"key", Bridging::VlanId> key;
  Orb::Field<"result", FloodSetResult> result;
  Orb::Field<"lastUpdate", Orb::Seconds> lastUpdate;
  auto operator<=>(const FloodSetEntry&) const = default;
};

/// Flood sets of the VLANs. Every hardware table has the whole masks, not its slice of the ports.
struct VELA_EXPORT FloodSetFamily
    : PlainFamilyTypes<Bridging::VlanId, FloodSetResult, class FloodSetTable,
                       class FloodSetConvertor, class FloodSetConvertorLayer2All> {
  static constexpr const char* sourceUnit = "VelaTableFloodSet";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr PlainFamilyTraits traits{.index = TableIndex::floodSet,
                                            .staticWords = {0, 0, 0, 0, 0xffffffff}};

  static HwIndex hwIndex(const Key& key) { return key.value(); }
  static Key keyOf(HwIndex index) { return Bridging::VlanId(index); }
  static Result absentResult() { return {}; }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static VelaSwitchApi::RowLayout layout(const VelaSwitch::ProfileInfo& profile, U32 table);
  static void pack(const PlainRowContext& at, const Key& key, const Result& result,
                   VelaSwitchApi::RowWriter& row);
  static RowSays unpack(const PlainRowContext& at, const Key& key,
                        const VelaSwitchApi::RowReader& row, Result& result);
};

class VELA_EXPORT FloodSetTable final : public PlainFamilyTable<FloodSetFamily> {
 public:
  VELA_REGISTERED(FloodSetFamily, FloodSetTable);
  using PlainFamilyTable::entryIs;
  using PlainFamilyTable::PlainFamilyTable;
  /// Announces a flood set and notes the time of the change.
  bool entryIs(const FloodSetEntry& entry);
  FloodSetEntry floodSetEntry(Bridging::VlanId vid) const;

 private:
  Orb::Map<Bridging::VlanId, Orb::Seconds> lastUpdate_;
};

VELA_BASE_CLASS(FloodSetFamily, FloodSetConvertor, PlainFamilyConvertor);
VELA_PLAIN_TEMPLATES(extern, FloodSetFamily);
extern template class DeclaredLayerConvertor<FloodSetFamily>;
VELA_CLASS(FloodSetFamily, FloodSetConvertorLayer2All, DeclaredLayerConvertor);
VELA_PLAIN_FACTORIES(FloodSetTable, FloodSetConvertorLayer2All);

}  // namespace VelaSwitchTable
