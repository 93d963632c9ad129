#include "VelaSwitchTable/VelaTableL2Control.h"
#include "VelaSwitchTable/VelaTableLagGroup.h"
#include "VelaSwitchTable/VelaTableLagHashControl.h"
#include "VelaSwitchTable/VelaTableLagLookUp.h"
#include "VelaSwitchTable/VelaTableLagMembership.h"
#include "VelaSwitchTable/VelaTableNativeVlan.h"
#include "VelaSwitchTable/VelaTablePortConfig.h"
#include "VelaSwitchTable/VelaTableRxPortMirror.h"
#include "agent/families/Registrations.h"
#include "device/PortLookup.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

/// Lookups of what a port's row says.
template <auto lookup>
Json lookupPort(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(lookup(dataPath, fromJson<VelaSwitch::ChipPortId>(key).value()));
}

}  // namespace

std::vector<FamilyRegistration> portFamilies() {
  return {
      indexedFamily<NativeVlanFamily>(lookupPort<VelaDevice::nativeVlan>),
      indexedFamily<PortConfigFamily>(lookupPort<VelaDevice::portConfig>),
      indexedFamily<L2ControlFamily>(lookupPort<VelaDevice::l2Control>),
      indexedFamily<LagGroupFamily>(lookupPort<VelaDevice::lagGroup>),
      indexedFamily<LagLookUpFamily>(lookupPort<VelaDevice::lagLookUp>),
      indexedFamily<LagMembershipFamily>(lookupPort<VelaDevice::lagMembership>),
      indexedFamily<LagHashControlFamily>(lookupPort<VelaDevice::lagHashControl>),
      indexedFamily<RxPortMirrorFamily>(lookupPort<VelaDevice::rxPortMirror>),
  };
}

}  // namespace VelaAgent
