#pragma once

#include "VelaSwitch/Crc.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitchTable/family/ProcessorTraits.h"

namespace VelaSwitchTable {

using AclIndirectCounterHashResult = VelaSwitch::AclIndirectCounterHashResult;

/// Which counter an ACL's counter key stands for, in a pipeline's ingress ACL processor.
///
/// The row has no valid bit: one that is all zero is empty. A key below 2048 with index 0 packs to
/// just that, and so cannot be rebuilt from registers; lookups find nothing there.
struct VELA_EXPORT AclIndirectCounterHashFamily
    : Family<"VelaTableAclIndirectCounterHash", VelaSwitch::AclIndirectCounterHashKey,
             AclIndirectCounterHashResult> {
  static constexpr HashFamilyTraits traits = aclTraits({.table = {45, "AclIndirectCounterHash"},
                                                        .dataWords = 5,
                                                        .rowImpliesKey = true,
                                                        .parityWords = 1});
  static constexpr RowField fields[] = {
      {"keyHigh", 0, 5},   {"counterIndex", 5, 12}, {"parity", 17, 1},
      {"row", 160, 11},    {"way", 171, 1},         {"zeros", 173, 2, 0},
      {"one", 175, 1, 1},  {"counter", 178, 1, 1},  // 1 here, 0 in the processor's ACL table
      {"keyLow", 192, 11},
  };

  static constexpr KeyField keyFields[] = {{"counterKey", 16}};
  static constexpr auto hash = &VelaSwitch::crc11Hash;
  static bool isEntry(const RowReaderOf<AclIndirectCounterHashFamily>& row, CuckooLocation) {
    return row.words()[0] != 0;
  }
  static void packMore(const VelaTableHashHelper&, const Key& key, const Result&, bool valid,
                       CuckooLocation, RowWriterOf<AclIndirectCounterHashFamily>& row) {
    if (valid) row.set<"keyLow">(key.counterKey());
  }
};

VELA_HASH_FAMILY_NAMED(AclIndirectCounterHashFamily, AclIndirectCounterHashTable,
                       AclIndirectCounterHashConvertor, AclIndirectCounterHashHelper,
                       AclIndirectCounterHashTableCuckooEntry, AclCounterPhysicalHashProperties,
                       AclIndirectCounterHashTableStatus, AclIndirectCounterHashEntryStatus);

}  // namespace VelaSwitchTable
