#pragma once

#include <functional>

#include "Bridging/VlanId.h"
#include "VelaSwitchTable/family/PlainFamily.h"

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
  Orb::Field<"key", Bridging::VlanId> key;            ///< The VLAN.
  Orb::Field<"result", FloodSetResult> result;        ///< All that hardware has of it.
  Orb::Field<"lastUpdate", Orb::Seconds> lastUpdate;  ///< When the result last changed.
  auto operator<=>(const FloodSetEntry&) const = default;
};
/// One whose masks are there already changes nothing, the time neither.
inline bool sameEntry(const FloodSetEntry& there, const FloodSetEntry& announced) {
  return there.result() == announced.result();
}

/// Flood sets of the VLANs. Every hardware table has the whole masks, not its slice of the ports.
struct VELA_EXPORT FloodSetFamily
    : IndexedFamily<"VelaTableFloodSet", Bridging::VlanId, FloodSetEntry> {
  static constexpr PlainFamilyTraits traits{.table = {114, "FloodSet"},
                                            .rowWords = 5,
                                            .staticWords = {0, 0, 0, 0, 0xffffffff},
                                            .tableText = "hwTable"};
  static constexpr auto fields(const RowShape& shape) {
    return std::to_array<RowField>({{"uucPortMask", 0, shape.ports},
                                    {"umcPortMask", shape.ports, shape.ports},
                                    {"vlan", 128, 12},
                                    {"commit", 143, 1, 1}});
  }
  /// What of an entry is announced, and shows in hardware.
  static const FloodSetResult& announced(const Result& entry) { return entry.result(); }
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static void packMore(const PlainRowContext&, const Key& key, const Result&,
                       RowWriterOf<FloodSetFamily>& row) {
    row.set<"vlan">(key.value());
  }
  static RowSays unpackMore(const PlainRowContext& at, const Key& key,
                            const RowReaderOf<FloodSetFamily>& row, Result& result);
};

VELA_PLAIN_CLASSES(FloodSetFamily, FloodSetTable, FloodSetConvertor, FloodSetConvertorLayer2All);
VELA_CLASS(FloodSetFamily, FloodSetConvertorLayer2All, PlainFamilyLayerConvertor);

class VELA_EXPORT FloodSetTable final : public PlainFamilyTable<FloodSetFamily> {
 public:
  VELA_REGISTERED(FloodSetFamily, FloodSetTable);
  using PlainFamilyTable::PlainFamilyTable;

  /// Announces a flood set with the time of its change; returns whether anything changed.
  bool entryIs(const FloodSetEntry& entry);
  /// With the clock's time.
  bool entryIs(Bridging::VlanId vid, const FloodSetResult& result);
  /// The entry that the clock's time makes of a result.
  FloodSetEntry entryOf(Bridging::VlanId vid, const FloodSetResult& result) const {
    return {vid, result, clock_()};
  }

  /// Gives the time of changes that are announced without; the system's time unless set.
  using Clock = std::function<Orb::Seconds()>;
  /// Asked at each change that has no time of its own.
  void clockIs(Clock clock) { clock_ = std::move(clock); }

  /// A row of hardware has no time: its entry has the clock's.
  void entryIsByHwRow(const Bridging::VlanId& vid, const FloodSetEntry& row) override;

 private:
  static Orb::Seconds systemTime();

  Clock clock_ = systemTime;
};

}  // namespace VelaSwitchTable
