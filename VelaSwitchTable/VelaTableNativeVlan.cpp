#include "VelaSwitchTable/VelaTableNativeVlan.h"

namespace VelaSwitchTable {
namespace {

enum class Row : U8 { nativeVlanId, dei, pcp };

constexpr U8 rowWords = 4;
constexpr VelaSwitchApi::RowField fields[] = {
    {"nativeVlanId", 0, 12}, {"dei", 12, 1}, {"pcp", 13, 3}};
static_assert(VelaSwitchApi::wellFormed(fields, rowWords));

}  // namespace

std::string NativeVlanResult::resultString() const {
  char text[96];
  std::snprintf(text, sizeof text, "vlan:%4u dei:0x%X pcp:0x%X", nativeVlanId().value(), dei(),
                pcp());
  return text;
}

std::vector<PlainHwTable> NativeVlanFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  return {portRegisterTable(profile, 0, "Egress", "egress/port[%d]/vlan_tci", rowWords),
          portRegisterTable(profile, 1, "Ingress", "pipeline[%d]/port[%d]/default_vlan", rowWords)};
}

VelaSwitchApi::RowLayout NativeVlanFamily::layout(const VelaSwitch::ProfileInfo&, U32) {
  return {{std::begin(fields), std::end(fields)}, rowWords};
}

void NativeVlanFamily::pack(const PlainRowContext&, const Key&, const Result& result,
                            VelaSwitchApi::RowWriter& row) {
  row.set(Row::nativeVlanId, result.nativeVlanId().value());
  row.set(Row::dei, result.dei());
  row.set(Row::pcp, result.pcp());
}

RowSays NativeVlanFamily::unpack(const PlainRowContext&, const Key&,
                                 const VelaSwitchApi::RowReader& row, Result& result) {
  result.nativeVlanId = Bridging::VlanId(row.get(Row::nativeVlanId));
  result.dei = static_cast<U8>(row.get(Row::dei));
  result.pcp = static_cast<U8>(row.get(Row::pcp));
  return RowSays::result;
}

Orb::Ptr<NativeVlanTable> NativeVlanTableIs(const std::string& name) {
  return Orb::make<NativeVlanTable>(name);
}

}  // namespace VelaSwitchTable
