#include "VelaSwitchTable/VelaTableAclIndirectCounterHash.h"

namespace VelaSwitchTable {

bool AclIndirectCounterHashFamily::unpackKey(KeyBits bits,
                                             const RowReaderOf<AclIndirectCounterHashFamily>&,
                                             Key& key) {
  key.counterKey = static_cast<U16>(bits.take(16));
  return true;
}

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
