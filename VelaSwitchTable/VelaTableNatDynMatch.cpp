#include "VelaSwitchTable/VelaTableNatDynMatch.h"

namespace VelaSwitchTable {

VELA_HASH_FAMILY_DEFINE(NatDynMatch)

}  // namespace VelaSwitchTable
