#include "VelaSwitchTable/VelaTableAclIndirectCounterHash.h"

namespace VelaSwitchTable {

void AclIndirectCounterHashFamily::packMore(const VelaTableHashHelper&, const Key& key,
                                            const Result&, bool valid, CuckooLocation,
                                            RowWriterOf<AclIndirectCounterHashFamily>& row) {
  if (valid) row.set<"keyLow">(key.counterKey());
}

VELA_HASH_CLASSES_DEFINE(AclIndirectCounterHashFamily, AclIndirectCounterHashTable,
                         AclIndirectCounterHashHelper, AclIndirectCounterHashTableCuckooEntry,
                         AclCounterPhysicalHashProperties, AclIndirectCounterHashTableStatus)
VELA_HASH_CONVERTOR_DEFINE(AclIndirectCounterHashConvertor)

}  // namespace VelaSwitchTable
