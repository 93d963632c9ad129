#pragma once

#include "VelaSwitchTable/VelaTableLpmTables.h"
#include "VelaSwitchTable/family/MulticastGroup.h"

namespace VelaSwitchTable {

using StarGResult = MulticastResult<"VelaSwitchTable::StarGResult">;

/// Multicast routes of any source: group and VLAN; the source does not count, nor do the group's
/// upper four bits.
///
/// The entries live in the table of the level-29 routes, in rows that a tag bit tells from theirs.
/// The tag is part of what is hashed and compared, so the two kinds never meet in a lookup. The
/// rows are declared by level 29's convertor.
struct VELA_EXPORT StarGFamily : MulticastFamily<StarGFamily, "VelaTableStarG", StarGResult> {
  static constexpr const LpmLevel& level = lpmLevel<29>;
  static constexpr HashFamilyTraits traits = [] {
    HashFamilyTraits own = LpmBaseFamily::traits;
    own.table = {40, "StarG"};
    own.hitTableOffset = 11;
    own.staticWord = -1;
    own.parityWords = 4;
    own.stride = 0;
    own.decodedText = "Decoded valid entry is ";
    own.tracesItems = false;
    return own;
  }();
  static constexpr auto fields(const RowShape& shape) {
    return std::to_array<RowField>({{"compare", 0, 28},
                                    {"multicast", 28, 1},
                                    {"valid", 29, 1},
                                    {"vlanGroupId", 30, 4},
                                    {"portMask", 34, shape.ports + 1},
                                    {"parity", 34 + shape.ports + 1, 1},
                                    {"row", 128, 12},
                                    {"way", 142, 2},
                                    {"one", 145, 1, 1},
                                    {"selector", 146, 4, level.controlSelector},
                                    {"wholeGroup", 160, 32}});
  }
  /// The field of the key that takes no part.
  static constexpr std::string_view unusedKeyField = "source";

  /// Group, VLAN and the tag.
  static constexpr KeyField keyFields[] = {{"group", groupBits}, {"vlanId", 12}, {nullptr, 1, 1}};
  static constexpr auto hash = &VelaSwitch::crc12Hash;
  static bool isEntry(const RowReaderOf<StarGFamily>& row, CuckooLocation);
};
// Routes of the level and these entries are hashed alike, and have their valid bit in one place.
static_assert(groupBits + 12 + 1 == StarGFamily::level.keyWidth);
static_assert(StarGFamily::fields({})[2].first == StarGFamily::level.paddedKeyWidth);

VELA_HASH_CLASSES(StarGFamily, StarGTable, Lpm29Convertor, StarGHelper, StarGTableCuckooEntry,
                  StarGPhysicalHashProperties, StarGTableStatus, StarGEntryStatus);
VELA_MULTICAST_FACTORIES(VELA_FACTORY, StarG, starG);
VELA_CLASS(StarGFamily, StarGTable, HashFamilyTable);

class VELA_EXPORT StarGHelper final : public HashFamilyHelper<StarGFamily> {
 public:
  VELA_REGISTERED(StarGFamily, StarGHelper);
  using HashFamilyHelper::HashFamilyHelper;

  /// Whether the row holds a (*,G) entry rather than a route.
  bool entryOwned(HwIndex index) const override;
};

}  // namespace VelaSwitchTable
