#pragma once

#include "Orb/Range.h"

/// The chip's numbers: ids and indexes with the bounds that the hardware gives them.
namespace VelaSwitch {

/// A port of the chip; 49 stands for no port.
class ChipPortId : public Orb::Ranged<ChipPortId, U16, 0, 49, 49> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText =
      "VelaSwitch::ChipPortId::value < VelaSwitch::ChipPortId::min or > "
      "VelaSwitch::ChipPortId::null not allowed";
  static constexpr U16 min = 0;
  static constexpr U16 null = 49;
};

/// A packet pipe; 13 stands for none.
class PipeId : public Orb::Ranged<PipeId, U8, 0, 13, 13> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText =
      "VelaSwitch::PipeId::value < VelaSwitch::PipeId::min or > VelaSwitch::PipeId::null not "
      "allowed";
  static constexpr U8 min = 0;
  static constexpr U8 null = 13;
};

/// Which ACL a frame is checked against; 16 stands for none.
class HwAclId : public Orb::Ranged<HwAclId, U8, 0, 16, 16> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText =
      "VelaSwitch::HwAclId::value < VelaSwitch::HwAclId::min or > VelaSwitch::HwAclId::invalid not "
      "allowed";
  static constexpr U8 min = 0;
  static constexpr U8 invalid = 16;
};

/// Precedence of an ACL entry; 0 stands for none.
class HwAclPriority : public Orb::Ranged<HwAclPriority, U8, 0, 255> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText =
      "VelaSwitch::HwAclPriority::value < VelaSwitch::HwAclPriority::invalid or > "
      "VelaSwitch::HwAclPriority::max not allowed";
  static constexpr U8 invalid = 0;
  static constexpr U8 max = 255;
};

/// The counter that an ACL entry counts in; 0 stands for none.
class HwCounterIndex : public Orb::Ranged<HwCounterIndex, U16, 0, 4095> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText =
      "VelaSwitch::HwCounterIndex::value < VelaSwitch::HwCounterIndex::invalid or > "
      "VelaSwitch::HwCounterIndex::max not allowed";
  static constexpr U16 invalid = 0;
  static constexpr U16 max = 4095;
};

/// Which NAT a frame is subject to; 9 stands for none.
class NatId : public Orb::Ranged<NatId, U8, 0, 9, 9> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText =
      "VelaSwitch::NatId::value < VelaSwitch::NatId::min or > VelaSwitch::NatId::null not allowed";
  static constexpr U8 min = 0;
  static constexpr U8 null = 9;
};

/// A layer-3 flood set; 128 stands for none.
class L3FloodId : public Orb::Ranged<L3FloodId, U8, 0, 128, 128> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText =
      "VelaSwitch::L3FloodId::value < VelaSwitch::L3FloodId::min or > VelaSwitch::L3FloodId::null "
      "not allowed";
  static constexpr U8 min = 0;
  static constexpr U8 null = 128;
};

/// A layer-3 LAG; 57 stands for none, 63 for the source-NAT multicast path.
class L3LagIndex : public Orb::Ranged<L3LagIndex, U16, 0, 63, 57> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText =
      "VelaSwitch::L3LagIndex::value < VelaSwitch::L3LagIndex::min or > "
      "VelaSwitch::L3LagIndex::mcastSnat not allowed";
  static constexpr U16 min = 0;
  static constexpr U16 null = 57;
  static constexpr U16 mcastSnat = 63;
};

}  // namespace VelaSwitch
