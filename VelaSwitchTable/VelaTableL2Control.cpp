#include "VelaSwitchTable/VelaTableL2Control.h"

namespace VelaSwitchTable {

std::string L2ControlResult::resultString() const {
  char text[96];
  std::snprintf(text, sizeof text, "isMlagPeer:%s learnOnly:%s learnDisabled:%s",
                isMlagPeer() ? "true" : "false", learnOnly() ? "true" : "false",
                learnDisabled() ? "true" : "false");
  return text;
}

VELA_PLAIN_FAMILY_DEFINE(L2Control, Layer2All)

}  // namespace VelaSwitchTable
