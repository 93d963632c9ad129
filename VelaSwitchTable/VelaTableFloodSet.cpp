#include "VelaSwitchTable/VelaTableFloodSet.h"

namespace VelaSwitchTable {
namespace {

enum class Row : U8 { uucPortMask, umcPortMask, vlan, commit };

constexpr U8 rowWords = 5;

}  // namespace

std::string FloodSetResult::resultString() const {
  return Orb::text("uucPortMask:0x", Orb::Hex{uucPortMask(), 12}, " umcPortMask:0x",
                   Orb::Hex{umcPortMask(), 12});
}

bool FloodSetTable::entryIs(const FloodSetEntry& entry) {
  *lastUpdate_.insert(entry.key()).first = entry.lastUpdate();
  return PlainFamilyTable::entryIs(entry.key(), entry.result());
}

FloodSetEntry FloodSetTable::floodSetEntry(Bridging::VlanId vid) const {
  const FloodSetResult* result = entry(vid);
  if (!result) return {vid, FloodSetResult{}, Orb::Seconds{}};
  const Orb::Seconds* time = lastUpdate_.find(vid);
  return {vid, *result, time ? *time : Orb::Seconds{}};
}

std::vector<PlainHwTable> FloodSetFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  return vlanTables(profile, {"floodset_data0", "floodset_data1", "floodset_data2",
                              "floodset_data3", "floodset_ctl"});
}

VelaSwitchApi::RowLayout FloodSetFamily::layout(const VelaSwitch::ProfileInfo& profile, U32) {
  const auto ports = static_cast<U16>(profile.ports());
  ORB_ASSERT_TEXT(ports < 64, "len < 64");
  return {{{"uucPortMask", 0, ports},
           {"umcPortMask", ports, ports},
           {"vlan", 128, 12},
           {"commit", 143, 1}},
          rowWords};
}

void FloodSetFamily::pack(const PlainRowContext&, const Key& key, const Result& result,
                          VelaSwitchApi::RowWriter& row) {
  row.set(Row::uucPortMask, result.uucPortMask());
  row.set(Row::umcPortMask, result.umcPortMask());
  row.set(Row::vlan, key.value());
  row.set(Row::commit, 1);
}

RowSays FloodSetFamily::unpack(const PlainRowContext&, const Key& key,
                               const VelaSwitchApi::RowReader& row, Result& result) {
  if (!row.flag(Row::commit) || row.get(Row::vlan) != key.value()) return RowSays::unsound;
  result.uucPortMask = row.get(Row::uucPortMask);
  result.umcPortMask = row.get(Row::umcPortMask);
  return RowSays::result;
}

VELA_PLAIN_FAMILY_DEFINE(FloodSetFamily, FloodSetTable, FloodSetConvertor,
                         FloodSetConvertorLayer2All)

}  // namespace VelaSwitchTable
