#include "VelaSwitchTable/VelaTableHashTest.h"

#include <cstring>

namespace VelaSwitchTable {
namespace {

enum class Row : U8 { key, result, row, way, one };

constexpr U8 rowWords = HashTestFamily::traits.rowWords;
constexpr U8 hashBits = HashTestFamily::traits.hashBits;
constexpr U32 hashMask = (1u << hashBits) - 1;

constexpr VelaSwitchApi::RowField fields[] = {
    {"key", 0, 32}, {"result", 32, 32}, {"row", 64, 12}, {"way", 78, 1}, {"one", 79, 1},
};
static_assert(VelaSwitchApi::wellFormed(fields, rowWords));

constexpr U32 rowInWay(U32 key, U8 way) { return key >> (hashBits * way) & hashMask; }

}  // namespace

U8 HashTestFamily::copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize) {
  const U32 value = key.value();
  ORB_ASSERT(bufSize >= 4);
  std::memcpy(buffer, &value, sizeof value);
  return 32;
}

U32 HashTestFamily::hash(const U8* buffer, U8 way, U8) {
  U32 value;
  std::memcpy(&value, buffer, sizeof value);
  return rowInWay(value, way);
}

RowLayout HashTestFamily::layout(const Helper&) {
  return {{std::begin(fields), std::end(fields)}, rowWords};
}

void HashTestFamily::pack(const Helper&, const Key& key, const Result& result, bool valid,
                          CuckooLocation location, RowWriter& row) {
  // The row has no valid bit. An empty one holds a key that belongs elsewhere, so that no key that
  // is looked up here can meet it.
  row.set(Row::key, valid ? key.value() : ~(location.row << (hashBits * location.way)));
  row.set(Row::result, result.result());
}

void HashTestFamily::packStatic(const Helper&, CuckooLocation location, RowWriter& row) {
  row.set(Row::row, location.row);
  row.set(Row::way, location.way);
  row.set(Row::one, 1);
}

std::optional<std::pair<HashTestKey, HashTestResult>> HashTestFamily::unpack(
    const Helper&, const RowReader& row, CuckooLocation location) {
  const auto key = static_cast<U32>(row.get(Row::key));
  if (!row.flag(Row::one) || row.get(Row::row) != location.row ||
      row.get(Row::way) != location.way || rowInWay(key, location.way) != location.row) {
    return std::nullopt;
  }
  return std::pair{HashTestKey{key}, HashTestResult{static_cast<U32>(row.get(Row::result))}};
}

std::string HashTestTable::resultString(const HashTestKey& key) const {
  const HashTestResult* result = entry(key);
  return result ? Orb::text(*result) : std::string();
}

VELA_HASH_FAMILY_DEFINE(HashTestFamily, HashTestTable, HashConvertorTestTable, HashTestHelper,
                        HashTestTableCuckooEntry, HashTestPhysicalHashProperties, TestTableStatus)

}  // namespace VelaSwitchTable
