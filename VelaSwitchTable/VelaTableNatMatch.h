#pragma once

#include "VelaSwitch/Keys.h"
#include "VelaSwitchTable/family/HashFamily.h"

namespace VelaSwitchTable {

/// What becomes of a packet whose address is translated.
struct NatMatchResult {
  static constexpr const char* typeName = "VelaSwitchTable::NatMatchResult";
  Orb::Field<"valid", bool> valid;  ///< Whether the row answers lookups.
  /// Protocol class to rewrite as, 0 to 3. Others cannot be encoded and become 0.
  Orb::Field<"proto", U8> proto;
  Orb::Field<"natRewriteId", U16, 12> natRewriteId;
  Orb::Field<"useAcl", bool> useAcl;  ///< Whether the ACL is asked as well.
  Orb::Field<"trapToCpu", bool> trapToCpu;
  Orb::Field<"l3LagIndex", VelaSwitch::L3LagIndex> l3LagIndex;
  Orb::Field<"rewriteIndex", U8, 6> rewriteIndex;
  auto operator<=>(const NatMatchResult&) const = default;
};

using NatMatchEntryStatus =
    EntryStatusOf<VelaSwitch::NatMatchKey, "VelaSwitchTable::NatMatchEntryStatus">;

/// Static translations, by one address and, for the kinds that translate ports, one port. What the
/// kind does not match takes no part in the key: two keys that differ in that alone are one to
/// hardware. Ports of the address-only kinds must be 0; others are a fatal assertion.
///
/// The table does not declare hit bits, yet records hits.
struct VELA_EXPORT NatMatchFamily
    : HashFamilyTypes<VelaSwitch::NatMatchKey, NatMatchResult, class NatMatchTable,
                      class NatMatchConvertor, class NatMatchHelper, class NatMatchTableCuckooEntry,
                      class NatMatchPhysicalHashProperties, class NatMatchTableStatus,
                      NatMatchEntryStatus> {
  static constexpr const char* sourceUnit = "VelaTableNatMatch";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr const char* decodedText = "Decoded entry is ";
  static constexpr HashFamilyTraits traits{.index = TableIndex::natMatch,
                                           .placement = HashPlacement::everyPipeline,
                                           .prefix = "ingress/processor_l4[%d]/",
                                           .rowWords = 6,
                                           .hashBits = 12,
                                           .ways = 3,
                                           .keyBytes = 8,
                                           .hitBits = false,
                                           .hitTableOffset = static_cast<U32>(TableIndex::natMatch),
                                           .staticWord = 4,
                                           .parityWords = 4};

  /// Two tables share one physical table.
  static U32 tableId(U8 tableIdx) { return static_cast<U32>(TableIndex::natMatch) + tableIdx / 2; }
  static U32 instance(U8 tableIdx) { return tableIdx / 2 * 2; }
  static U8 dataWords(const VelaSwitch::ProfileInfo&) { return 4; }
  static U8 copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize);
  /// What is hashed behind the address.
  static U64 compareEncoding(const Key& key);
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

VELA_HASH_FAMILY(NatMatchFamily, NatMatchTable, NatMatchConvertor, NatMatchHelper,
                 NatMatchTableCuckooEntry, NatMatchPhysicalHashProperties, NatMatchTableStatus);

}  // namespace VelaSwitchTable
