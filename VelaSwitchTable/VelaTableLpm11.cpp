#include "VelaSwitchTable/VelaTableLpm11.h"

#include "VelaSwitch/Parity.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::LpmKey;
using VelaSwitch::ProfileHwApi;
using VelaSwitch::ProfileInfo;
using VelaSwitchApi::RowField;

enum class Row : U8 { cell, zeros, valid, cpuTrap, parity, mask, index, control, realLength };

constexpr U8 imageWords = Lpm11Family::traits.rowWords;
/// Fixed content of the control word.
constexpr U32 controlValue = 15;
/// Address bits behind the key.
constexpr U8 addressShift = 32 - Lpm11Family::keyLength;
/// A mask length is stored as what it lacks to this, modulo 16, so that 0 can stand for none.
constexpr U8 maskComplement = 12;
constexpr U8 maskField = 15;
constexpr U8 cellBits = 12;

constexpr std::array<RowField, 9> rowFields(bool maskStored) {
  return {{{"cell", 0, cellBits},
           {"zeros", 13, static_cast<U16>(maskStored ? 0 : 2)},
           {"valid", 12, 1},
           {"cpuTrap", static_cast<U16>(maskStored ? 13 : 15), 1},
           {"parity", static_cast<U16>(maskStored ? 14 : 16), 1},
           {"mask", 15, static_cast<U16>(maskStored ? 4 : 0)},
           {"index", 32, 16},
           {"control", 49, 5},
           {"realLength", 64, 6}}};
}
static_assert(VelaSwitchApi::wellFormed(rowFields(false), imageWords));
static_assert(VelaSwitchApi::wellFormed(rowFields(true), imageWords));

bool storesMask(const ProfileInfo& profile) { return profile.hwApi() >= ProfileHwApi{5u, 1u}; }

}  // namespace

HwIndex Lpm11Family::hwIndex(const Key& key) {
  ORB_ASSERT(key.prefix().len() == 11);
  return key.vrf() * rowsPerVrf + (key.prefix().address().number() >> addressShift);
}

LpmKey Lpm11Family::keyOf(HwIndex index) {
  return {static_cast<U8>(index / rowsPerVrf),
          Ipnet::IpPrefix(Ipnet::IpAddr(index % rowsPerVrf << addressShift), keyLength)};
}

RowLayout Lpm11Family::layout(const ProfileInfo& profile) {
  const auto fields = rowFields(storesMask(profile));
  return {{fields.begin(), fields.end()}, imageWords};
}

void Lpm11Family::pack(const ProfileInfo& profile, const Key&, const Result& result, bool valid,
                       RowWriter& row) {
  const EntryCellResult& cellResult = result.cellResult();
  if (cellResult.valid()) ORB_ASSERT(cellResult.realPrefixLen() <= 11);
  row.set(Row::cell, cellResult.hwEncoding(true, keyLength, profile.hwApi()));
  // The encoding is 15 bits wide; what else stands in the upper three comes later.
  row.set(Row::zeros, 0);
  if (storesMask(profile)) row.set(Row::parity, 0);
  row.set(Row::valid, valid);
  row.set(Row::cpuTrap, result.cpuTrap());
  const U8 mask = cellResult.maskLength().value();
  if (mask != MaskLength::null) {
    row.set(Row::mask, static_cast<U32>(maskComplement - mask) & maskField);
  }
  row.set(Row::parity, VelaSwitch::parityU32Array(row.words(), 1));
  row.set(Row::realLength, cellResult.realPrefixLen());
}

void Lpm11Family::packStatic(HwIndex index, RowWriter& row) {
  row.set(Row::index, index);
  row.set(Row::control, controlValue);
}

std::optional<std::pair<Lpm11Result, bool>> Lpm11Family::unpack(const ProfileInfo& profile,
                                                                const RowReader& row) {
  if (VelaSwitch::parityU32Array(row.words(), 1) != 0) return std::nullopt;
  EntryCellResult cell = EntryCellResult::fromHwEncoding(static_cast<U32>(row.get(Row::cell)), true,
                                                         keyLength, profile.hwApi());
  cell.realPrefixLen = static_cast<U8>(row.get(Row::realLength));
  if (const U64 mask = row.get(Row::mask); mask != 0) {
    cell.maskLength = MaskLength((maskComplement - mask) & maskField);
    if (cell.realPrefixLen() == 0) {
      // The field can mean more than any route of the level has.
      cell.realPrefixLen = std::min(cell.maskLength().value(), keyLength);
    }
  }
  return std::pair{Lpm11Result{cell, row.flag(Row::cpuTrap)}, row.flag(Row::valid)};
}

VELA_DIRECT_FAMILY_DEFINE(Lpm11Family, Lpm11Table, Lpm11Convertor, Lpm11Entry)

VELA_FACTORY_DEFINE(Lpm11Table, lpm11TableFactory, (const std::string& name), (name))
VELA_FACTORY_DEFINE(Lpm11Convertor, lpm11ConvertorFactory, (), ())
VELA_FACTORY_DEFINE(Lpm11Entry, lpm11EntryFactory, (const LpmKey& key), (key))

}  // namespace VelaSwitchTable
