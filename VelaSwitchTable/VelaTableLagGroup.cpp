#include "VelaSwitchTable/VelaTableLagGroup.h"

#include <cstdio>
#include <ostream>

namespace VelaSwitchTable {

std::ostream& operator<<(std::ostream& out, const LagGroupResult& result) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%02x", result.lagGroupId());
  return out << text;
}

RowSays LagGroupFamily::unpackMore(const PlainRowContext&, const Key&,
                                   const RowReaderOf<LagGroupFamily>&, Result& result) {
  constexpr U32 noGroup = 63;
  result.lagGroupId = result.lagGroupId() & noGroup;
  return result.lagGroupId() == noGroup ? RowSays::nothing : RowSays::result;
}

VELA_PLAIN_FAMILY_DEFINE(LagGroup, Layer2All)

}  // namespace VelaSwitchTable
