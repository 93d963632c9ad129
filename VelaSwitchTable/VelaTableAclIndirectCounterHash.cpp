#include "VelaSwitchTable/VelaTableAclIndirectCounterHash.h"

namespace VelaSwitchTable {

VELA_HASH_FAMILY_NAMED_DEFINE(AclIndirectCounterHashFamily, AclIndirectCounterHashTable,
                              AclIndirectCounterHashConvertor, AclIndirectCounterHashHelper,
                              AclIndirectCounterHashTableCuckooEntry,
                              AclCounterPhysicalHashProperties, AclIndirectCounterHashTableStatus)

}  // namespace VelaSwitchTable
