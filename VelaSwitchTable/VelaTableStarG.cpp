#include "VelaSwitchTable/VelaTableStarG.h"

namespace VelaSwitchTable {

void StarGFamily::packKey(const Key& key, KeyBits& bits) {
  bits.add(groupBits, key.group().number());
  bits.add(12, key.vlanId().value());
  bits.add(1, 1);
  // Routes of the level and these entries are hashed alike, and have their valid bit in one place.
  static_assert(groupBits + 12 + 1 == level.keyWidth);
  static_assert(fields({})[2].first == level.paddedKeyWidth);
}

bool StarGFamily::unpackKey(KeyBits bits, const RowReaderOf<StarGFamily>& row, Key& key) {
  const bool multicast = row.flag<"multicast">();
  const bool valid = row.flag<"valid">();
  ORB_ASSERT(!valid || multicast);
  key.group = groupOf(bits.take(groupBits), row.get<"wholeGroup">());
  key.vlanId = Bridging::VlanIdOrNone(bits.take(12));
  return true;
}

void StarGFamily::packMore(const VelaTableHashHelper&, const Key& key, const Result&, bool valid,
                           CuckooLocation, RowWriterOf<StarGFamily>& row) {
  if (valid) row.set<"wholeGroup">(key.group().number());
}

bool StarGHelper::entryOwned(HwIndex index) const {
  return RowReaderOf<StarGFamily>(layout(), hwRow(index)).flag<"multicast">();
}

VELA_HASH_CLASSES_DEFINE(StarGFamily, StarGTable, StarGHelper, StarGTableCuckooEntry,
                         StarGPhysicalHashProperties, StarGTableStatus)
VELA_MULTICAST_FACTORIES_DEFINE(StarG, starG)

}  // namespace VelaSwitchTable
