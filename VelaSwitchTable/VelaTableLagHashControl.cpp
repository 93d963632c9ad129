#include "VelaSwitchTable/VelaTableLagHashControl.h"

namespace VelaSwitchTable {
namespace {

enum class Row : U8 { useVlanId, unused, useSipAndDip, hashSeed };

constexpr U8 rowWords = 1;
constexpr VelaSwitchApi::RowField fields[] = {
    {"useVlanId", 0, 1}, {"unused", 1, 1}, {"useSipAndDip", 2, 1}, {"hashSeed", 3, 6}};
static_assert(VelaSwitchApi::wellFormed(fields, rowWords));

}  // namespace

std::string LagHashControlResult::resultString() const {
  char text[96];
  std::snprintf(text, sizeof text, "useVlanId:%s useSipAndDip:%s hasSeed:%d",
                useVlanId() ? "true" : "false", useSipAndDip() ? "true" : "false", hashSeed());
  return text;
}

std::vector<PlainHwTable> LagHashControlFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  return {portRegisterTable(profile, 0, "", "pipeline[%d]/port[%d]/lhash_ctl", rowWords)};
}

VelaSwitchApi::RowLayout LagHashControlFamily::layout(const VelaSwitch::ProfileInfo&, U32) {
  return {{std::begin(fields), std::end(fields)}, rowWords};
}

void LagHashControlFamily::pack(const PlainRowContext&, const Key&, const Result& result,
                                VelaSwitchApi::RowWriter& row) {
  row.set(Row::useVlanId, result.useVlanId());
  row.set(Row::unused, result.unused());
  row.set(Row::useSipAndDip, result.useSipAndDip());
  row.set(Row::hashSeed, result.hashSeed());
}

RowSays LagHashControlFamily::unpack(const PlainRowContext&, const Key&,
                                     const VelaSwitchApi::RowReader& row, Result& result) {
  result.useVlanId = row.flag(Row::useVlanId);
  result.unused = row.flag(Row::unused);
  result.useSipAndDip = row.flag(Row::useSipAndDip);
  result.hashSeed = static_cast<U8>(row.get(Row::hashSeed));
  return RowSays::result;
}

Orb::Ptr<LagHashControlTable> LagHashControlTableIs(const std::string& name) {
  return Orb::make<LagHashControlTable>(name);
}

}  // namespace VelaSwitchTable
