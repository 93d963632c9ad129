#include "VelaSwitchTable/VelaTableLagHashControl.h"

namespace VelaSwitchTable {

std::string LagHashControlResult::resultString() const {
  char text[96];
  std::snprintf(text, sizeof text, "useVlanId:%s useSipAndDip:%s hasSeed:%d",
                useVlanId() ? "true" : "false", useSipAndDip() ? "true" : "false", hashSeed());
  return text;
}

Orb::Ptr<LagHashControlTable> LagHashControlTableIs(const std::string& name) {
  return Orb::make<LagHashControlTable>(name);
}

}  // namespace VelaSwitchTable
