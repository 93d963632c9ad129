#include "VelaSwitchTable/VelaTableL2Control.h"

namespace VelaSwitchTable {
namespace {

enum class Row : U8 { isMlagPeer, learnOnly, learnDisabled };

constexpr U8 rowWords = 1;
constexpr VelaSwitchApi::RowField fields[] = {
    {"isMlagPeer", 0, 1}, {"learnOnly", 1, 1}, {"learnDisabled", 2, 1}};
static_assert(VelaSwitchApi::wellFormed(fields, rowWords));

}  // namespace

std::string L2ControlResult::resultString() const {
  char text[96];
  std::snprintf(text, sizeof text, "isMlagPeer:%s learnOnly:%s learnDisabled:%s",
                isMlagPeer() ? "true" : "false", learnOnly() ? "true" : "false",
                learnDisabled() ? "true" : "false");
  return text;
}

std::vector<PlainHwTable> L2ControlFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  return {portRegisterTable(profile, 0, "", "pipeline[%d]/port[%d]/l2_control", rowWords)};
}

VelaSwitchApi::RowLayout L2ControlFamily::layout(const VelaSwitch::ProfileInfo&, U32) {
  return {{std::begin(fields), std::end(fields)}, rowWords};
}

void L2ControlFamily::pack(const PlainRowContext&, const Key&, const Result& result,
                           VelaSwitchApi::RowWriter& row) {
  row.set(Row::isMlagPeer, result.isMlagPeer());
  row.set(Row::learnOnly, result.learnOnly());
  row.set(Row::learnDisabled, result.learnDisabled());
}

RowSays L2ControlFamily::unpack(const PlainRowContext&, const Key&,
                                const VelaSwitchApi::RowReader& row, Result& result) {
  result.isMlagPeer = row.flag(Row::isMlagPeer);
  result.learnOnly = row.flag(Row::learnOnly);
  result.learnDisabled = row.flag(Row::learnDisabled);
  return RowSays::result;
}

Orb::Ptr<L2ControlTable> L2ControlTableIs(const std::string& name) {
  return Orb::make<L2ControlTable>(name);
}

}  // namespace VelaSwitchTable
