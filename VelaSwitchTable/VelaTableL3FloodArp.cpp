#include "VelaSwitchTable/VelaTableL3FloodArp.h"

#include "VelaSwitch/Parity.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::L3FloodId;
using VelaSwitch::parity32Bit;

/// Flood ids with a row; the last of the type stands for none.
constexpr U32 floodIds = L3FloodId::null;

/// The fields of the first pair of words; those of the other three follow in the same order.
enum class Row : U8 { data, vlanId, parity, memoryRow, one };
constexpr U8 fieldsPerPair = 5;
constexpr U8 pairs = 4;

constexpr Row ofPair(Row field, U8 pair) {
  return static_cast<Row>(static_cast<U8>(field) + pair * fieldsPerPair);
}
/// Pairs 0 and 1 hold the head of the address, 2 and 3 its tail with the VLAN.
constexpr bool isHead(U8 pair) { return pair < 2; }

/// The memory row of a pair for flood id 0; each flood id has two rows in each copy.
constexpr U32 firstMemoryRow[pairs] = {128, 640, 129, 641};
constexpr U32 memoryRows = 1024;

constexpr U8 headBits = 32;
constexpr U8 tailBits = 16;

}  // namespace

U32 L3FloodArpFamily::rows(const VelaSwitch::ProfileInfo&) { return floodIds; }

HwIndex L3FloodArpFamily::hwIndex(const Key& key) { return key.value(); }

L3FloodId L3FloodArpFamily::keyOf(HwIndex index) { return L3FloodId(index & 0xff); }

RowLayout L3FloodArpFamily::layout(const VelaSwitch::ProfileInfo&) {
  std::vector<VelaSwitchApi::RowField> fields;
  for (U8 pair = 0; pair < pairs; ++pair) {
    const auto at = [&](U32 bit) { return static_cast<U16>(pair * 64 + bit); };
    if (isHead(pair)) {
      fields.push_back({"ethAddrHead", at(0), headBits});
      fields.push_back({"vlanId", at(0), 0});
    } else {
      fields.push_back({"ethAddrTail", at(16), tailBits});
      fields.push_back({"vlanId", at(0), 16});
    }
    fields.push_back({"parity", at(35), 1});
    fields.push_back({"memoryRow", at(36), 10});
    fields.push_back({"one", at(46), 1});
  }
  return {std::move(fields), traits.rowWords};
}

void L3FloodArpFamily::pack(const VelaSwitch::ProfileInfo&, const Key&, const Result& result, bool,
                            RowWriter& row) {
  const U64 address = result.ethAddr().number();
  for (U8 pair = 0; pair < pairs; ++pair) {
    row.set(ofPair(Row::data, pair), isHead(pair) ? address >> tailBits : address);
    if (!isHead(pair)) row.set(ofPair(Row::vlanId, pair), result.vlanId().value());
    row.set(ofPair(Row::parity, pair), parity32Bit(row.words()[2 * pair]));
  }
}

void L3FloodArpFamily::packStatic(HwIndex index, RowWriter& row) {
  for (U8 pair = 0; pair < pairs; ++pair) {
    row.set(ofPair(Row::memoryRow, pair), (2 * index + firstMemoryRow[pair]) % memoryRows);
    row.set(ofPair(Row::one, pair), 1);
  }
}

std::optional<std::pair<L3FloodArpResult, bool>> L3FloodArpFamily::unpack(
    const VelaSwitch::ProfileInfo&, const RowReader& row) {
  for (U8 pair = 0; pair < pairs; ++pair) {
    const U32 parity = parity32Bit(row.words()[2 * pair]);
    if (row.get(ofPair(Row::parity, pair)) != parity) return std::nullopt;
  }
  Result result;
  result.ethAddr =
      Bridging::EthAddr(row.get(ofPair(Row::data, 0)) << tailBits | row.get(ofPair(Row::data, 2)));
  result.vlanId = Bridging::VlanIdOrNone(row.get(ofPair(Row::vlanId, 2)));
  return std::pair{result, result != Result{}};
}

void L3FloodArpFamily::describe(Orb::TextSink& sink, const Result& result) {
  sink.append("mac:");
  appendText(sink, result.ethAddr());
  sink.append(" vid:");
  appendText(sink, result.vlanId());
}

VELA_DIRECT_FAMILY_DEFINE(L3FloodArpFamily, L3FloodArpTable, L3FloodArpConvertor, L3FloodArpEntry)

}  // namespace VelaSwitchTable
