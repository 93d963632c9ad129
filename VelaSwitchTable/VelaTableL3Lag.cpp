#include "VelaSwitchTable/VelaTableL3Lag.h"

namespace VelaSwitchTable {

VELA_DIRECT_FAMILY_DEFINE(L3Lag)

}  // namespace VelaSwitchTable
