#include "VelaSwitchTable/VelaTableVlanGroup.h"

namespace VelaSwitchTable {

std::vector<PlainHwTable> VlanGroupFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  const auto mapping = Orb::make<VelaSwitchApi::HwTableRegisterMappingRange>("VlanGroup");
  for (U32 processor = 0; processor < egressProcessors(profile); ++processor) {
    mapping->regsIs(processor * groups,
                    regAddresses(regPrefix("egress/processor[%d]/", processor), memoryRegisters()));
  }
  return {{.id = 0,
           .last = egressProcessors(profile) * groups - 1,
           .rowWords = traits.rowWords,
           .mapping = mapping}};
}

void VlanGroupFamily::packMore(const PlainRowContext&, const Key& key, const Result& result,
                               RowWriterOf<VlanGroupFamily>& row) {
  for (U8 pair = 0; pair < memoryPairs; ++pair) {
    setMemoryData(row, pair, result.vlanIds()[2 * pair].value(),
                  result.vlanIds()[2 * pair + 1].value());
    row.set(ofPair(MemoryField::memoryRow, pair), key.group() * memoryPairs + pair);
  }
}

RowSays VlanGroupFamily::unpackMore(const PlainRowContext&, const Key&,
                                    const RowReaderOf<VlanGroupFamily>& row, Result& result) {
  if (!memorySound(row)) return RowSays::unsound;
  for (U8 pair = 0; pair < memoryPairs; ++pair) {
    for (const U8 odd : {U8{0}, U8{1}}) {
      const auto field = odd ? MemoryField::high : MemoryField::low;
      result.vlanIds.value[2 * pair + odd] = Bridging::VlanIdOrNone(row.get(ofPair(field, pair)));
    }
  }
  return RowSays::result;
}

VELA_PLAIN_FAMILY_DEFINE(VlanGroup, Layer3)

}  // namespace VelaSwitchTable
