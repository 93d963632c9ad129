#include "VelaSwitchTable/VelaTableStarG.h"

namespace VelaSwitchTable {

bool StarGFamily::isEntry(const RowReaderOf<StarGFamily>& row, CuckooLocation) {
  const bool valid = row.flag<"valid">();
  const bool multicast = row.flag<"multicast">();
  ORB_ASSERT(!valid || multicast);
  return valid;
}

bool StarGHelper::entryOwned(HwIndex index) const {
  return RowReaderOf<StarGFamily>(layout(), hwRow(index)).flag<"multicast">();
}

VELA_HASH_CLASSES_DEFINE(StarGFamily, StarGTable, StarGHelper, StarGTableCuckooEntry,
                         StarGPhysicalHashProperties, StarGTableStatus)
VELA_MULTICAST_FACTORIES(VELA_FACTORY_DEFINE, StarG, starG)

}  // namespace VelaSwitchTable
