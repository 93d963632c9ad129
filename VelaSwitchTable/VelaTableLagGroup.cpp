#include "VelaSwitchTable/VelaTableLagGroup.h"

#include <cstdio>
#include <ostream>

namespace VelaSwitchTable {
namespace {

enum class Row : U8 { lagGroupId, control };

constexpr U32 noGroup = 63;
constexpr U32 commit = 1u << 31;

}  // namespace

std::ostream& operator<<(std::ostream& out, const LagGroupResult& result) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%02x", result.lagGroupId());
  return out << text;
}

std::vector<PlainHwTable> LagGroupFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  auto tables = layer2PortTables(profile, {"lag_group_data0", "lag_ctl"});
  tables.push_back(cpuPortTable(profile, tables.size(), {"lag_group_data0"}));
  return tables;
}

VelaSwitchApi::RowLayout LagGroupFamily::layout(const VelaSwitch::ProfileInfo& profile, U32 table) {
  const bool cpu = table >= profile.numTables(VelaSwitch::TableKind::layer2);
  if (cpu) return {{{"lagGroupId", 0, 32}, {"control"}}, 1};
  return {{{"lagGroupId", 0, 32}, {"control", 32, 32}}, 2};
}

void LagGroupFamily::pack(const PlainRowContext& at, const Key& key, const Result& result,
                          VelaSwitchApi::RowWriter& row) {
  row.set(Row::lagGroupId, result.lagGroupId());
  if (!at.table.cpu) row.set(Row::control, commit | portSelection(at.table, key.portId()));
}

RowSays LagGroupFamily::unpack(const PlainRowContext&, const Key&,
                               const VelaSwitchApi::RowReader& row, Result& result) {
  const U32 group = static_cast<U32>(row.get(Row::lagGroupId)) & noGroup;
  if (group == noGroup) return RowSays::nothing;
  result.lagGroupId = group;
  return RowSays::result;
}

VELA_PORT_PIPELINE_FAMILY_DEFINE(LagGroupFamily, LagGroupTable, LagGroupConvertor,
                                 LagGroupConvertorLayer2All)

}  // namespace VelaSwitchTable
