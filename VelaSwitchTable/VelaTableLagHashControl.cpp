#include "VelaSwitchTable/VelaTableLagHashControl.h"

namespace VelaSwitchTable {

std::string LagHashControlResult::resultString() const {
  return Orb::text("useVlanId:", useVlanId(), " useSipAndDip:", useSipAndDip(),
                   " hasSeed:", hashSeed());
}

VELA_PLAIN_FAMILY_DEFINE(LagHashControl, Layer3)

}  // namespace VelaSwitchTable
