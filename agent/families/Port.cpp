#include "VelaSwitchTable/VelaTableL2Control.h"
#include "VelaSwitchTable/VelaTableLagGroup.h"
#include "VelaSwitchTable/VelaTableLagHashControl.h"
#include "VelaSwitchTable/VelaTableLagLookUp.h"
#include "VelaSwitchTable/VelaTableLagMembership.h"
#include "VelaSwitchTable/VelaTableNativeVlan.h"
#include "VelaSwitchTable/VelaTablePortConfig.h"
#include "VelaSwitchTable/VelaTableRxPortMirror.h"
#include "agent/families/Registrations.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

/// Lookups of what a port's row says.
template <auto lookup>
Json lookupPort(DataPath& dataPath, U32, const Json& key) {
  return hitToJson((dataPath.*lookup)(fromJson<VelaSwitch::ChipPortId>(key).value()));
}

}  // namespace

std::vector<FamilyRegistration> portFamilies() {
  return {
      indexedFamily<NativeVlanFamily>(lookupPort<&DataPath::nativeVlan>),
      indexedFamily<PortConfigFamily>(lookupPort<&DataPath::portConfig>),
      indexedFamily<L2ControlFamily>(lookupPort<&DataPath::l2Control>),
      indexedFamily<LagGroupFamily>(lookupPort<&DataPath::lagGroup>),
      indexedFamily<LagLookUpFamily>(lookupPort<&DataPath::lagLookUp>),
      indexedFamily<LagMembershipFamily>(lookupPort<&DataPath::lagMembership>),
      indexedFamily<LagHashControlFamily>(lookupPort<&DataPath::lagHashControl>),
      indexedFamily<RxPortMirrorFamily>(lookupPort<&DataPath::rxPortMirror>),
  };
}

}  // namespace VelaAgent
