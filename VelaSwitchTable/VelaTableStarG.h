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
  /// The key without the bits that the row implies.
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

VELA_HASH_TEMPLATES(extern, StarGFamily);

class VELA_EXPORT StarGHelper final : public HashFamilyHelper<StarGFamily> {
 public:
  using HashFamilyHelper::HashFamilyHelper;
  VELA_REGISTERED(StarGFamily, StarGHelper);

  /// Whether the row holds a (*,G) entry rather than a route.
  bool entryOwned(HwIndex index) const override;
};

VELA_CLASS(StarGFamily, StarGTable, HashFamilyTable);
VELA_CLASS(StarGFamily, StarGTableCuckooEntry, HashFamilyEntry);
VELA_CLASS(StarGFamily, StarGPhysicalHashProperties, HashFamilyProperties);
VELA_CLASS(StarGFamily, StarGTableStatus, HashFamilyTableStatus);

VELA_HASH_FACTORIES(StarGFamily, StarGTable, StarGHelper, StarGTableCuckooEntry,
                    StarGPhysicalHashProperties, StarGTableStatus);

// The same by their other names.
VELA_FACTORY(StarGTable, starGTableFactory, (const std::string& name));
VELA_FACTORY(StarGHelper, starGHelperFactory, ());
VELA_FACTORY(StarGPhysicalHashProperties, starGPhysicalHashPropertiesFactory, ());
VELA_FACTORY(StarGTableCuckooEntry, starGTableCuckooEntryFactory,
             (const VelaSwitch::MrouteKey& key));
VELA_FACTORY(StarGTableStatus, starGTableStatusFactory, ());

}  // namespace VelaSwitchTable
