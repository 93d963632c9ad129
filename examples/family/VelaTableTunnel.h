#pragma once

#include "Bridging/VlanId.h"
#include "Ipnet/IpAddr.h"
#include "VelaSwitch/Crc.h"
#include "VelaSwitchTable/family/HashFamily.h"

namespace VelaSwitchTable {

/// A tunnel that ends here: where its packets come from, and the network that they carry.
struct TunnelKey {
  static constexpr const char* typeName = "VelaSwitchTable::TunnelKey";
  Orb::Field<"source", Ipnet::IpAddr> source;
  Orb::Field<"network", U32, 24> network;
  auto operator<=>(const TunnelKey&) const = default;
};

/// Where its packets go on.
struct TunnelResult {
  static constexpr const char* typeName = "VelaSwitchTable::TunnelResult";
  Orb::Field<"vlanId", Bridging::VlanIdOrNone> vlanId;
  Orb::Field<"trapToCpu", bool> trapToCpu;
  auto operator<=>(const TunnelResult&) const = default;
};

/// Tunnels that end here, in every pipeline.
struct VELA_EXPORT TunnelFamily : Family<"VelaTableTunnel", TunnelKey, TunnelResult> {
  static constexpr HashFamilyTraits traits{.table = {60, "Tunnel"},
                                           .placement = HashPlacement::everyPipeline,
                                           .prefix = "ingress/processor_l3[%d]/",
                                           .rowWords = 5,
                                           .hashBits = 12,
                                           .ways = 2,
                                           .leftAligned = true,
                                           .rowImpliesKey = true,
                                           .staticWord = 4,
                                           .parityWords = 4};
  static constexpr KeyField keyFields[] = {{"source", 32}, {"network", 24}};
  static constexpr auto hash = &VelaSwitch::crc12Hash;
  static constexpr RowField fields[] = {
      {"compare", 0, 44},   {"valid", 44, 1},   {"vlanId", 45, 12},
      {"trapToCpu", 57, 1}, {"parity", 58, 1},  {"row", 128, 12},
      {"way", 142, 2},      {"one", 145, 1, 1}, {"selector", 146, 4, 12}};
};

VELA_HASH_FAMILY(Tunnel);

}  // namespace VelaSwitchTable
