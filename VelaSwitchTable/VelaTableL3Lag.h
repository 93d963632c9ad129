#pragma once

#include "VelaSwitch/PortMask.h"
#include "VelaSwitch/Types.h"
#include "VelaSwitchTable/family/DirectFamily.h"

namespace VelaSwitchTable {

/// Where packets to a layer-3 LAG go.
struct L3LagResult {
  static constexpr const char* typeName = "VelaSwitchTable::L3LagResult";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;  ///< With the CPU port.
  Orb::Field<"cpuPriority", bool> cpuPriority;  ///< What the CPU gets of them is urgent.
  auto operator<=>(const L3LagResult&) const = default;
};

/// The ports that a layer-3 LAG stands for, the CPU port among them. The row has no valid bit; an
/// empty mask without priority is taken for no entry.
struct VELA_EXPORT L3LagFamily
    : IndexedFamily<"VelaTableL3Lag", VelaSwitch::L3LagIndex, L3LagResult> {
  static constexpr DirectFamilyTraits traits = layer3MaskTraits({95, "L3Lag"});
  static constexpr auto fields(const RowShape& shape) {
    return std::to_array<RowField>({{"portMask", 0, shape.ports + 1},
                                    {"cpuPriority", shape.ports + 1, 1},
                                    {"parity", shape.ports + 2, 1},
                                    {"index", 64, 6},
                                    {"control", 81, 5, 19}});
  }
  static U32 rows(const VelaSwitch::ProfileInfo&) { return VelaSwitch::L3LagIndex::mcastSnat + 1; }
  static std::vector<std::string> registers() { return hashRegisters(2); }
};

VELA_DIRECT_FAMILY(L3Lag);

}  // namespace VelaSwitchTable
