#pragma once

#include "Orb/Range.h"

/// The chip's numbers: ids and indexes with the bounds that the hardware gives them.
namespace VelaSwitch {

/// A port of the chip; 49 stands for no port.
VELA_RANGED(VelaSwitch, ChipPortId, U16, min, 0, null, 49, 49);

/// A packet pipe; 13 stands for none.
VELA_RANGED(VelaSwitch, PipeId, U8, min, 0, null, 13, 13);

/// Which ACL a frame is checked against; 16 stands for none.
VELA_RANGED(VelaSwitch, HwAclId, U8, min, 0, invalid, 16, 16);

/// Precedence of an ACL entry; 0 stands for none.
VELA_RANGED(VelaSwitch, HwAclPriority, U8, invalid, 0, max, 255, 0);

/// The counter that an ACL entry counts in; 0 stands for none.
VELA_RANGED(VelaSwitch, HwCounterIndex, U16, invalid, 0, max, 4095, 0);

/// Which NAT a frame is subject to; 9 stands for none.
VELA_RANGED(VelaSwitch, NatId, U8, min, 0, null, 9, 9);

/// A layer-3 flood set; 128 stands for none.
VELA_RANGED(VelaSwitch, L3FloodId, U8, min, 0, null, 128, 128);

/// A layer-3 LAG; 57 stands for none, 63 for the source-NAT multicast path.
class L3LagIndex : public Orb::Ranged<L3LagIndex, U16, 0, 63, 57> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText =
      VELA_RANGE_TEXT("VelaSwitch::L3LagIndex", "min", "mcastSnat");
  static constexpr U16 min = 0;         ///< The first LAG.
  static constexpr U16 null = 57;       ///< No LAG.
  static constexpr U16 mcastSnat = 63;  ///< The path of multicast whose source is translated.
};

}  // namespace VelaSwitch
