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

/// A VLAN id asks for its flood set, {"vid", "port", "multicast"} for the ports that a frame goes
/// to.
Json lookupFloodSet(DataPath& dataPath, U32, const Json& key) {
  if (!key.is_object()) return hitToJson(floodSet(dataPath, fromJson<Bridging::VlanId>(key)));
  const auto frame = fromJson<FloodedFrame>(key, dataPath.profile());
  return hitToJson(flood(dataPath, frame.vid(), frame.port().value(), frame.multicast()));
}

Json lookupVlanGroup(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(vlanGroup(dataPath, 0, fromJson<U8>(key)));
}

Json lookupMacVlan(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(macVlan(dataPath, fromJson<U16>(key)));
}

/// A VLAN id asks for the whole VLAN, {"vid", "port"} for what the port's pipeline holds of it.
Json lookupVlan(DataPath& dataPath, U32, const Json& key) {
  if (!key.is_object()) return hitToJson(vlan(dataPath, fromJson<VlanMembershipKey>(key).vid()));
  if (!key.contains("vid") || !key.contains("port") || key.size() != 2) {
    throw InputException("expected a VLAN id or {\"vid\", \"port\"}, not " + key.dump());
  }
  const auto port = fromJson<VelaSwitch::ChipPortId>(key["port"]);
  refuseAbsentPort("port", port.value(), dataPath.profile());
  return hitToJson(vlan(dataPath, port.value(), fromJson<VlanMembershipKey>(key["vid"]).vid()));
}

void checkVlan(const VlanMembershipTable& table, const VlanMembershipResult& result,
               std::vector<std::string>&) {
  refuseAbsentVrf("vrfBits", result.vrfBits(), table.profile());
}

}  // namespace

std::vector<FamilyRegistration> vlanFamilies() {
  return {
      indexedFamily<VlanMembershipFamily>(lookupVlan, {nullptr, checkVlan}),
      indexedFamily<FloodSetFamily>(lookupFloodSet),
      indexedFamily<MacVlanFamily>(lookupMacVlan),
      indexedFamily<VlanGroupFamily>(lookupVlanGroup),
  };
}

}  // namespace VelaAgent
