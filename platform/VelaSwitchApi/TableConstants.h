#pragma once

#include "Orb/Types.h"

namespace VelaSwitchTable {

/// A table's number, as hardware names it, and its name, such as "AclHash". Every family has its
/// own. The ACL processors' tables have the numbers 45 and 46 and, for each further processor,
/// those twelve higher; all others stay clear of them.
struct TableIdentity {
  U32 number;        ///< Fits a TableIndex; no two are alike.
  const char* name;  ///< A literal.
};

/// A table's number alone.
enum class TableIndex : U8 {};

/// Makes a family's table known by its number, for as long as the program runs.
class VELA_EXPORT TableRegistration {
 public:
  explicit TableRegistration(TableIdentity table);  ///< The name must be a literal.
};

/// Tables by their numbers.
struct TableConstants {
  /// The name of a table whose family is loaded. A number that no table has is a fatal assertion.
  VELA_EXPORT static const char* tableName(TableIndex index);

  /// The ACL processors' tables repeat at this distance, one of each kind per processor.
  static constexpr U8 aclTableStride = 12;
  /// The ACL hash table of the first processor.
  static constexpr U8 firstAclHashTable = 46;
  /// The ACL hash table of a processor.
  static constexpr U8 aclHashTableId(U8 tableIdx) {
    return static_cast<U8>(firstAclHashTable + tableIdx * aclTableStride);
  }
  /// Whether the number is that of the ACL hash table of one of so many processors.
  static constexpr bool isAclHashTableId(U8 index, U32 processors) {
    return index >= firstAclHashTable && (index - firstAclHashTable) % aclTableStride == 0 &&
           aclTableIdx(index) < processors;
  }
  /// The processor whose ACL hash table has the number.
  static constexpr U8 aclTableIdx(U8 index) {
    return static_cast<U8>((index - firstAclHashTable) / aclTableStride);
  }
};

}  // namespace VelaSwitchTable
