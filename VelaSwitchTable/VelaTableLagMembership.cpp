#include "VelaSwitchTable/VelaTableLagMembership.h"

namespace VelaSwitchTable {

VELA_PLAIN_FAMILY_DEFINE(LagMembership, Layer2All)

}  // namespace VelaSwitchTable
