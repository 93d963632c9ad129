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
  Orb::Field<"permitMask", U64> permitMask;
  Orb::Field<"learnToCpu", bool> learnToCpu;
  Orb::Field<"unknownMulticastToCpu", bool> unknownMulticastToCpu;
  Orb::Field<"multicastJoinToCpu", bool> multicastJoinToCpu;
  Orb::Field<"broadcastToCpu", bool> broadcastToCpu;
  Orb::Field<"unknownDaToCpu", bool> unknownDaToCpu;
  Orb::Field<"multicastJoinToEgress", bool> multicastJoinToEgress;
  Orb::Field<"vrfBits", U8> vrfBits;
  Orb::Field<"unicastRoute", bool> unicastRoute;
  Orb::Field<"multicastRoute", bool> multicastRoute;
  Orb::Field<"aclId", VelaSwitch::PipeMap<U8>> aclId;
  Orb::Field<"aclEnable", VelaSwitch::PipeMap<U8>> aclEnable;
  Orb::Field<"aclDefaultPermit", VelaSwitch::PipeMap<bool>> aclDefaultPermit;
  Orb::Field<"natId", VelaSwitch::PipeMap<U8>> natId;
  Orb::Field<"natEnable", VelaSwitch::PipeMap<U8>> natEnable;
};
/// The VLAN as the pipeline of a port sees it: its slice of the ports.
std::optional<VlanHit> vlan(DataPath& path, U32 port, Bridging::VlanId vid);
/// The VLAN's row in every table: the ports of all slices, and the pipes' fields of all tables.
std::optional<VlanHit> vlan(DataPath& path, Bridging::VlanId vid);

/// Where a VLAN's frames of unknown destination go.
struct FloodSetHit {
  static constexpr const char* typeName = "VelaDevice::FloodSetHit";
  Orb::Field<"uucPortMask", U64> uucPortMask;
  Orb::Field<"umcPortMask", U64> umcPortMask;
};
std::optional<FloodSetHit> floodSet(DataPath& path, Bridging::VlanId vid);

struct VlanGroupHit {
  static constexpr const char* typeName = "VelaDevice::VlanGroupHit";
  Orb::Field<"vlanIds", std::vector<U32>> vlanIds;
};
std::optional<VlanGroupHit> vlanGroup(DataPath& path, U32 processor, U32 group);

struct MacVlanHit {
  static constexpr const char* typeName = "VelaDevice::MacVlanHit";
  Orb::Field<"valid", bool> valid;
  Orb::Field<"vlanId", U16> vlanId;
  Orb::Field<"macAddr", Bridging::EthAddr> macAddr;
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  Orb::Field<"multicast", bool> multicast;
  Orb::Field<"routed", bool> routed;
};
std::optional<MacVlanHit> macVlan(DataPath& path, U32 index);

}  // namespace VelaDevice
