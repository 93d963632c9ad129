#include "VelaSwitchTable/VelaTablePortConfig.h"

namespace VelaSwitchTable {
namespace {

constexpr const char* modeNames[] = {"trunk", "access", "qinq"};

}  // namespace

void appendText(Orb::TextSink& sink, PortMode mode) {
  sink.append(modeNames[static_cast<U8>(mode)]);
}

void parseText(Orb::TextCursor& cursor, PortMode& mode) {
  const std::string_view word = cursor.word();
  for (std::size_t i = 0; i < std::size(modeNames); ++i) {
    if (word != modeNames[i]) continue;
    mode = static_cast<PortMode>(i);
    return;
  }
  throw Orb::TextException(Orb::text("\"", word, "\" is not trunk, access or qinq"));
}

void fromRowBits(PortMode& mode, U64 bits) {
  if (bits >= std::size(modeNames)) {
    throw Orb::RangeException("VelaSwitchTable::PortMode::value > 2 not allowed");
  }
  mode = static_cast<PortMode>(bits);
}

std::string PortConfigResult::resultString() const {
  static constexpr const char* modes[] = {"trunk ", "access", "qinq  "};
  const auto padded = [](bool flag) { return flag ? "true " : "false"; };
  return std::string("portMode:") + modes[static_cast<U8>(portMode())] +
         " txDisabled:" + padded(txDisabled()) +
         " l2ForwardingDisabled:" + padded(l2ForwardingDisabled());
}

VELA_PLAIN_FAMILY_DEFINE(PortConfig, Layer2All)

}  // namespace VelaSwitchTable
