#pragma once

#include "VelaSwitch/PortMask.h"
#include "VelaSwitch/Types.h"
#include "VelaSwitchTable/family/DirectFamily.h"

namespace VelaSwitchTable {

/// Where the copies of a flood set go.
struct L3FloodBitmapResult {
  static constexpr const char* typeName = "VelaSwitchTable::L3FloodBitmapResult";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;  ///< Without the CPU port.
  auto operator<=>(const L3FloodBitmapResult&) const = default;
};

/// The ports that a layer-3 flood set goes to. The CPU port is not among them: the mask has one bit
/// less than that of a layer-3 LAG. The row has no valid bit; an empty mask is taken for no entry.
struct VELA_EXPORT L3FloodBitmapFamily
    : IndexedFamily<"VelaTableL3FloodBitmap", VelaSwitch::L3FloodId, L3FloodBitmapResult> {
  static constexpr DirectFamilyTraits traits = layer3MaskTraits({92, "L3FloodBitmap"});
  static constexpr auto fields(const RowShape& shape) {
    return std::to_array<RowField>({{"portMask", 0, shape.ports},
                                    {"parity", shape.ports, 1},
                                    {"index", 64, 7},
                                    {"control", 81, 5, 21}});
  }
  /// Flood ids have a row but for the last, which stands for none.
  static U32 rows(const VelaSwitch::ProfileInfo&) { return VelaSwitch::L3FloodId::null; }
  static std::vector<std::string> registers() { return hashRegisters(2); }
};

VELA_DIRECT_FAMILY(L3FloodBitmap);

}  // namespace VelaSwitchTable
