#include "VelaSwitchTable/VelaTableLpm11.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::LpmKey;
using VelaSwitch::ProfileInfo;

/// Address bits behind the key.
constexpr U8 addressShift = 32 - Lpm11Family::keyLength;
/// A mask length is stored as what it lacks to this, modulo 16, so that 0 can stand for none.
constexpr U8 maskComplement = 12;
constexpr U8 maskField = 15;

}  // namespace

HwIndex Lpm11Family::hwIndex(const Key& key) {
  ORB_ASSERT(key.prefix().len() == 11);
  return key.vrf() * rowsPerVrf + (key.prefix().address().number() >> addressShift);
}

LpmKey Lpm11Family::keyOf(HwIndex index) {
  return {static_cast<U8>(index / rowsPerVrf),
          Ipnet::IpPrefix(Ipnet::IpAddr(index % rowsPerVrf << addressShift), keyLength)};
}

void Lpm11Family::sample(const VelaSwitchApi::SwTable& table, U64 bits, const Key&,
                         Result& result) {
  EntryCellResult& cell = result.cellResult.value;
  cell = cellOf(cell.nexthopIndexes(), static_cast<U8>(bits % (keyLength + 1)));
  if (otherFormat(table.profile())) cell.maskLength = MaskLength(cell.realPrefixLen());
}

void Lpm11Family::packMore(const ProfileInfo& profile, const Result& result,
                           RowWriterOf<Lpm11Family>& row) {
  const EntryCellResult& cellResult = result.cellResult();
  if (cellResult.valid()) ORB_ASSERT(cellResult.realPrefixLen() <= 11);
  row.set<"cell">(cellResult.hwEncoding(true, keyLength, profile.hwApi()));
  row.set<"zeros">(0);
  const U8 mask = cellResult.maskLength().value();
  if (mask != MaskLength::null) {
    row.set<"mask">(static_cast<U32>(maskComplement - mask) & maskField);
  }
  row.set<"realLength">(cellResult.realPrefixLen());
}

void Lpm11Family::unpackMore(const ProfileInfo& profile, const RowReaderOf<Lpm11Family>& row,
                             Result& result) {
  EntryCellResult& cell = result.cellResult.value;
  cell = EntryCellResult::fromHwEncoding(static_cast<U32>(row.get<"cell">()), true, keyLength,
                                         profile.hwApi());
  cell.realPrefixLen = static_cast<U8>(row.get<"realLength">());
  const U64 mask = row.get<"mask">();
  if (mask == 0) return;
  cell.maskLength = MaskLength((maskComplement - mask) & maskField);
  // The field can mean more than any route of the level has.
  if (cell.realPrefixLen() == 0) {
    cell.realPrefixLen = std::min(cell.maskLength().value(), keyLength);
  }
}

VELA_DIRECT_FAMILY_DEFINE(Lpm11)

VELA_FACTORY_DEFINE(Lpm11Table, lpm11TableFactory, (const std::string& name), (name))
VELA_FACTORY_DEFINE(Lpm11Convertor, lpm11ConvertorFactory, (), ())
VELA_FACTORY_DEFINE(Lpm11Entry, lpm11EntryFactory, (const LpmKey& key), (key))

}  // namespace VelaSwitchTable
