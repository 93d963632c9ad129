#include "VelaSwitchTable/VelaTableL2Control.h"

namespace VelaSwitchTable {

std::string L2ControlResult::resultString() const {
  char text[96];
  std::snprintf(text, sizeof text, "isMlagPeer:%s learnOnly:%s learnDisabled:%s",
                isMlagPeer() ? "true" : "false", learnOnly() ? "true" : "false",
                learnDisabled() ? "true" : "false");
  return text;
}

Orb::Ptr<L2ControlTable> L2ControlTableIs(const std::string& name) {
  return Orb::make<L2ControlTable>(name);
}

}  // namespace VelaSwitchTable
