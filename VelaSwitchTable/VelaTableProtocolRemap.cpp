#include "VelaSwitchTable/VelaTableProtocolRemap.h"

namespace VelaSwitchTable {

U8 ProtocolRemapFamily::usualClass(U8 protocol) {
  constexpr U8 icmp = 1;
  constexpr U8 tcp = 6;
  constexpr U8 udp = 17;
  return protocol == tcp ? 1 : protocol == udp ? 2 : protocol == icmp ? 3 : 0;
}

U8 ProtocolRemapTable::remappedProtocol(U8 protocol) const {
  const ProtocolRemapResult* remapped = entry({protocol});
  return remapped ? remapped->remappedProtocol() & 7 : ProtocolRemapFamily::usualClass(protocol);
}

VELA_PLAIN_FAMILY_DEFINE(ProtocolRemap, Layer3)

}  // namespace VelaSwitchTable
