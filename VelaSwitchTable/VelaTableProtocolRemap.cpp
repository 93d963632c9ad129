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

std::vector<PlainHwTable> ProtocolRemapFamily::hwTables(const VelaSwitch::ProfileInfo&) {
  return {};
}

VelaSwitchApi::RowLayout ProtocolRemapFamily::layout(const VelaSwitch::ProfileInfo&, U32) {
  return {};
}

void ProtocolRemapFamily::pack(const PlainRowContext&, const Key&, const Result&,
                               VelaSwitchApi::RowWriter&) {}

RowSays ProtocolRemapFamily::unpack(const PlainRowContext&, const Key&,
                                    const VelaSwitchApi::RowReader&, Result&) {
  return RowSays::nothing;
}

VELA_PLAIN_FAMILY_DEFINE(ProtocolRemapFamily, ProtocolRemapTable, ProtocolRemapConvertor,
                         ProtocolRemapConvertorLayer3)

}  // namespace VelaSwitchTable
