#pragma once

#include "Orb/Types.h"

namespace VelaSwitchTable {

/// Numbers of the tables, as hardware names them. The ACL processors' tables have the numbers 45
/// and 46 and, for each further processor, those twelve higher; all others stay clear of them.
enum class TableIndex : U8 {
  hashTest = 1,
  lpm32 = 10,
  lpm29 = 11,
  lpm26 = 12,
  lpm23 = 13,
  lpm20 = 14,
  lpm17 = 15,
  lpm14 = 16,
  sg = 18,
  natMatch = 22,
  natDynMatch = 28,
  starG = 40,
  aclIndirectCounterHash = 45,
  aclHash = 46,
  lpm11 = 90,
  l3FloodArp = 91,
  l3FloodBitmap = 92,
  l3Lag = 95,
  natRewrite = 96,
  vlanMembership = 100,
  nativeVlan = 101,
  portConfig = 102,
  l2Control = 103,
  lagHashControl = 104,
  floodSet = 114,
  lagGroup = 115,
  lagLookUp = 107,
  lagMembership = 108,
  copp = 109,
  vlanGroup = 110,
  macVlan = 111,
  rxPortMirror = 112,
  protocolRemap = 113,
};

struct TableConstants {
  /// The table's name, such as "AclHash". A number that no table has is a fatal assertion.
  VELA_EXPORT static const char* tableName(TableIndex index);

  /// The ACL processors' tables repeat at this distance, one of each kind per processor.
  static constexpr U8 aclTableStride = 12;
  /// The ACL hash table of a processor.
  static constexpr U8 aclHashTableId(U8 tableIdx) {
    return static_cast<U8>(static_cast<U8>(TableIndex::aclHash) + tableIdx * aclTableStride);
  }
  /// Whether the number is that of the ACL hash table of one of so many processors.
  static constexpr bool isAclHashTableId(U8 index, U32 processors) {
    constexpr U8 first = static_cast<U8>(TableIndex::aclHash);
    return index >= first && (index - first) % aclTableStride == 0 &&
           aclTableIdx(index) < processors;
  }
  /// The processor whose ACL hash table has the number.
  static constexpr U8 aclTableIdx(U8 index) {
    return static_cast<U8>((index - static_cast<U8>(TableIndex::aclHash)) / aclTableStride);
  }
};

}  // namespace VelaSwitchTable
