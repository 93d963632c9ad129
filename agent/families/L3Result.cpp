#include "VelaSwitchTable/VelaTableL3FloodArp.h"
#include "VelaSwitchTable/VelaTableL3FloodBitmap.h"
#include "VelaSwitchTable/VelaTableL3Lag.h"
#include "agent/families/Registrations.h"
#include "device/RouteLookup.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

Json lookupL3FloodArp(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(l3FloodArp(dataPath, fromJson<VelaSwitch::L3FloodId>(key).value()));
}

Json lookupL3FloodBitmap(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(l3FloodBitmap(dataPath, fromJson<VelaSwitch::L3FloodId>(key).value()));
}

Json lookupL3Lag(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(l3Lag(dataPath, fromJson<VelaSwitch::L3LagIndex>(key).value()));
}

}  // namespace

std::vector<FamilyRegistration> l3ResultFamilies() {
  return {indexedFamily<L3FloodArpFamily>(lookupL3FloodArp),
          indexedFamily<L3FloodBitmapFamily>(lookupL3FloodBitmap),
          indexedFamily<L3LagFamily>(lookupL3Lag)};
}

}  // namespace VelaAgent
