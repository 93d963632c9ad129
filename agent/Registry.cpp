#include "agent/Registry.h"

#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "VelaSwitchTable/VelaTableHashTest.h"
#include "VelaSwitchTable/VelaTableVlanMembership.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

template <class Family>
FamilyRegistration hashFamily(typename EntryAdapter<typename Family::Table>::Lookup lookup) {
  const std::string name = TableConstants::tableName(Family::traits.index);
  return {name, Family::trace,
          [](const VelaSwitch::ProfileInfo& profile) {
            return Family::traits.placement == HashPlacement::ownPipeline ? profile.pipelines()
                                                                          : 1u;
          },
          [=](U32 instance) {
            const auto number = static_cast<U8>(instance);
            return std::make_unique<HashAdapter<Family>>(
                name, instance,
                Orb::make<typename Family::Table>(name + "/" + std::to_string(instance), number,
                                                  number),
                lookup);
          }};
}

template <class Family>
FamilyRegistration plainFamily(typename EntryAdapter<typename Family::Table>::Lookup lookup) {
  const std::string name = TableConstants::tableName(Family::index);
  return {name, Family::trace, [](const VelaSwitch::ProfileInfo&) { return 1u; },
          [=](U32 instance) {
            return std::make_unique<PlainAdapter<Family>>(
                name, instance, Orb::make<typename Family::Table>(name), lookup);
          }};
}

Json lookupHashTest(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(dataPath.hashTest(fromJson<HashTestKey>(key).value()));
}

Json lookupAcl(DataPath& dataPath, U32 instance, const Json& key) {
  return hitToJson(dataPath.acl(instance, fromJson<VelaSwitch::AclHashKey>(key)));
}

/// A VLAN id asks for the whole VLAN, {"vid", "port"} for what the port's pipeline holds of it.
Json lookupVlan(DataPath& dataPath, U32, const Json& key) {
  if (!key.is_object()) return hitToJson(dataPath.vlan(fromJson<VlanMembershipKey>(key).vid()));
  if (!key.contains("vid") || !key.contains("port") || key.size() != 2) {
    throw InputException("expected a VLAN id or {\"vid\", \"port\"}, not " + key.dump());
  }
  const auto port = fromJson<VelaSwitch::ChipPortId>(key["port"]);
  return hitToJson(dataPath.vlan(port.value(), fromJson<VlanMembershipKey>(key["vid"]).vid()));
}

}  // namespace

const std::vector<FamilyRegistration>& families() {
  static const std::vector<FamilyRegistration> all{
      plainFamily<VlanMembershipFamily>(lookupVlan),
      hashFamily<AclHashFamily>(lookupAcl),
      hashFamily<HashTestFamily>(lookupHashTest),
  };
  return all;
}

}  // namespace VelaAgent
