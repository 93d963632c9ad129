#include "VelaSwitchTable/VelaTableLagMembership.h"

namespace VelaSwitchTable {
namespace {

enum class Row : U8 { ports, portsHigh, select };

/// The port mask of a member map, over the ports of the profile.
U64 memberMask(const VelaSwitch::ChipPortMap& members, U32 ports) {
  U64 mask = 0;
  for (U32 port = 0; port < ports; ++port) {
    if (members(VelaSwitch::ChipPortId(port))) mask |= U64{1} << port;
  }
  return mask;
}

}  // namespace

std::vector<PlainHwTable> LagMembershipFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  auto tables = layer2PortTables(profile, {"lag_mask_data0", "lag_mask_data1", "lag_ctl"});
  tables.push_back(cpuPortTable(profile, tables.size(), {"lag_mask_data0", "lag_mask_data1"}));
  return tables;
}

VelaSwitchApi::RowLayout LagMembershipFamily::layout(const VelaSwitch::ProfileInfo& profile,
                                                     U32 table) {
  const bool cpu = table >= profile.numTables(VelaSwitch::TableKind::layer2);
  if (cpu) return {{{"ports0", 0, 32}, {"ports32", 32, 32}, {"select"}}, 2};
  return {{{"ports0", 0, 32}, {"ports32", 32, 32}, {"select", 64, 32}}, 3};
}

void LagMembershipFamily::pack(const PlainRowContext& at, const Key& key, const Result& result,
                               VelaSwitchApi::RowWriter& row) {
  const U64 mask = memberMask(result.port(), at.profile.ports());
  row.set(Row::ports, mask);
  row.set(Row::portsHigh, mask >> 32);
  if (!at.table.cpu) row.set(Row::select, portSelection(at.table, key.portId()));
}

RowSays LagMembershipFamily::unpack(const PlainRowContext& at, const Key&,
                                    const VelaSwitchApi::RowReader& row, Result& result) {
  const U64 mask = row.get(Row::ports) | row.get(Row::portsHigh) << 32;
  for (U32 port = 0; port < at.profile.ports(); ++port) {
    if ((mask >> port & 1) != 0) result.portIs(VelaSwitch::ChipPortId(port), true);
  }
  return RowSays::result;
}

VELA_PORT_PIPELINE_FAMILY_DEFINE(LagMembershipFamily, LagMembershipTable, LagMembershipConvertor,
                                 LagMembershipConvertorLayer2All)

}  // namespace VelaSwitchTable
