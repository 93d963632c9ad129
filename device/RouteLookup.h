#pragma once

#include "Bridging/EthAddr.h"
#include "VelaSwitch/Keys.h"
#include "device/DataPath.h"

/// Routes, multicast routes, and where packets go that take one.
namespace VelaDevice {

/// Layer-3 results. A row without an entry holds zeros, and the data path finds those.
std::optional<PortMaskHit> l3FloodBitmap(DataPath& path, U32 floodId);

/// What is written into the copies of a layer-3 flood set.
struct FloodArpHit {
  static constexpr const char* typeName = "VelaDevice::FloodArpHit";
  Orb::Field<"ethAddr", Bridging::EthAddr> ethAddr;  ///< Destination address.
  Orb::Field<"vlanId", U16> vlanId;                  ///< 0 for none.
};
/// Nothing where the copies of the row disagree.
std::optional<FloodArpHit> l3FloodArp(DataPath& path, U32 floodId);

/// Where packets to a layer-3 LAG go.
struct L3LagHit {
  static constexpr const char* typeName = "VelaDevice::L3LagHit";
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;  ///< With the CPU port.
  Orb::Field<"cpuPriority", bool> cpuPriority;  ///< What the CPU gets of them is urgent.
};
std::optional<L3LagHit> l3Lag(DataPath& path, U32 index);  ///< `index` is 0 to 63.

/// The next hop that a route lookup ends at.
struct RouteHit {
  static constexpr const char* typeName = "VelaDevice::RouteHit";
  Orb::Field<"l3LagIndex", U16> l3LagIndex;     ///< Of the L3Lag table; 57 for no next hop.
  Orb::Field<"rewriteIndex", U8> rewriteIndex;  ///< Which rewrite of the egress side.
  /// Nothing where registers do not tell.
  Orb::Field<"realPrefixLen", std::optional<U8>> realPrefixLen;
};
/// The longest route that covers the address: the hashed levels from the longest on, then the
/// first level.
std::optional<RouteHit> route(DataPath& path, U32 vrf, Ipnet::IpAddr address);

/// A row of a hashed level.
struct LpmRowHit {
  static constexpr const char* typeName = "VelaDevice::LpmRowHit";
  /// By the two address bits behind the key; nothing where no route is.
  Orb::Field<"cells", std::vector<std::optional<RouteHit>>> cells;
  Orb::Field<"cpuTrap", bool> cpuTrap;  ///< Packets go to the CPU.
};
/// The row of a hashed level, such as "Lpm23", that the address falls into.
std::optional<LpmRowHit> lpmRow(DataPath& path, std::string_view family, U32 vrf,
                                Ipnet::IpAddr address);

/// A row of the first level.
struct Lpm11Hit {
  static constexpr const char* typeName = "VelaDevice::Lpm11Hit";
  Orb::Field<"cellResult", RouteHit> cellResult;  ///< The next hop.
  Orb::Field<"cpuTrap", bool> cpuTrap;            ///< Packets go to the CPU.
};
/// The row of the first level that the address falls into.
std::optional<Lpm11Hit> lpm11(DataPath& path, U32 vrf, Ipnet::IpAddr address);

/// Who gets a copy of a multicast packet.
struct MrouteHit {
  static constexpr const char* typeName = "VelaDevice::MrouteHit";
  /// The row of VlanGroup, 0 to 15: the VLANs of the copies.
  Orb::Field<"vlanGroupId", U8> vlanGroupId;
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;  ///< With the CPU port.
};
/// The multicast route of the packet's source, or else that of any source.
std::optional<MrouteHit> multicast(DataPath& path, const VelaSwitch::MrouteKey& key);
/// Of the packet's source alone.
std::optional<MrouteHit> sg(DataPath& path, const VelaSwitch::MrouteKey& key);
/// Of any source alone.
std::optional<MrouteHit> starG(DataPath& path, const VelaSwitch::MrouteKey& key);

}  // namespace VelaDevice
