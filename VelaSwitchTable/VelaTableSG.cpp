#include "VelaSwitchTable/VelaTableSG.h"

namespace VelaSwitchTable {

VELA_HASH_FAMILY_DEFINE(SG)
VELA_MULTICAST_FACTORIES(VELA_FACTORY_DEFINE, SG, sG)
VELA_FACTORY_DEFINE(SGConvertor, sGConvertorFactory, (), ())

}  // namespace VelaSwitchTable
