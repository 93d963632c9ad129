#include "VelaSwitchTable/VelaTableLagGroup.h"

#include <ostream>

namespace VelaSwitchTable {

std::ostream& operator<<(std::ostream& out, const LagGroupResult& result) {
  return out << Orb::text("0x", Orb::Hex{result.lagGroupId(), 2});
}

RowSays LagGroupFamily::unpackMore(const PlainRowContext&, const Key&,
                                   const RowReaderOf<LagGroupFamily>&, Result& result) {
  constexpr U32 noGroup = 63;
  result.lagGroupId = result.lagGroupId() & noGroup;
  return result.lagGroupId() == noGroup ? RowSays::nothing : RowSays::result;
}

VELA_PLAIN_FAMILY_DEFINE(LagGroup, Layer2All)

}  // namespace VelaSwitchTable
