#include "agent/Registry.h"

#include "agent/Agent.h"
#include "device/NatLookup.h"
#include "device/PortLookup.h"
#include "device/RouteLookup.h"

namespace VelaAgent {
namespace {

using VelaDevice::DataPath;

constexpr U8 lagBuckets = 32;

/// A packet that may be translated, with what it carries: an IP protocol, or the class that the
/// remapping of protocols gives it.
struct FlowKey {
  static constexpr const char* typeName = "VelaAgent::FlowKey";
  Orb::Field<"proto", std::optional<U8>> proto;
  Orb::Field<"protoClass", std::optional<U8>> protoClass;
  Orb::Field<"srcIp", Ipnet::IpAddr> srcIp;
  Orb::Field<"dstIp", Ipnet::IpAddr> dstIp;
  Orb::Field<"sport", U16> sport;
  Orb::Field<"dport", U16> dport;
  Orb::Field<"qualifier", U16> qualifier;
  Orb::Field<"egressPort", VelaSwitch::ChipPortId> egressPort;
};

/// A frame to a LAG.
struct LagFrame {
  static constexpr const char* typeName = "VelaAgent::LagFrame";
  Orb::Field<"ingressPort", VelaSwitch::ChipPortId> ingressPort;
  Orb::Field<"lagGroupId", U32> lagGroupId;
  Orb::Field<"bucket", U8> bucket;
};

Json lookupFlow(const Agent& agent, DataPath& dataPath, const Json& json) {
  constexpr U64 classes = 8;
  constexpr U64 qualifiers = 64;
  const auto key = fromJson<FlowKey>(json, dataPath.profile());
  refuseBeyond("protoClass", key.protoClass().value_or(0), classes, "protocol classes");
  refuseBeyond("qualifier", key.qualifier(), qualifiers, "qualifiers");
  if (key.proto() && key.protoClass()) {
    throw InputException("proto and protoClass: a packet has one protocol, so give one of them");
  }
  VelaDevice::Flow flow;
  flow.protoClass = key.protoClass().value_or(0);
  if (key.proto()) {
    const Json remap = agent.table("ProtocolRemap", 0).lookup(dataPath, *key.proto());
    flow.protoClass = remap["remappedProtocol"].get<U8>();
  }
  flow.srcIp = key.srcIp();
  flow.dstIp = key.dstIp();
  flow.sport = key.sport();
  flow.dport = key.dport();
  flow.qualifier = key.qualifier();
  flow.egressPort = key.egressPort().value();
  return hitToJson(VelaDevice::flow(dataPath, flow));
}

Json lookupLagMember(DataPath& dataPath, const Json& key) {
  const auto frame = fromJson<LagFrame>(key, dataPath.profile());
  refuseBeyond("bucket", frame.bucket(), lagBuckets, "LAG buckets");
  return hitToJson(
      lagMember(dataPath, frame.ingressPort().value(), frame.lagGroupId(), frame.bucket()));
}

}  // namespace

std::vector<std::unique_ptr<PathAdapter>> makePaths(const Agent& agent) {
  std::vector<std::unique_ptr<PathAdapter>> paths;
  const auto add = [&](const char* name, PathAdapter::Lookup lookup) {
    paths.push_back(std::make_unique<PathAdapter>(name, std::move(lookup)));
  };
  add("Flow",
      [&agent](DataPath& dataPath, const Json& key) { return lookupFlow(agent, dataPath, key); });
  add("Multicast", [](DataPath& dataPath, const Json& key) {
    return hitToJson(multicast(dataPath, fromJson<VelaSwitch::MrouteKey>(key)));
  });
  add("LagMember", lookupLagMember);
  return paths;
}

const std::vector<FamilyRegistration>& families() {
  static const std::vector<FamilyRegistration> all = [] {
    std::vector<FamilyRegistration> registrations;
    for (const auto group : {vlanFamilies, portFamilies, controlPlaneFamilies, aclFamilies,
                             routeFamilies, natFamilies, l3ResultFamilies}) {
      for (FamilyRegistration& family : group()) registrations.push_back(std::move(family));
    }
    return registrations;
  }();
  return all;
}

}  // namespace VelaAgent
