#include "VelaSwitchTable/VelaTableAclIndirectCounterHash.h"

namespace VelaSwitchTable {

void AclIndirectCounterHashFamily::packMore(const VelaTableHashHelper&, const Key& key,
                                            const Result&, bool valid, CuckooLocation,
                                            RowWriterOf<AclIndirectCounterHashFamily>& row) {
  if (valid) row.set<"keyLow">(key.counterKey());
}

VELA_HASH_FAMILY_NAMED_DEFINE(AclIndirectCounterHashFamily, AclIndirectCounterHashTable,
                              AclIndirectCounterHashConvertor, AclIndirectCounterHashHelper,
                              AclIndirectCounterHashTableCuckooEntry,
                              AclCounterPhysicalHashProperties, AclIndirectCounterHashTableStatus)

}  // namespace VelaSwitchTable
