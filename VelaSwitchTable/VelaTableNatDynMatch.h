#pragma once

#include "VelaSwitch/Keys.h"
#include "VelaSwitchTable/family/HashFamily.h"

namespace VelaSwitchTable {

/// What becomes of a packet of a translated connection.
struct NatDynMatchResult {
  static constexpr const char* typeName = "VelaSwitchTable::NatDynMatchResult";
  Orb::Field<"valid", bool> valid;  ///< Whether the row answers lookups.
  /// Protocol class to rewrite as, 0 to 3. Others cannot be encoded and become 0.
  Orb::Field<"proto", U8> proto;
  Orb::Field<"natRewriteId", U16, 12> natRewriteId;
  Orb::Field<"trapToCpu", bool> trapToCpu;
  Orb::Field<"l3LagIndex", VelaSwitch::L3LagIndex> l3LagIndex;
  Orb::Field<"rewriteIndex", U8, 6> rewriteIndex;
  auto operator<=>(const NatDynMatchResult&) const = default;
};

using NatDynMatchEntryStatus =
    EntryStatusOf<VelaSwitch::NatMatchKey, "VelaSwitchTable::NatDynMatchEntryStatus">;

/// Dynamic translations, by the whole connection. The kind takes no part in the key but comes back
/// from the row; the qualifier takes no part at all.
///
/// The table does not declare hit bits, yet records hits.
struct VELA_EXPORT NatDynMatchFamily
    : HashFamilyTypes<VelaSwitch::NatMatchKey, NatDynMatchResult, class NatDynMatchTable,
                      class NatDynMatchConvertor, class NatDynMatchHelper,
                      class NatDynMatchTableCuckooEntry, class NatDynMatchPhysicalHashProperties,
                      class NatDynMatchTableStatus, NatDynMatchEntryStatus> {
  static constexpr const char* sourceUnit = "VelaTableNatDynMatch";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr const char* decodedText = "Decoded entry is ";
  static constexpr HashFamilyTraits traits{
      .index = TableIndex::natDynMatch,
      .placement = HashPlacement::everyPipeline,
      .prefix = "ingress/processor_l4[%d]/",
      .rowWords = 6,
      .hashBits = 10,
      .ways = 4,
      .keyBytes = 13,
      .hitBits = false,
      .hitTableOffset = static_cast<U32>(TableIndex::natDynMatch),
      .staticWord = 4,
      .parityWords = 4};

  static U32 tableId(U8 tableIdx) { return static_cast<U32>(TableIndex::natDynMatch) + tableIdx; }
  static U8 dataWords(const VelaSwitch::ProfileInfo&) { return 4; }
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

VELA_HASH_FAMILY(NatDynMatchFamily, NatDynMatchTable, NatDynMatchConvertor, NatDynMatchHelper,
                 NatDynMatchTableCuckooEntry, NatDynMatchPhysicalHashProperties,
                 NatDynMatchTableStatus);

}  // namespace VelaSwitchTable
