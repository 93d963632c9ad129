#pragma once

#include "VelaSwitch/Keys.h"
#include "VelaSwitchTable/family/HashFamily.h"

namespace VelaSwitchTable {

using AclIndirectCounterHashResult = VelaSwitch::AclIndirectCounterHashResult;
using AclIndirectCounterHashEntryStatus =
    EntryStatusOf<VelaSwitch::AclIndirectCounterHashKey,
                  "VelaSwitchTable::AclIndirectCounterHashEntryStatus">;

/// Which counter an ACL's counter key stands for, in a pipeline's ingress ACL processor.
///
/// The row has no valid bit: one that is all zero is empty. A key below 2048 with index 0 packs to
/// just that, and so cannot be rebuilt from registers; lookups find nothing there.
struct VELA_EXPORT AclIndirectCounterHashFamily
    : HashFamilyTypes<VelaSwitch::AclIndirectCounterHashKey, AclIndirectCounterHashResult,
                      class AclIndirectCounterHashTable, class AclIndirectCounterHashConvertor,
                      class AclIndirectCounterHashHelper,
                      class AclIndirectCounterHashTableCuckooEntry,
                      class AclCounterPhysicalHashProperties,
                      class AclIndirectCounterHashTableStatus, AclIndirectCounterHashEntryStatus> {
  static constexpr const char* sourceUnit = "VelaTableAclIndirectCounterHash";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr const char* decodedText = "Decoded Entry: ";
  static constexpr HashFamilyTraits traits{.index = TableIndex::aclIndirectCounterHash,
                                           .placement = HashPlacement::ownPipeline,
                                           .prefix = "ingress/processor_acl[%d]/",
                                           .rowWords = 7,
                                           .hashBits = 11,
                                           .ways = 2,
                                           .keyBytes = 2,
                                           .hitBits = false,
                                           .staticWord = 5,
                                           .parityWords = 1};

  static U32 tableId(U8 tableIdx) {
    return static_cast<U32>(TableIndex::aclIndirectCounterHash) +
           tableIdx * TableConstants::aclTableStride;
  }
  static U8 dataWords(const VelaSwitch::ProfileInfo&) { return 5; }
  static U8 copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize);
  static U32 hash(const U8* buffer, U8 way, U8 bits);
  static RowLayout layout(const Helper& helper);
  static void pack(const Helper& helper, const Key& key, const Result& result, bool valid,
                   CuckooLocation location, RowWriter& row);
  static void packStatic(const Helper& helper, CuckooLocation location, RowWriter& row);
  static std::optional<std::pair<Key, Result>> unpack(const Helper& helper, const RowReader& row,
                                                      CuckooLocation location);
  static std::vector<U8> impliedBits(const Helper& helper);
  static U8 keyBits(const Helper& helper);
  static void impliedBitsAre(Key& key, U32 bits);
};

VELA_HASH_FAMILY(AclIndirectCounterHashFamily, AclIndirectCounterHashTable,
                 AclIndirectCounterHashConvertor, AclIndirectCounterHashHelper,
                 AclIndirectCounterHashTableCuckooEntry, AclCounterPhysicalHashProperties,
                 AclIndirectCounterHashTableStatus);

}  // namespace VelaSwitchTable
