#include "VelaTableTunnel.h"

namespace VelaSwitchTable {

VELA_HASH_FAMILY_DEFINE(Tunnel)

}  // namespace VelaSwitchTable
