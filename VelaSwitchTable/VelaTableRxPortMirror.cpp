#include "VelaSwitchTable/VelaTableRxPortMirror.h"

namespace VelaSwitchTable {
namespace {

enum class Row : U8 { portMask, enabled, control };

constexpr U8 rowWords = 3;
constexpr U32 commit = 1u << 31;

}  // namespace

std::vector<PlainHwTable> RxPortMirrorFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  return layer2PortTables(profile,
                          {"ingress_mirror_data0", "ingress_mirror_data1", "ingress_mirror_ctl"});
}

VelaSwitchApi::RowLayout RxPortMirrorFamily::layout(const VelaSwitch::ProfileInfo& profile, U32) {
  const auto ports = static_cast<U16>(profile.ports());
  return {{{"portMask", 0, ports}, {"enabled", ports, 1}, {"control", 64, 32}}, rowWords};
}

void RxPortMirrorFamily::pack(const PlainRowContext& at, const Key& key, const Result& result,
                              VelaSwitchApi::RowWriter& row) {
  row.set(Row::portMask, result.portMask().bits());
  row.set(Row::enabled, result.enabled());
  row.set(Row::control, commit | portSelection(at.table, key.portId()));
}

RowSays RxPortMirrorFamily::unpack(const PlainRowContext&, const Key&,
                                   const VelaSwitchApi::RowReader& row, Result& result) {
  result.portMask = VelaSwitch::IngressPortMask(row.get(Row::portMask));
  result.enabled = row.flag(Row::enabled);
  return RowSays::result;
}

VELA_PLAIN_FAMILY_DEFINE(RxPortMirrorFamily, RxPortMirrorTable, RxPortMirrorConvertor,
                         RxPortMirrorConvertorLayer2All)

}  // namespace VelaSwitchTable
