#pragma once

#include "Bridging/EthAddr.h"
#include "Bridging/VlanId.h"
#include "VelaSwitch/PipeMap.h"
#include "device/DataPath.h"

/// VLANs, where their frames go and who belongs to them.
namespace VelaDevice {

/// The ports that a frame of unknown destination goes to which came in by the port: those of the
/// flood set that the VLAN permits, without the port itself.
std::optional<PortMaskHit> flood(DataPath& path, Bridging::VlanId vid, U32 port, bool multicast);

/// A VLAN's row as a port's pipeline sees it, or the whole VLAN put together from all slices.
struct VlanHit {
  static constexpr const char* typeName = "VelaDevice::VlanHit";
  Orb::Field<"permitMask", U64> permitMask;                         ///< Bit n: port n is a member.
  Orb::Field<"learnToCpu", bool> learnToCpu;                        ///< Frames from new addresses.
  Orb::Field<"unknownMulticastToCpu", bool> unknownMulticastToCpu;  ///< Groups that nobody joined.
  Orb::Field<"multicastJoinToCpu", bool> multicastJoinToCpu;        ///< Membership reports.
  Orb::Field<"broadcastToCpu", bool> broadcastToCpu;                ///< Broadcasts.
  Orb::Field<"unknownDaToCpu", bool> unknownDaToCpu;                ///< Unknown destinations.
  /// Membership reports go out as well.
  Orb::Field<"multicastJoinToEgress", bool> multicastJoinToEgress;
  Orb::Field<"vrfBits", U8> vrfBits;              ///< The VRF that routed packets are looked up in.
  Orb::Field<"unicastRoute", bool> unicastRoute;  ///< Unicast is routed.
  Orb::Field<"multicastRoute", bool> multicastRoute;   ///< Multicast is routed.
  Orb::Field<"aclId", VelaSwitch::PipeMap<U8>> aclId;  ///< The ACL that frames are checked against.
  Orb::Field<"aclEnable", VelaSwitch::PipeMap<U8>> aclEnable;  ///< 1 where they are.
  /// Frames that match no entry pass.
  Orb::Field<"aclDefaultPermit", VelaSwitch::PipeMap<bool>> aclDefaultPermit;
  Orb::Field<"natId", VelaSwitch::PipeMap<U8>> natId;  ///< The NAT that frames are subject to.
  Orb::Field<"natEnable", VelaSwitch::PipeMap<U8>> natEnable;  ///< 1 where they are.
};
/// The VLAN as the pipeline of a port sees it: its slice of the ports.
std::optional<VlanHit> vlan(DataPath& path, U32 port, Bridging::VlanId vid);
/// The VLAN's row in every table: the ports of all slices, and the pipes' fields of all tables.
std::optional<VlanHit> vlan(DataPath& path, Bridging::VlanId vid);

/// Where a VLAN's frames of unknown destination go.
struct FloodSetHit {
  static constexpr const char* typeName = "VelaDevice::FloodSetHit";
  Orb::Field<"uucPortMask", U64> uucPortMask;  ///< Unknown unicast; bit n is port n.
  Orb::Field<"umcPortMask", U64> umcPortMask;  ///< Unknown multicast.
};
/// The VLAN's whole masks, whatever ports it permits.
std::optional<FloodSetHit> floodSet(DataPath& path, Bridging::VlanId vid);

/// The VLANs that a multicast packet is copied into.
struct VlanGroupHit {
  static constexpr const char* typeName = "VelaDevice::VlanGroupHit";
  Orb::Field<"vlanIds", std::vector<U32>> vlanIds;  ///< Eight of them; 0 for an unused place.
};
/// Nothing where a control word names another row.
std::optional<VlanGroupHit> vlanGroup(DataPath& path, U32 processor, U32 group);

/// An address in a VLAN, and what becomes of frames to it.
struct MacVlanHit {
  static constexpr const char* typeName = "VelaDevice::MacVlanHit";
  Orb::Field<"valid", bool> valid;                   ///< Whether the row answers lookups.
  Orb::Field<"vlanId", U16> vlanId;                  ///< Compared with the frame's.
  Orb::Field<"macAddr", Bridging::EthAddr> macAddr;  ///< Compared with the destination address.
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;  ///< Where frames go.
  Orb::Field<"multicast", bool> multicast;                       ///< It is a group's address.
  Orb::Field<"routed", bool> routed;                             ///< It is the router's own.
};
/// As the first layer-2 processor has it; nothing when it was never written.
std::optional<MacVlanHit> macVlan(DataPath& path, U32 index);

}  // namespace VelaDevice
