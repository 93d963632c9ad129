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

/// A family of ports, looked up by what a port's row says.
template <class Family, auto find>
FamilyRegistration portFamily() {
  using Key = typename Family::Key;
  return indexedFamily<Family>({lookupBy<Key>([](DataPath& dataPath, U32, const Key& key) {
    return find(dataPath, key.portId().value());
  })});
}

}  // namespace

std::vector<FamilyRegistration> portFamilies() {
  return {
      portFamily<NativeVlanFamily, VelaDevice::nativeVlan>(),
      portFamily<PortConfigFamily, VelaDevice::portConfig>(),
      portFamily<L2ControlFamily, VelaDevice::l2Control>(),
      portFamily<LagGroupFamily, VelaDevice::lagGroup>(),
      portFamily<LagLookUpFamily, VelaDevice::lagLookUp>(),
      portFamily<LagMembershipFamily, VelaDevice::lagMembership>(),
      portFamily<LagHashControlFamily, VelaDevice::lagHashControl>(),
      portFamily<RxPortMirrorFamily, VelaDevice::rxPortMirror>(),
  };
}

}  // namespace VelaAgent
