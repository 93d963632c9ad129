#include "VelaSwitchTable/VelaTableL3FloodBitmap.h"

namespace VelaSwitchTable {

VELA_DIRECT_FAMILY_DEFINE(L3FloodBitmap)

}  // namespace VelaSwitchTable
