#pragma once

#include "VelaSwitchTable/family/HashFamily.h"

namespace VelaSwitchTable {

/// A key that carries its own hashes: bits 0 to 2 name its row in way 0, bits 3 to 5 in way 1.
struct HashTestKey {
  static constexpr const char* typeName = "VelaSwitchTable::HashTestKey";
  static constexpr bool scalar = true;
  Orb::Field<"value", U32> value;  ///< All 32 bits are compared.
  auto operator<=>(const HashTestKey&) const = default;
};

/// What hardware keeps for a key of the test table.
struct HashTestResult {
  static constexpr const char* typeName = "VelaSwitchTable::HashTestResult";
  static constexpr bool scalar = true;
  Orb::Field<"result", U32> result;  ///< Whatever the test likes.
  auto operator<=>(const HashTestResult&) const = default;
};

/// A table of two ways of eight rows whose keys choose their rows, so that placement, moves,
/// read-back and hit bits can be driven at will. No CRC is involved.
///
/// The row has no valid bit. An empty one holds a key that belongs elsewhere, so that no key that
/// is looked up there can meet it.
struct VELA_EXPORT HashTestFamily : Family<"VelaTableHashTest", HashTestKey, HashTestResult> {
  static constexpr HashFamilyTraits traits{.table = {1, "HashTest"},
                                           .placement = HashPlacement::once,
                                           .prefix = "pipeline[%d]/processor/",
                                           .rowWords = 3,
                                           .dataWords = 2,
                                           .hashBits = 3,
                                           .ways = 2,
                                           .hitBits = true,
                                           .hitTableOffset = 1,
                                           .stride = 0};
  static constexpr RowField fields[] = {
      {"key", 0, 32}, {"result", 32, 32}, {"row", 64, 12}, {"way", 78, 1}, {"one", 79, 1, 1}};

  static constexpr KeyField keyFields[] = {{"value", 32}};
  static U32 hash(const U8* buffer, U8 way, U8 bits);
  static bool isEntry(const RowReaderOf<HashTestFamily>& row, CuckooLocation location);
  static void packMore(const VelaTableHashHelper&, const Key&, const Result&, bool valid,
                       CuckooLocation location, RowWriterOf<HashTestFamily>& row);
};

VELA_HASH_CLASSES(HashTestFamily, HashTestTable, HashConvertorTestTable, HashTestHelper,
                  HashTestTableCuckooEntry, HashTestPhysicalHashProperties, TestTableStatus,
                  TestEntryStatus);
VELA_HASH_CONVERTOR(VELA_DECLARE, HashTestFamily, HashConvertorTestTable);
VELA_HASH_CONVERTOR(VELA_WHOLE, HashTestFamily, HashConvertorTestTable);
VELA_CLASS(HashTestFamily, HashTestHelper, HashFamilyHelper);

class VELA_EXPORT HashTestTable final : public HashFamilyTable<HashTestFamily> {
 public:
  VELA_REGISTERED(HashTestFamily, HashTestTable);
  using HashFamilyTable::HashFamilyTable;

  /// The text form of the key's result; empty when it has none.
  std::string resultString(const HashTestKey& key) const;
};

}  // namespace VelaSwitchTable
