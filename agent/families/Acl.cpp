#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "VelaSwitchTable/VelaTableAclIndirectCounterHash.h"
#include "VelaSwitchTable/VelaTableHashTest.h"
#include "agent/families/Registrations.h"
#include "device/AclLookup.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

auto lookupHashTest(DataPath& dataPath, U32, const HashTestKey& key) {
  return VelaDevice::hashTest(dataPath, key.value());
}

auto lookupAcl(DataPath& dataPath, U32 instance, const VelaSwitch::AclHashKey& key) {
  return VelaDevice::acl(dataPath, instance, key);
}

auto lookupAclCounter(DataPath& dataPath, U32 instance,
                      const VelaSwitch::AclIndirectCounterHashKey& key) {
  return VelaDevice::aclCounter(dataPath, instance, key.counterKey());
}

void checkAclKey(const AclHashTable&, const VelaSwitch::AclHashKey& key) {
  refuseBeyond("aclId", key.aclId().value(), VelaSwitch::HwAclId::invalid, "ACLs");
  refuseBeyond("type", key.type(), VelaSwitch::AclHashKey::types, "ACL types");
}

}  // namespace

std::vector<FamilyRegistration> aclFamilies() {
  return {hashFamily<AclHashFamily>({lookupOf(lookupAcl)}, 1, {checkAclKey}),
          hashFamily<AclIndirectCounterHashFamily>({lookupOf(lookupAclCounter)}),
          hashFamily<HashTestFamily>({lookupOf(lookupHashTest)})};
}

}  // namespace VelaAgent
