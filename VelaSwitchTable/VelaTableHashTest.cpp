#include "VelaSwitchTable/VelaTableHashTest.h"

#include <cstring>

namespace VelaSwitchTable {
namespace {

constexpr U8 hashBits = HashTestFamily::traits.hashBits;

constexpr U32 rowInWay(U32 key, U8 way) { return key >> (hashBits * way) & ((1u << hashBits) - 1); }

}  // namespace

U32 HashTestFamily::hash(const U8* buffer, U8 way, U8) {
  U32 value;
  std::memcpy(&value, buffer, sizeof value);
  return rowInWay(value, way);
}

bool HashTestFamily::isEntry(const RowReaderOf<HashTestFamily>& row, CuckooLocation location) {
  return row.flag<"one">() && row.get<"row">() == location.row &&
         row.get<"way">() == location.way &&
         rowInWay(static_cast<U32>(row.get<"key">()), location.way) == location.row;
}

void HashTestFamily::packMore(const VelaTableHashHelper&, const Key&, const Result&, bool valid,
                              CuckooLocation location, RowWriterOf<HashTestFamily>& row) {
  if (!valid) row.set<"key">(~(location.row << (hashBits * location.way)));
}

std::string HashTestTable::resultString(const HashTestKey& key) const {
  const HashTestResult* result = entry(key);
  return result ? Orb::text(*result) : std::string();
}

VELA_HASH_FAMILY_NAMED_DEFINE(HashTestFamily, HashTestTable, HashConvertorTestTable, HashTestHelper,
                              HashTestTableCuckooEntry, HashTestPhysicalHashProperties,
                              TestTableStatus)

}  // namespace VelaSwitchTable
