#include "VelaSwitchTable/VelaTableNativeVlan.h"

namespace VelaSwitchTable {

std::string NativeVlanResult::resultString() const {
  char text[96];
  std::snprintf(text, sizeof text, "vlan:%4u dei:0x%X pcp:0x%X", nativeVlanId().value(), dei(),
                pcp());
  return text;
}

VELA_PLAIN_FAMILY_DEFINE(NativeVlan, Layer2All)

}  // namespace VelaSwitchTable
