#pragma once

#include "VelaSwitch/PortMask.h"
#include "VelaSwitchTable/VelaTableLpmTables.h"

namespace VelaSwitchTable {

/// Who gets a copy of a multicast packet.
struct StarGResult {
  static constexpr const char* typeName = "VelaSwitchTable::StarGResult";
  Orb::Field<"vlanGroupId", U8, 4> vlanGroupId;
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;
  auto operator<=>(const StarGResult&) const = default;
};

using StarGEntryStatus = EntryStatusOf<VelaSwitch::MrouteKey, "VelaSwitchTable::StarGEntryStatus">;

/// Multicast routes of any source: group and VLAN; the source does not count, nor do the group's
/// upper four bits.
///
/// The entries live in the table of the level-29 routes, in rows that a tag bit tells from theirs.
/// The tag is part of what is hashed and compared, so the two kinds never meet in a lookup.
struct VELA_EXPORT StarGFamily
    : HashFamilyTypes<VelaSwitch::MrouteKey, StarGResult, class StarGTable, Lpm29Convertor,
                      class StarGHelper, class StarGTableCuckooEntry,
                      class StarGPhysicalHashProperties, class StarGTableStatus, StarGEntryStatus> {
  static constexpr const char* sourceUnit = "VelaTableStarG";
  static inline Trace::Handle trace{sourceUnit};
  static constexpr const char* decodedText = "Decoded valid entry is ";
  /// The rows are declared by level 29's convertor.
  static constexpr HashFamilyTraits traits{.index = TableIndex::starG,
                                           .placement = HashPlacement::everyPipeline,
                                           .prefix = LpmBaseFamily::traits.prefix,
                                           .rowWords = 7,
                                           .hashBits = 12,
                                           .ways = 2,
                                           .keyBytes = 6,
                                           .hitBits = true,
                                           .hitTableOffset = static_cast<U32>(TableIndex::lpm29),
                                           .parityWords = 4};

  /// The field of the key that takes no part.
  static constexpr std::string_view unusedKeyField = "source";

  static U32 tableId(U8) { return static_cast<U32>(TableIndex::starG); }
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

class VELA_EXPORT StarGTable final : public HashFamilyTable<StarGFamily> {
 public:
  static constexpr const char* typeName = "VelaSwitchTable::StarGTable";
  using HashFamilyTable::HashFamilyTable;
};

class VELA_EXPORT StarGHelper final : public HashFamilyHelper<StarGFamily> {
 public:
  using HashFamilyHelper::HashFamilyHelper;
  /// Whether the row holds a (*,G) entry rather than a route.
  bool entryOwned(HwIndex index) const override;
};

class VELA_EXPORT StarGTableCuckooEntry final : public HashFamilyEntry<StarGFamily> {
 public:
  static constexpr const char* shortName = "StarGTableCuckooEntry";
  using HashFamilyEntry::HashFamilyEntry;
  /// The key without the bits that the row implies.
  U64 hwCompareEncoding() const;
};

class VELA_EXPORT StarGPhysicalHashProperties final : public HashFamilyProperties<StarGFamily> {
 public:
  using HashFamilyProperties::HashFamilyProperties;
};

class VELA_EXPORT StarGTableStatus final : public HashFamilyTableStatus<StarGEntryStatus> {};

VELA_EXPORT Orb::Ptr<StarGTable> StarGTableIs(const std::string& name);
VELA_EXPORT Orb::Ptr<StarGHelper> StarGHelperIs();
VELA_EXPORT Orb::Ptr<StarGPhysicalHashProperties> starGPhysicalHashPropertiesFactory();
VELA_EXPORT Orb::Ptr<StarGTableStatus> starGTableStatusFactory();
VELA_EXPORT Orb::Ptr<StarGTableCuckooEntry> starGTableCuckooEntryFactory(
    StarGTable* table, const VelaSwitch::MrouteKey& key);

}  // namespace VelaSwitchTable
