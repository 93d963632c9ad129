#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "VelaSwitchTable/VelaTableAclIndirectCounterHash.h"
#include "VelaSwitchTable/VelaTableHashTest.h"
#include "agent/families/Registrations.h"
#include "device/AclLookup.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

Json lookupHashTest(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(hashTest(dataPath, fromJson<HashTestKey>(key).value()));
}

Json lookupAcl(DataPath& dataPath, U32 instance, const Json& key) {
  return hitToJson(acl(dataPath, instance, fromJson<VelaSwitch::AclHashKey>(key)));
}

Json lookupAclCounter(DataPath& dataPath, U32 instance, const Json& key) {
  const auto counter = fromJson<VelaSwitch::AclIndirectCounterHashKey>(key);
  return hitToJson(aclCounter(dataPath, instance, counter.counterKey()));
}

void checkAclKey(const AclHashTable&, const VelaSwitch::AclHashKey& key) {
  refuseBeyond("aclId", key.aclId().value(), VelaSwitch::HwAclId::invalid, "ACLs");
  refuseBeyond("type", key.type(), VelaSwitch::AclHashKey::types, "ACL types");
}

}  // namespace

std::vector<FamilyRegistration> aclFamilies() {
  return {hashFamily<AclHashFamily>(lookupAcl, 1, {checkAclKey}),
          hashFamily<AclIndirectCounterHashFamily>(lookupAclCounter),
          hashFamily<HashTestFamily>(lookupHashTest)};
}

}  // namespace VelaAgent
