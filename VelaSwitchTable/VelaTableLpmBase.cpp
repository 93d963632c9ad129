#include "VelaSwitchTable/VelaTableLpmBase.h"

#include <bit>

#include "VelaSwitch/Crc.h"
#include "VelaSwitch/Parity.h"
#include "VelaSwitchTable/family/LeftAlignedKey.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::LpmKey;

enum class Row : U8 {
  address,
  vrf,
  valid,
  cell,  ///< The first of four.
  cpuTrap = cell + EntryCellIndex::count,
  parity,
  row,
  way,
  one,
  selector,
  wholeAddress,
  realLength,  ///< The first of four.
};

constexpr Row ofCell(Row first, U8 cell) { return static_cast<Row>(static_cast<U8>(first) + cell); }

constexpr U8 cellBits = 14;
/// In level 29's rows: the mark of a (*,G) entry, one bit below the valid bit.
constexpr U8 multicastBit = 28;

/// Packs the VRF with the address bits below it.
U8 packKey(const LpmKey& key, const LpmLevel& level, U8* buffer, U8 bufSize) {
  const U64 number = U64{key.vrf()} << level.prefixBaseLen |
                     key.prefix().address().number() >> level.ipv4DipShift();
  return packLeftAligned(number, level.keyWidth, buffer, bufSize);
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

U8 LpmBaseFamily::copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize) {
  return packKey(key, lpmLevelOfKey(key.prefix().len()), buffer, bufSize);
}

U32 LpmBaseFamily::hash(const U8* buffer, U8 way, U8 bits) {
  for (const LpmLevel& level : lpmLevels) {
    if (level.keyWidth == bits) return hashKey(buffer, way, bits, level.crcLength);
  }
  return hashKey(buffer, way, bits, 0);
}

RowLayout LpmBaseFamily::layout(const Helper& helper) {
  const U16 addressBits = helper.level().storedAddressBits();
  const U16 valid = helper.storedWidth();
  const auto at = [&](int bits) { return static_cast<U16>(valid + bits); };
  return {{{"address", 0, addressBits},
           {"vrf", addressBits, helper.numVrfBits()},
           {"valid", valid, 1},
           {"cell0", at(1), cellBits},
           {"cell1", at(15), cellBits},
           {"cell2", at(29), cellBits},
           {"cell3", at(43), cellBits},
           {"cpuTrap", at(57), 1},
           {"parity", at(58), 1},
           {"row", 128, 12},
           {"way", 142, 2},
           {"one", 145, 1},
           {"selector", 146, 4},
           {"wholeAddress", 160, 32},
           {"realLength0", 192, 6},
           {"realLength1", 198, 6},
           {"realLength2", 204, 6},
           {"realLength3", 210, 6}},
          traits.rowWords};
}

void LpmBaseFamily::check(const Helper& helper, const Key& key, const Result& result) {
  const U8 prefixBaseLen = helper.level().prefixBaseLen;
  ORB_ASSERT(key.prefix().len() == prefixBaseLen);
  ORB_ASSERT(key.vrf() < helper.profile().vrfs());
  for (const EntryCellResult& cell : result.cells()) checkCell(cell, prefixBaseLen);
}

void LpmBaseFamily::pack(const Helper& helper, const Key& key, const Result& result, bool valid,
                         CuckooLocation, RowWriter& row) {
  const LpmLevel& level = helper.level();
  const U32 address = key.prefix().address().number();
  if (valid) {
    row.set(Row::address, address >> (32 - level.storedAddressBits()));
    row.set(Row::vrf, key.vrf());
    row.set(Row::valid, 1);
    row.set(Row::wholeAddress, address);
  }
  for (U8 i = 0; i < EntryCellIndex::count; ++i) {
    const EntryCellResult& cell = result.cells()[i];
    checkCell(cell, level.prefixBaseLen);
    row.set(ofCell(Row::cell, i),
            cell.hwEncoding(false, level.longest(), helper.profile().hwApi()));
    row.set(ofCell(Row::realLength, i), cell.realPrefixLen());
  }
  row.set(Row::cpuTrap, result.cpuTrap());
  row.set(Row::parity, VelaSwitch::parityU32Array(row.words(), traits.parityWords));
}

void LpmBaseFamily::packStatic(const Helper& helper, CuckooLocation location, RowWriter& row) {
  row.set(Row::row, location.row);
  row.set(Row::way, location.way);
  row.set(Row::one, 1);
  row.set(Row::selector, helper.level().controlSelector);
}

std::optional<std::pair<LpmKey, LpmResult>> LpmBaseFamily::unpack(const Helper& helper,
                                                                  const RowReader& row,
                                                                  CuckooLocation) {
  if (!row.flag(Row::valid)) return std::nullopt;
  const LpmLevel& level = helper.level();
  LpmKey key;
  key.vrf = static_cast<U8>(row.get(Row::vrf));
  const auto address = static_cast<U32>(row.get(Row::address));
  key.prefix = Ipnet::IpPrefix(Ipnet::IpAddr(address << (32 - level.storedAddressBits())),
                               level.prefixBaseLen);
  LpmResult result;
  for (U8 i = 0; i < EntryCellIndex::count; ++i) {
    const auto encoding = static_cast<U32>(row.get(ofCell(Row::cell, i)));
    result.cellResultIs(EntryCellIndex(i),
                        EntryCellResult::fromHwEncoding(encoding, false, level.longest(),
                                                        helper.profile().hwApi()));
  }
  result.cpuTrap = row.flag(Row::cpuTrap);
  return std::pair{key, result};
}

U8 LpmBaseFamily::keyBits(const Helper& helper) { return helper.level().keyWidth; }

std::vector<U8> LpmBaseFamily::impliedBits(const Helper& helper) {
  return lowestOfLeftAligned(helper.level().crcLength, helper.level().keyWidth);
}

void LpmBaseFamily::impliedBitsAre(Key& key, U32 bits) {
  const U8 len = key.prefix().len();
  key.prefix =
      Ipnet::IpPrefix(Ipnet::IpAddr(key.prefix().address().number() | bits << (32 - len)), len);
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
  return static_cast<U32>(level_.hashTableId);
}

bool LpmBaseHelper::entryOwned(HwIndex index) const {
  if (level_.paddedKeyWidth <= multicastBit) return true;
  return bitStreamGet(hwRow(index), multicastBit, multicastBit) == 0;
}

U32 LpmBaseTableCuckooEntry::getHash(U8 way) const {
  U8 buffer[LpmBaseFamily::traits.keyBytes];
  const U8 bits = packKey(key(), level_, buffer, sizeof buffer);
  return hashKey(buffer, way, bits, level_.crcLength);
}

template class HashFamilyTableBase<LpmBaseFamily>;
template class HashFamilyConvertor<LpmBaseFamily>;
template class HashFamilyHelperBase<LpmBaseFamily>;
template class HashFamilyEntry<LpmBaseFamily>;
template class HashFamilyProperties<LpmBaseFamily>;
template class HashFamilyTableStatus<LpmBaseFamily>;
VELA_REGISTERED_DEFINE(LpmBaseTable)
VELA_REGISTERED_DEFINE(LpmBaseConvertor)
VELA_REGISTERED_DEFINE(LpmBaseHelper)
VELA_REGISTERED_DEFINE(LpmBaseTableCuckooEntry)
VELA_REGISTERED_DEFINE(LpmBasePhysicalHashProperties)
VELA_REGISTERED_DEFINE(LpmTableStatus)
VELA_FACTORY_DEFINE(LpmTableStatus, LpmTableStatusIs, (), ())

}  // namespace VelaSwitchTable
