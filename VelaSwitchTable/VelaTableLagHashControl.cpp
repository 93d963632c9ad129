#include "VelaSwitchTable/VelaTableLagHashControl.h"

namespace VelaSwitchTable {

std::string LagHashControlResult::resultString() const {
  char text[96];
  std::snprintf(text, sizeof text, "useVlanId:%s useSipAndDip:%s hasSeed:%d",
                useVlanId() ? "true" : "false", useSipAndDip() ? "true" : "false", hashSeed());
  return text;
}

VELA_PLAIN_FAMILY_DEFINE(LagHashControl, Layer3)

}  // namespace VelaSwitchTable
