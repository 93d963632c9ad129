#pragma once

#include "VelaSwitchTable/VelaTableLpm.h"
#include "VelaSwitchTable/family/DirectFamily.h"

namespace VelaSwitchTable {

struct Lpm11Result {
  static constexpr const char* typeName = "VelaSwitchTable::Lpm11Result";
  Orb::Field<"cellResult", EntryCellResult> cellResult;
  Orb::Field<"cpuTrap", bool> cpuTrap;
  auto operator<=>(const Lpm11Result&) const = default;
};

/// The first level of the ladder: one row for each VRF and value of the upper 11 address bits.
///
/// Registers do not hold the real length. From hardware interface 5.1 on they hold the mask length,
/// which routes set to it; before, it is lost when the process ends.
///
/// Keys have the prefix length 11; others are a fatal assertion.
struct VELA_EXPORT Lpm11Family
    : DirectFamilyTypes<VelaSwitch::LpmKey, Lpm11Result, class Lpm11Table, class Lpm11Convertor,
                        class Lpm11Entry> {
  static constexpr const char* sourceUnit = "VelaTableLpm11";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr DirectFamilyTraits traits{.index = TableIndex::lpm11,
                                             .placement = DirectPlacement::everyPipeline,
                                             .prefix = "ingress/processor_l3[%d]/",
                                             .rowWords = 3};
  /// Address bits of a key.
  static constexpr U8 keyLength = 11;
  static constexpr U32 rowsPerVrf = 1u << keyLength;

  static U32 rows(const VelaSwitch::ProfileInfo& profile) { return profile.vrfs() * rowsPerVrf; }
  static std::vector<std::string> registers() { return {"hash_data0", "hash_ctl"}; }
  static HwIndex hwIndex(const Key& key);
  static Key keyOf(HwIndex index);
  static RowLayout layout(const VelaSwitch::ProfileInfo& profile);
  static void pack(const VelaSwitch::ProfileInfo& profile, const Key& key, const Result& result,
                   bool valid, RowWriter& row);
  static void packStatic(HwIndex index, RowWriter& row);
  static std::optional<std::pair<Result, bool>> unpack(const VelaSwitch::ProfileInfo& profile,
                                                       const RowReader& row);
  static void describe(Orb::TextSink& sink, const Result& result) { appendText(sink, result); }
};

VELA_DIRECT_FAMILY(Lpm11Family, Lpm11Table, Lpm11Convertor, Lpm11Entry);

// The same by their other names.
VELA_FACTORY(Lpm11Table, lpm11TableFactory, (const std::string& name));
VELA_FACTORY(Lpm11Convertor, lpm11ConvertorFactory, ());
VELA_FACTORY(Lpm11Entry, lpm11EntryFactory, (const VelaSwitch::LpmKey& key));

}  // namespace VelaSwitchTable
