#pragma once

#include "VelaSwitchTable/VelaTableLpm.h"
#include "VelaSwitchTable/family/DirectFamily.h"

namespace VelaSwitchTable {

/// A row of the first level.
struct Lpm11Result {
  static constexpr const char* typeName = "VelaSwitchTable::Lpm11Result";
  Orb::Field<"cellResult", EntryCellResult> cellResult;  ///< The longest route of the level.
  Orb::Field<"cpuTrap", bool> cpuTrap;                   ///< Packets go to the CPU.
  auto operator<=>(const Lpm11Result&) const = default;
};

/// The first level of the ladder: one row for each VRF and value of the upper 11 address bits.
///
/// Registers do not hold the real length. From hardware interface 5.1 on they hold the mask length,
/// which routes set to it; before, it is lost when the process ends.
///
/// Keys have the prefix length 11; others are a fatal assertion.
struct VELA_EXPORT Lpm11Family : IndexedFamily<"VelaTableLpm11", VelaSwitch::LpmKey, Lpm11Result> {
  static constexpr DirectFamilyTraits traits{.table = {90, "Lpm11"},
                                             .placement = DirectPlacement::everyPipeline,
                                             .prefix = "ingress/processor_l3[%d]/",
                                             .rowWords = 3,
                                             .parityWords = 1};
  /// Whether rows hold the mask length.
  static bool otherFormat(const VelaSwitch::ProfileInfo& profile) {
    return profile.hwApi() >= VelaSwitch::ProfileHwApi{5u, 1u};
  }
  static constexpr auto fields(const RowShape& shape) {
    const bool mask = shape.other;
    return std::to_array<RowField>({{"cell", 0, 12},
                                    {"zeros", 13, mask ? 0u : 2u},
                                    {"valid", 12, 1},
                                    {"cpuTrap", mask ? 13u : 15u, 1},
                                    {"parity", mask ? 14u : 16u, 1},
                                    {"mask", 15, mask ? 4u : 0u},
                                    {"index", 32, 16},
                                    {"control", 49, 5, 15},
                                    {"realLength", 64, 6}});
  }
  static constexpr std::array handPacked{"cellResult"};
  /// Address bits of a key.
  static constexpr U8 keyLength = 11;
  static constexpr U32 rowsPerVrf = 1u << keyLength;

  static U32 rows(const VelaSwitch::ProfileInfo& profile) { return profile.vrfs() * rowsPerVrf; }
  static std::vector<std::string> registers() { return hashRegisters(1); }
  static HwIndex hwIndex(const Key& key);
  static Key keyOf(HwIndex index);
  static void sample(const VelaSwitchApi::SwTable& table, U64 bits, const Key&, Result& result);
  static void packMore(const VelaSwitch::ProfileInfo& profile, const Result& result,
                       RowWriterOf<Lpm11Family>& row);
  static void unpackMore(const VelaSwitch::ProfileInfo& profile,
                         const RowReaderOf<Lpm11Family>& row, Result& result);
  static std::string describe(const Result& result) { return Orb::text(result); }
};

VELA_DIRECT_FAMILY(Lpm11);

// The same by their other names.
VELA_FACTORY(Lpm11Table, lpm11TableFactory, (const std::string& name));
VELA_FACTORY(Lpm11Convertor, lpm11ConvertorFactory, ());
VELA_FACTORY(Lpm11Entry, lpm11EntryFactory, (const VelaSwitch::LpmKey& key));

}  // namespace VelaSwitchTable
