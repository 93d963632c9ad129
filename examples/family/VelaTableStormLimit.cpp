#include "VelaTableStormLimit.h"

namespace VelaSwitchTable {

VELA_PLAIN_FAMILY_DEFINE(StormLimit, Layer2All)

}  // namespace VelaSwitchTable
