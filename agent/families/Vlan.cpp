#include "VelaSwitchTable/VelaTableFloodSet.h"
#include "VelaSwitchTable/VelaTableMacVlan.h"
#include "VelaSwitchTable/VelaTableVlanGroup.h"
#include "VelaSwitchTable/VelaTableVlanMembership.h"
#include "agent/families/Registrations.h"
#include "device/VlanLookup.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

/// A frame of unknown destination.
struct FloodedFrame {
  static constexpr const char* typeName = "VelaAgent::FloodedFrame";
  Orb::Field<"vid", Bridging::VlanId> vid;
  Orb::Field<"port", VelaSwitch::ChipPortId> port;
  Orb::Field<"multicast", bool> multicast;
};

/// A VLAN at a port.
struct VlanAtPort {
  static constexpr const char* typeName = "VelaAgent::VlanAtPort";
  Orb::Field<"vid", Bridging::VlanId> vid;
  Orb::Field<"port", VelaSwitch::ChipPortId> port;
};

auto lookupFloodSet(DataPath& dataPath, U32, const Bridging::VlanId& vid) {
  return VelaDevice::floodSet(dataPath, vid);
}

/// The ports that a frame goes to.
auto lookupFlood(DataPath& dataPath, U32, const FloodedFrame& frame) {
  return VelaDevice::flood(dataPath, frame.vid(), frame.port().value(), frame.multicast());
}

auto lookupVlanGroup(DataPath& dataPath, U32, const VlanGroupKey& key) {
  return VelaDevice::vlanGroup(dataPath, 0, key.group());
}

auto lookupMacVlan(DataPath& dataPath, U32, const MacVlanKey& key) {
  return VelaDevice::macVlan(dataPath, key.row());
}

auto lookupVlan(DataPath& dataPath, U32, const VlanMembershipKey& key) {
  return VelaDevice::vlan(dataPath, key.vid());
}

/// What the port's pipeline holds of the VLAN.
auto lookupVlanAtPort(DataPath& dataPath, U32, const VlanAtPort& at) {
  return VelaDevice::vlan(dataPath, at.port().value(), at.vid());
}

void checkVlan(const VlanMembershipTable& table, const VlanMembershipResult& result,
               std::vector<std::string>&) {
  refuseAbsentVrf("vrfBits", result.vrfBits(), table.profile());
}

}  // namespace

std::vector<FamilyRegistration> vlanFamilies() {
  return {
      indexedFamily<VlanMembershipFamily>(
          {lookupOf(lookupVlan), lookupOf(lookupVlanAtPort, "a VLAN id or {\"vid\", \"port\"}")},
          {nullptr, checkVlan}),
      indexedFamily<FloodSetFamily>({lookupOf(lookupFloodSet), lookupOf(lookupFlood)}),
      indexedFamily<MacVlanFamily>({lookupOf(lookupMacVlan)}),
      indexedFamily<VlanGroupFamily>({lookupOf(lookupVlanGroup)}),
  };
}

}  // namespace VelaAgent
