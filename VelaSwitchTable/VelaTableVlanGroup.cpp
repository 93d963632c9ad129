#include "VelaSwitchTable/VelaTableVlanGroup.h"

#include "VelaSwitch/Parity.h"

namespace VelaSwitchTable {
namespace {

/// The fields of the first pair of words; those of the other three follow in the same order.
enum class Row : U8 { even, odd, parity, memoryRow, one };
constexpr U8 fieldsPerPair = 5;
constexpr U8 pairs = VlanGroupResult::maxVlans / 2;
constexpr U8 rowWords = 2 * pairs;

constexpr Row ofPair(Row field, U8 pair) {
  return static_cast<Row>(static_cast<U8>(field) + pair * fieldsPerPair);
}

}  // namespace

std::vector<PlainHwTable> VlanGroupFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  const auto mapping = Orb::make<VelaSwitchApi::HwTableRegisterMappingRange>("VlanGroup");
  for (U32 processor = 0; processor < egressProcessors(profile); ++processor) {
    std::vector<std::string> registers;
    for (U8 pair = 0; pair < pairs; ++pair) {
      registers.push_back("lum_data");
      registers.push_back("lum_ctl_addr_data");
    }
    mapping->regsIs(processor * groups,
                    regAddresses(regPrefix("egress/processor[%d]/", processor), registers));
  }
  PlainHwTable table{.id = 0,
                     .suffix = "",
                     .first = 0,
                     .last = egressProcessors(profile) * groups - 1,
                     .rowWords = rowWords};
  table.mapping = mapping;
  return {table};
}

VelaSwitchApi::RowLayout VlanGroupFamily::layout(const VelaSwitch::ProfileInfo&, U32) {
  static constexpr const char* names[] = {"vlanId[0]", "vlanId[1]", "vlanId[2]", "vlanId[3]",
                                          "vlanId[4]", "vlanId[5]", "vlanId[6]", "vlanId[7]"};
  std::vector<VelaSwitchApi::RowField> fields;
  for (U8 pair = 0; pair < pairs; ++pair) {
    const auto at = [&](U32 bit) { return static_cast<U16>(pair * 64 + bit); };
    fields.push_back({names[2 * pair], at(0), 12});
    fields.push_back({names[2 * pair + 1], at(16), 12});
    fields.push_back({"parity", at(35), 1});
    fields.push_back({"memoryRow", at(36), 10});
    fields.push_back({"one", at(46), 1});
  }
  return {std::move(fields), rowWords};
}

void VlanGroupFamily::pack(const PlainRowContext&, const Key& key, const Result& result,
                           VelaSwitchApi::RowWriter& row) {
  for (U8 pair = 0; pair < pairs; ++pair) {
    row.set(ofPair(Row::even, pair), result.vlanIds()[2 * pair].value());
    row.set(ofPair(Row::odd, pair), result.vlanIds()[2 * pair + 1].value());
    row.set(ofPair(Row::parity, pair), VelaSwitch::parity32Bit(row.words()[2 * pair]));
    row.set(ofPair(Row::memoryRow, pair), key.group() * pairs + pair);
    row.set(ofPair(Row::one, pair), 1);
  }
}

RowSays VlanGroupFamily::unpack(const PlainRowContext&, const Key&,
                                const VelaSwitchApi::RowReader& row, Result& result) {
  for (U8 pair = 0; pair < pairs; ++pair) {
    const U32 parity = VelaSwitch::parity32Bit(row.words()[2 * pair]);
    if (row.get(ofPair(Row::parity, pair)) != parity) return RowSays::unsound;
    result.vlanIds.value[2 * pair] = Bridging::VlanIdOrNone(row.get(ofPair(Row::even, pair)));
    result.vlanIds.value[2 * pair + 1] = Bridging::VlanIdOrNone(row.get(ofPair(Row::odd, pair)));
  }
  return RowSays::result;
}

VELA_PLAIN_FAMILY_DEFINE(VlanGroupFamily, VlanGroupTable, VlanGroupConvertor,
                         VlanGroupConvertorLayer3)

}  // namespace VelaSwitchTable
