#pragma once

#include "Orb/Range.h"

namespace Bridging {

/// A VLAN id, 1 to 4094.
class VlanId : public Orb::Ranged<VlanId, U16, 1, 4094> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText = "Bridging::VlanId::value < 1 or > 4094 not allowed";
  static constexpr U16 min = 1;     ///< VLAN 0 is none.
  static constexpr U16 max = 4094;  ///< 4095 is reserved.
};

/// A VLAN id, or 0 for none.
class VlanIdOrNone : public Orb::Ranged<VlanIdOrNone, U16, 0, 4094> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText = "Bridging::VlanIdOrNone::value > 4094 not allowed";
  static constexpr U16 none = 0;  ///< No VLAN.
};

}  // namespace Bridging
