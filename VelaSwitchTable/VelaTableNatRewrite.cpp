#include "VelaSwitchTable/VelaTableNatRewrite.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::NatRewriteKey;
using VelaSwitchApi::RowField;

enum class Row : U8 { newIp, newPort, l3ChecksumCorrection, index, one };

constexpr RowField fields[] = {{"newIp", 0, 32},
                               {"newPort", 32, 16},
                               {"l3ChecksumCorrection", 48, 16},
                               {"index", 65, 12},
                               {"one", 77, 1}};
static_assert(VelaSwitchApi::wellFormed(fields, NatRewriteFamily::traits.rowWords));

}  // namespace

U32 NatRewriteFamily::rows(const VelaSwitch::ProfileInfo& profile) {
  return egressProcessors(profile) * entriesPerPortPair;
}

HwIndex NatRewriteFamily::hwIndex(const Key& key) {
  const U32 baseChipPortId = key.baseChipPortId().value();
  ORB_ASSERT_TEXT(baseChipPortId % 2 == 0, "key.baseChipPortId() % 2 == 0");
  if (key.rewriteIndex() >= entriesPerPortPair) return noRow;
  return baseChipPortId / portsPerEgressProcessor * entriesPerPortPair + key.rewriteIndex();
}

NatRewriteKey NatRewriteFamily::keyOf(HwIndex index) {
  return {VelaSwitch::ChipPortId(index / entriesPerPortPair * portsPerEgressProcessor),
          static_cast<U16>(index % entriesPerPortPair)};
}

RowLayout NatRewriteFamily::layout(const VelaSwitch::ProfileInfo&) {
  return {{std::begin(fields), std::end(fields)}, traits.rowWords};
}

void NatRewriteFamily::pack(const VelaSwitch::ProfileInfo&, const Key&, const Result& result, bool,
                            RowWriter& row) {
  row.set(Row::newIp, result.newIp().number());
  row.set(Row::newPort, result.newPort());
  row.set(Row::l3ChecksumCorrection, result.l3ChecksumCorrection());
}

void NatRewriteFamily::packStatic(HwIndex index, RowWriter& row) {
  row.set(Row::index, index % entriesPerPortPair);
  row.set(Row::one, 1);
}

std::optional<std::pair<NatRewriteResult, bool>> NatRewriteFamily::unpack(
    const VelaSwitch::ProfileInfo&, const RowReader& row) {
  const Result result{Ipnet::IpAddr(static_cast<U32>(row.get(Row::newIp))),
                      static_cast<U16>(row.get(Row::newPort)),
                      static_cast<U16>(row.get(Row::l3ChecksumCorrection))};
  return std::pair{result, result != Result{}};
}

void NatRewriteFamily::describe(Orb::TextSink& sink, const Result& result) {
  sink.append("newIp:");
  appendText(sink, result.newIp());
  sink.append(" newPort:");
  Orb::appendText(sink, result.newPort());
  sink.append(" l3ChecksumCorrection:");
  Orb::appendText(sink, result.l3ChecksumCorrection());
}

void NatRewriteConvertor::doInitTableStats() {
  initTableStatsPerEgressPort(egressProcessors(profile()));
}

U32 NatRewriteConvertor::capacityIndexFromEntry(const DirectBaseEntry& entry) const {
  return hwIndexFromItem(entry) / NatRewriteFamily::entriesPerPortPair;
}

VELA_DIRECT_FAMILY_DEFINE(NatRewriteFamily, NatRewriteTable, NatRewriteConvertor, NatRewriteEntry)

}  // namespace VelaSwitchTable
