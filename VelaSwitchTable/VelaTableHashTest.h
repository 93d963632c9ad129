#pragma once

#include "VelaSwitchTable/family/HashFamily.h"

namespace VelaSwitchTable {

/// A key that carries its own hashes: bits 0 to 2 name its row in way 0, bits 3 to 5 in way 1.
struct HashTestKey {
  static constexpr const char* typeName = "VelaSwitchTable::HashTestKey";
  static constexpr bool scalar = true;
  Orb::Field<"value", U32> value;
  auto operator<=>(const HashTestKey&) const = default;
};

struct HashTestResult {
  static constexpr const char* typeName = "VelaSwitchTable::HashTestResult";
  static constexpr bool scalar = true;
  Orb::Field<"result", U32> result;
  auto operator<=>(const HashTestResult&) const = default;
};

using TestEntryStatus = EntryStatusOf<HashTestKey, "VelaSwitchTable::TestEntryStatus">;

/// A table of two ways of eight rows whose keys choose their rows, so that placement, moves,
/// read-back and hit bits can be driven at will. No CRC is involved.
struct VELA_EXPORT HashTestFamily
    : HashFamilyTypes<HashTestKey, HashTestResult, class HashTestTable,
                      class HashConvertorTestTable, class HashTestHelper,
                      class HashTestTableCuckooEntry, class HashTestPhysicalHashProperties,
                      class TestTableStatus, TestEntryStatus> {
  static constexpr const char* sourceUnit = "VelaTableHashTest";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr const char* decodedText = "Decoded entry is ";
  static constexpr HashFamilyTraits traits{.index = TableIndex::hashTest,
                                           .placement = HashPlacement::once,
                                           .prefix = "pipeline[%d]/processor/",
                                           .rowWords = 3,
                                           .hashBits = 3,
                                           .ways = 2,
                                           .keyBytes = 4,
                                           .hitBits = true,
                                           .hitTableOffset = 1};

  static U32 tableId(U8) { return static_cast<U32>(TableIndex::hashTest); }
  static U8 dataWords(const VelaSwitch::ProfileInfo&) { return 2; }
  static U8 copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize);
  static U32 hash(const U8* buffer, U8 way, U8 bits);
  static RowLayout layout(const Helper& helper);
  static void pack(const Helper& helper, const Key& key, const Result& result, bool valid,
                   CuckooLocation location, RowWriter& row);
  static void packStatic(const Helper& helper, CuckooLocation location, RowWriter& row);
  static std::optional<std::pair<Key, Result>> unpack(const Helper& helper, const RowReader& row,
                                                      CuckooLocation location);
};

VELA_HASH_TEMPLATES(extern, HashTestFamily);
extern template class HashFamilyConvertor<HashTestFamily>;

class VELA_EXPORT HashTestTable final : public HashFamilyTable<HashTestFamily> {
 public:
  VELA_REGISTERED(HashTestFamily, HashTestTable);
  using HashFamilyTable::HashFamilyTable;

  /// The text form of the key's result; empty when it has none.
  std::string resultString(const HashTestKey& key) const;
};

VELA_CLASS(HashTestFamily, HashConvertorTestTable, HashFamilyConvertor);
VELA_CLASS(HashTestFamily, HashTestHelper, HashFamilyHelper);
VELA_CLASS(HashTestFamily, HashTestTableCuckooEntry, HashFamilyEntry);
VELA_CLASS(HashTestFamily, HashTestPhysicalHashProperties, HashFamilyProperties);
VELA_CLASS(HashTestFamily, TestTableStatus, HashFamilyTableStatus);

VELA_FACTORY(HashConvertorTestTable, HashConvertorTestTableIs, ());
VELA_HASH_FACTORIES(HashTestFamily, HashTestTable, HashTestHelper, HashTestTableCuckooEntry,
                    HashTestPhysicalHashProperties, TestTableStatus);

}  // namespace VelaSwitchTable
