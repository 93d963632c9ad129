#include "VelaSwitchTable/VelaTableAclIndirectCounterHash.h"

#include <numeric>

#include "VelaSwitch/Crc.h"
#include "VelaSwitch/Parity.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::AclIndirectCounterHashKey;

enum class Row : U8 { keyHigh, counterIndex, parity, row, way, zeros, one, counter, keyLow };

constexpr U8 keyWidth = 16;
/// Low key bits, which the row implies.
constexpr U8 impliedKeyBits = AclIndirectCounterHashFamily::traits.hashBits;

constexpr VelaSwitchApi::RowField fields[] = {
    {"keyHigh", 0, keyWidth - impliedKeyBits},
    {"counterIndex", 5, 12},
    {"parity", 17, 1},
    {"row", 160, 11},
    {"way", 171, 1},
    {"zeros", 173, 2},
    {"one", 175, 1},
    {"counter", 178, 1},  // 1 here, 0 in the processor's ACL table
    {"keyLow", 192, impliedKeyBits},
};
static_assert(VelaSwitchApi::wellFormed(fields, AclIndirectCounterHashFamily::traits.rowWords));

}  // namespace

U8 AclIndirectCounterHashFamily::copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize) {
  VelaSwitchApi::KeyWriter packed;
  packed.set(0, keyWidth, key.counterKey());
  packed.copyTo(buffer, bufSize);
  return keyWidth;
}

U32 AclIndirectCounterHashFamily::hash(const U8* buffer, U8 way, U8 bits) {
  return VelaSwitch::crc11Hash(buffer, way, bits);
}

RowLayout AclIndirectCounterHashFamily::layout(const Helper&) {
  return {{std::begin(fields), std::end(fields)}, traits.rowWords};
}

void AclIndirectCounterHashFamily::pack(const Helper&, const Key& key, const Result& result,
                                        bool valid, CuckooLocation, RowWriter& row) {
  if (!valid) return;
  row.set(Row::keyHigh, key.counterKey() >> impliedKeyBits);
  row.set(Row::counterIndex, result.counterIndex());
  row.set(Row::parity, VelaSwitch::parity32Bit(row.words()[0]));
  row.set(Row::keyLow, key.counterKey());
}

void AclIndirectCounterHashFamily::packStatic(const Helper& helper, CuckooLocation location,
                                              RowWriter& row) {
  ORB_ASSERT_TEXT(helper.swTable(), "swTable()");
  row.set(Row::row, location.row);
  row.set(Row::way, location.way);
  row.set(Row::zeros, 0);
  row.set(Row::one, 1);
  row.set(Row::counter, 1);
}

std::optional<std::pair<AclIndirectCounterHashKey, AclIndirectCounterHashResult>>
AclIndirectCounterHashFamily::unpack(const Helper& helper, const RowReader& row, CuckooLocation) {
  ORB_ASSERT_TEXT(helper.swTable(), "swTable()");
  if (row.words()[0] == 0) return std::nullopt;
  const auto index = static_cast<U16>(row.get(Row::counterIndex));
  return std::pair{Key{static_cast<U16>(row.get(Row::keyHigh) << impliedKeyBits)}, Result{index}};
}

std::vector<U8> AclIndirectCounterHashFamily::impliedBits(const Helper&) {
  std::vector<U8> bits(impliedKeyBits);
  std::iota(bits.begin(), bits.end(), U8{0});
  return bits;
}

U8 AclIndirectCounterHashFamily::keyBits(const Helper&) { return keyWidth; }

void AclIndirectCounterHashFamily::impliedBitsAre(Key& key, U32 bits) {
  key.counterKey = static_cast<U16>(key.counterKey() | bits);
}

VELA_HASH_FAMILY_DEFINE(AclIndirectCounterHashFamily, AclIndirectCounterHashTable,
                        AclIndirectCounterHashConvertor, AclIndirectCounterHashHelper,
                        AclIndirectCounterHashTableCuckooEntry, AclCounterPhysicalHashProperties,
                        AclIndirectCounterHashTableStatus)

}  // namespace VelaSwitchTable
