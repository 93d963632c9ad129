#include "VelaSwitchTable/VelaTableRxPortMirror.h"

namespace VelaSwitchTable {

VELA_PLAIN_FAMILY_DEFINE(RxPortMirror, Layer2All)

}  // namespace VelaSwitchTable
