#include "VelaSwitchTable/VelaTableLagMembership.h"

namespace VelaSwitchTable {

void LagMembershipFamily::packMore(const PlainRowContext& at, const Key& key, const Result& result,
                                   RowWriterOf<LagMembershipFamily>& row) {
  U64 mask = 0;
  for (U32 port = 0; port < at.profile.ports(); ++port) {
    if (result.port(VelaSwitch::ChipPortId(port))) mask |= U64{1} << port;
  }
  row.set<"ports0">(mask);
  row.set<"ports32">(mask >> 32);
  row.set<"select">(portSelection(at.table, key.portId()));
}

RowSays LagMembershipFamily::unpackMore(const PlainRowContext& at, const Key&,
                                        const RowReaderOf<LagMembershipFamily>& row,
                                        Result& result) {
  const U64 mask = row.get<"ports0">() | row.get<"ports32">() << 32;
  for (U32 port = 0; port < at.profile.ports(); ++port) {
    if ((mask >> port & 1) != 0) result.portIs(VelaSwitch::ChipPortId(port), true);
  }
  return RowSays::result;
}

VELA_PLAIN_FAMILY_DEFINE(LagMembership, Layer2All)

}  // namespace VelaSwitchTable
