#pragma once

#include "VelaSwitch/Types.h"
#include "VelaSwitchTable/family/PlainFamily.h"

/// What plain families share whose keys are chip ports.
namespace VelaSwitchTable {

/// A chip port as the key of a table, under the table's own name.
template <Orb::FixedString Name>
struct PortKeyOf {
  static constexpr const char* typeName = Name.chars;
  static constexpr bool scalar = true;
  Orb::Field<"portId", VelaSwitch::ChipPortId> portId;  ///< Of the profile; others have no row.
  auto operator<=>(const PortKeyOf&) const = default;
};

}  // namespace VelaSwitchTable
