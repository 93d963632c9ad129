#include "VelaSwitchTable/VelaTableL2Control.h"

namespace VelaSwitchTable {

VELA_PLAIN_FAMILY_DEFINE(L2Control, Layer2All)

}  // namespace VelaSwitchTable
