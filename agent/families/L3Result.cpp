#include "VelaSwitchTable/VelaTableL3FloodArp.h"
#include "VelaSwitchTable/VelaTableL3FloodBitmap.h"
#include "VelaSwitchTable/VelaTableL3Lag.h"
#include "agent/families/Registrations.h"
#include "device/RouteLookup.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

template <class Key, auto find>
auto lookupRow(DataPath& dataPath, U32, const Key& key) {
  return find(dataPath, key.value());
}

}  // namespace

std::vector<FamilyRegistration> l3ResultFamilies() {
  return {
      indexedFamily<L3FloodArpFamily>(
          {lookupOf(lookupRow<VelaSwitch::L3FloodId, VelaDevice::l3FloodArp>)}),
      indexedFamily<L3FloodBitmapFamily>(
          {lookupOf(lookupRow<VelaSwitch::L3FloodId, VelaDevice::l3FloodBitmap>)}),
      indexedFamily<L3LagFamily>({lookupOf(lookupRow<VelaSwitch::L3LagIndex, VelaDevice::l3Lag>)})};
}

}  // namespace VelaAgent
