#include "agent/Registry.h"

namespace VelaAgent {
namespace {

using VelaDevice::DataPath;

constexpr U8 lagBuckets = 32;

/// A frame to a LAG.
struct LagFrame {
  static constexpr const char* typeName = "VelaAgent::LagFrame";
  Orb::Field<"ingressPort", VelaSwitch::ChipPortId> ingressPort;
  Orb::Field<"lagGroupId", U32> lagGroupId;
  Orb::Field<"bucket", U8> bucket;
};

}  // namespace

std::vector<std::unique_ptr<PathAdapter>> makePaths() {
  std::vector<std::unique_ptr<PathAdapter>> paths;
  paths.push_back(std::make_unique<PathAdapter>("Flow", [](DataPath& dataPath, const Json& key) {
    const auto flow = fromJson<VelaDevice::Flow>(key);
    refuseAbsentPort("egressPort", flow.egressPort(), dataPath.profile());
    return hitToJson(dataPath.flow(flow));
  }));
  paths.push_back(
      std::make_unique<PathAdapter>("Multicast", [](DataPath& dataPath, const Json& key) {
        return hitToJson(dataPath.multicast(fromJson<VelaSwitch::MrouteKey>(key)));
      }));
  paths.push_back(
      std::make_unique<PathAdapter>("LagMember", [](DataPath& dataPath, const Json& key) {
        const auto frame = fromJson<LagFrame>(key);
        refuseAbsent(frame, dataPath.profile());
        refuseBeyond("bucket", frame.bucket(), lagBuckets, "buckets for each LAG");
        return hitToJson(
            dataPath.lagMember(frame.ingressPort().value(), frame.lagGroupId(), frame.bucket()));
      }));
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
