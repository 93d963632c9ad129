#include "VelaSwitchTable/VelaTableLpmBase.h"

#include <bit>

namespace VelaSwitchTable {
namespace {

using VelaSwitch::LpmKey;
using Writer = RowWriterOf<LpmBaseFamily>;
using Reader = RowReaderOf<LpmBaseFamily>;

/// In level 29's rows: the mark of a (*,G) entry, one bit below the valid bit.
constexpr U8 multicastBit = 28;

void packLevelKey(const LpmKey& key, const LpmLevel& level, KeyBits& bits) {
  bits.add(level.prefixBaseLen, key.prefix().address().number() >> level.ipv4DipShift());
  bits.add(static_cast<U8>(level.keyWidth - level.prefixBaseLen), key.vrf());
}

/// The level whose hashed keys have so many bits, or null.
const LpmLevel* levelOfWidth(U8 bits) {
  const auto level = std::find_if(lpmLevels.begin(), lpmLevels.end(),
                                  [&](const LpmLevel& each) { return each.keyWidth == bits; });
  return level == lpmLevels.end() ? nullptr : &*level;
}

U32 hashKey(const U8* buffer, U8 way, U8 bits, U8 crcLength) {
  if (crcLength == 12) return VelaSwitch::crc12Hash(buffer, way, bits);
  if (crcLength == 10) return VelaSwitch::crc10Hash(buffer, way, bits);
  LpmBaseFamily::trace(0, "Unsupported crc length ", crcLength);
  ORB_ASSERT(false);
  return 0;
}

void checkCell(const EntryCellResult& cell, U8 prefixLen) {
  if (!cell.valid()) return;
  const U8 realPrefixLen = cell.realPrefixLen();
  constexpr U8 prefixRange = LpmLevel::prefixRange;
  ORB_ASSERT(realPrefixLen >= prefixLen);
  ORB_ASSERT(realPrefixLen <= prefixLen + prefixRange);
}

}  // namespace

const LpmLevel& lpmLevelOfKey(U8 prefixLen) {
  constexpr U8 step = LpmLevel::prefixRange + 1;
  const unsigned level = (prefixLen - lpmLevels[0].prefixBaseLen) / step;
  ORB_ASSERT_TEXT(level < lpmLevels.size() && lpmLevels[level].prefixBaseLen == prefixLen,
                  "key.prefix().len() == prefixBaseLen");
  return lpmLevels[level];
}

void LpmBaseFamily::packKey(const Key& key, KeyBits& bits) {
  packLevelKey(key, lpmLevelOfKey(key.prefix().len()), bits);
}

void LpmBaseFamily::sample(const LpmBaseHelper& helper, U64 bits, Key& key, Result& result) {
  constexpr int turn = 17;  // No two cells are alike.
  const U8 base = helper.level().prefixBaseLen;
  key.prefix = Ipnet::IpPrefix(Ipnet::IpAddr(static_cast<U32>(bits)), base);
  for (EntryCellResult& cell : result.cells.value) {
    bits = std::rotl(bits, turn);
    const auto nexthop = VelaSwitch::NexthopIndexes::fromRaw(static_cast<U32>(bits));
    const U64 beyond = bits % (LpmLevel::prefixRange + 1);
    if (nexthop.valid()) cell = cellOf(nexthop, static_cast<U8>(base + beyond));
  }
}

U32 LpmBaseFamily::hash(const U8* buffer, U8 way, U8 bits) {
  const LpmLevel* level = levelOfWidth(bits);
  return hashKey(buffer, way, bits, level ? level->crcLength : U8{0});
}

const VelaSwitch::CrcTables<U64>* LpmBaseFamily::crc(U8 bits) {
  const LpmLevel* level = levelOfWidth(bits);
  if (!level) return nullptr;
  return level->crcLength == 12 ? &VelaSwitch::crc12Tables : &VelaSwitch::crc10Tables;
}

bool LpmBaseFamily::unpackKey(KeyBits bits, const Reader& row, Key& key) {
  const LpmLevel& level = *levelOfWidth(bits.bits());
  const auto address = static_cast<U32>(bits.take(level.prefixBaseLen) << level.ipv4DipShift());
  key.prefix = Ipnet::IpPrefix(Ipnet::IpAddr(address), level.prefixBaseLen);
  // The row has fewer bits of it than are hashed.
  key.vrf = static_cast<U8>(row.get<"vrf">());
  return true;
}

LpmBaseFamily::Shape LpmBaseFamily::shape(const LpmBaseHelper& helper) {
  return {helper.level(), helper.numVrfBits(), helper.storedWidth()};
}

void LpmBaseFamily::check(const LpmBaseHelper& helper, const Key& key, const Result& result) {
  const U8 prefixBaseLen = helper.level().prefixBaseLen;
  ORB_ASSERT(key.prefix().len() == prefixBaseLen);
  ORB_ASSERT(key.vrf() < helper.profile().vrfs());
  for (const EntryCellResult& cell : result.cells()) checkCell(cell, prefixBaseLen);
}

void LpmBaseFamily::packMore(const LpmBaseHelper& helper, const Key& key, const Result& result,
                             bool valid, CuckooLocation, Writer& row) {
  const LpmLevel& level = helper.level();
  if (valid) row.set<"wholeAddress">(key.prefix().address().number());
  constexpr std::size_t cell0 = fieldNumber<LpmBaseFamily, "cell0">();
  constexpr std::size_t length0 = fieldNumber<LpmBaseFamily, "realLength0">();
  U64 cells = 0;
  U64 lengths = 0;
  for (U8 i = 0; i < EntryCellIndex::count; ++i) {
    const EntryCellResult& cell = result.cells()[i];
    checkCell(cell, level.prefixBaseLen);
    const U64 encoding = cell.hwEncoding(false, level.longest(), helper.profile().hwApi());
    cells |= encoding << i * cellBits;
    lengths |= U64{cell.realPrefixLen()} % (1u << realLengthBits) << i * realLengthBits;
  }
  if (row.setAdjacent(cell0, cells) && row.setAdjacent(length0, lengths)) return;
  for (U8 i = 0; i < EntryCellIndex::count; ++i) {
    row.set(cell0 + i, cells >> i * cellBits);
    row.set(length0 + i, lengths >> i * realLengthBits);
  }
}

void LpmBaseFamily::unpackMore(const LpmBaseHelper& helper, const Reader& row, Result& result) {
  for (U8 i = 0; i < EntryCellIndex::count; ++i) {
    const auto encoding = static_cast<U32>(row.get(fieldNumber<LpmBaseFamily, "cell0">() + i));
    result.cellResultIs(EntryCellIndex(i),
                        EntryCellResult::fromHwEncoding(encoding, false, helper.level().longest(),
                                                        helper.profile().hwApi()));
  }
}

LpmKey LpmBaseTable::nullKey() const {
  return {U8{0}, Ipnet::IpPrefix(Ipnet::IpAddr(), prefixBaseLen())};
}

U8 LpmBaseTable::numVrfBits() const {
  const U32 vrfs = profile().vrfs();
  ORB_ASSERT_TEXT(vrfs == 4 || vrfs == 8 || vrfs == 32, "Unsupported number of VRFs ");
  return static_cast<U8>(std::countr_zero(vrfs));
}

U32 LpmBaseConvertor::physicalTableId(const VelaSwitchApi::PhysicalHashProperties&) const {
  return level_.table.number;
}

bool LpmBaseHelper::entryOwned(HwIndex index) const {
  if (level_.paddedKeyWidth <= multicastBit) return true;
  return bitStreamGet(hwRow(index), multicastBit, multicastBit) == 0;
}

U32 LpmBaseTableCuckooEntry::getHash(U8 way) const {
  KeyBits key;
  packLevelKey(this->key(), level(), key);
  U8 buffer[KeyBits::maxBytes];
  const U8 bits = fillKeyBuffer<LpmBaseFamily>(key, buffer, sizeof buffer);
  return hashKey(buffer, way, bits, level().crcLength);
}

template class HashFamilyTableBase<LpmBaseFamily>;
template class HashFamilyHelperBase<LpmBaseFamily>;
template class HashFamilyEntry<LpmBaseFamily>;
template class HashFamilyProperties<LpmBaseFamily>;
VELA_REGISTERED_DEFINE(LpmBaseTable)
VELA_REGISTERED_DEFINE(LpmBaseConvertor)
VELA_REGISTERED_DEFINE(LpmBaseHelper)
VELA_REGISTERED_DEFINE(LpmBaseTableCuckooEntry)
VELA_REGISTERED_DEFINE(LpmBasePhysicalHashProperties)
VELA_DEFINE(LpmBaseFamily, TableStatus, LpmTableStatus, HashFamilyTableStatus, (), ())

}  // namespace VelaSwitchTable
