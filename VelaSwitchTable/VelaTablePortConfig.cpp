#include "VelaSwitchTable/VelaTablePortConfig.h"

namespace VelaSwitchTable {
namespace {

enum class Row : U8 { portMode, txDisabled, l2ForwardingDisabled };

constexpr U8 rowWords = 4;
constexpr VelaSwitchApi::RowField fields[] = {
    {"portMode", 0, 2}, {"txDisabled", 2, 1}, {"l2ForwardingDisabled", 3, 1}};
static_assert(VelaSwitchApi::wellFormed(fields, rowWords));

constexpr const char* modeNames[] = {"trunk", "access", "qinq"};

}  // namespace

void appendText(Orb::TextSink& sink, PortMode mode) {
  sink.append(modeNames[static_cast<U8>(mode)]);
}

void parseText(Orb::TextCursor& cursor, PortMode& mode) {
  const std::string_view word = cursor.word();
  for (U8 i = 0; i < std::size(modeNames); ++i) {
    if (word != modeNames[i]) continue;
    mode = static_cast<PortMode>(i);
    return;
  }
  throw Orb::TextException("\"" + std::string(word) + "\" is not trunk, access or qinq");
}

std::string PortConfigResult::resultString() const {
  static constexpr const char* modes[] = {"trunk ", "access", "qinq  "};
  const auto padded = [](bool flag) { return flag ? "true " : "false"; };
  return std::string("portMode:") + modes[static_cast<U8>(portMode())] +
         " txDisabled:" + padded(txDisabled()) +
         " l2ForwardingDisabled:" + padded(l2ForwardingDisabled());
}

std::vector<PlainHwTable> PortConfigFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  return {portRegisterTable(profile, 0, "", "egress/port[%d]/cfg", rowWords),
          portRegisterTable(profile, 1, "Vlan", "egress/port[%d]/vlan_cfg", rowWords)};
}

VelaSwitchApi::RowLayout PortConfigFamily::layout(const VelaSwitch::ProfileInfo&, U32) {
  return {{std::begin(fields), std::end(fields)}, rowWords};
}

void PortConfigFamily::pack(const PlainRowContext&, const Key&, const Result& result,
                            VelaSwitchApi::RowWriter& row) {
  row.set(Row::portMode, static_cast<U8>(result.portMode()));
  row.set(Row::txDisabled, result.txDisabled());
  row.set(Row::l2ForwardingDisabled, result.l2ForwardingDisabled());
}

RowSays PortConfigFamily::unpack(const PlainRowContext&, const Key&,
                                 const VelaSwitchApi::RowReader& row, Result& result) {
  const U64 mode = row.get(Row::portMode);
  if (mode > static_cast<U8>(PortMode::qinq)) return RowSays::unsound;
  result.portMode = static_cast<PortMode>(mode);
  result.txDisabled = row.flag(Row::txDisabled);
  result.l2ForwardingDisabled = row.flag(Row::l2ForwardingDisabled);
  return RowSays::result;
}

Orb::Ptr<PortConfigTable> PortConfigTableIs(const std::string& name) {
  return Orb::make<PortConfigTable>(name);
}

}  // namespace VelaSwitchTable
