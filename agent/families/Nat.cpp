#include "VelaSwitchTable/VelaTableNatDynMatch.h"
#include "VelaSwitchTable/VelaTableNatMatch.h"
#include "VelaSwitchTable/VelaTableNatRewrite.h"
#include "agent/families/Registrations.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

Json lookupNatMatch(DataPath& dataPath, U32 instance, const Json& key) {
  return hitToJson(dataPath.natMatch(instance, fromJson<VelaSwitch::NatMatchKey>(key)));
}

Json lookupNatDynMatch(DataPath& dataPath, U32 instance, const Json& key) {
  return hitToJson(dataPath.natDynMatch(instance, fromJson<VelaSwitch::NatMatchKey>(key)));
}

Json lookupNatRewrite(DataPath& dataPath, U32, const Json& key) {
  const auto at = fromJson<VelaSwitch::NatRewriteKey>(key);
  return hitToJson(dataPath.natRewrite(at.baseChipPortId().value(), at.rewriteIndex()));
}

}  // namespace

std::vector<FamilyRegistration> natFamilies() {
  return {hashFamily<NatMatchFamily>(lookupNatMatch, 2),
          hashFamily<NatDynMatchFamily>(lookupNatDynMatch, 2),
          indexedFamily<NatRewriteFamily>(lookupNatRewrite)};
}

}  // namespace VelaAgent
