#pragma once

#include "VelaSwitch/PortMask.h"
#include "VelaSwitchTable/family/PortTables.h"

namespace VelaSwitchTable {

using RxPortMirrorKey = PortKeyOf<"VelaSwitchTable::RxPortMirrorKey">;

/// The copies of what a port receives.
struct RxPortMirrorResult {
  static constexpr const char* typeName = "VelaSwitchTable::RxPortMirrorResult";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;  ///< Where copies go.
  Orb::Field<"enabled", bool> enabled;  ///< Without it there are none, whatever the mask.
  auto operator<=>(const RxPortMirrorResult&) const = default;
};

/// Where what a port receives is mirrored to, in the layer-2 processor that serves the port.
struct VELA_EXPORT RxPortMirrorFamily
    : IndexedFamily<"VelaTableRxPortMirror", RxPortMirrorKey, RxPortMirrorResult> {
  static constexpr PlainFamilyTraits traits{
      .table = {112, "RxPortMirror"}, .rowWords = 3, .staticWords = {0, 0, 0xffffffff}};
  static constexpr auto fields(const RowShape& shape) {
    return std::to_array<RowField>(
        {{"portMask", 0, shape.ports}, {"enabled", shape.ports, 1}, {"control", 64, 32}});
  }
  static constexpr Layer2Registers layer2Registers{
      .data = {"ingress_mirror_data0", "ingress_mirror_data1"}, .control = "ingress_mirror_ctl"};
};

VELA_PLAIN_FAMILY(RxPortMirror, Layer2All);

}  // namespace VelaSwitchTable
