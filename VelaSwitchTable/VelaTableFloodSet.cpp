#include "VelaSwitchTable/VelaTableFloodSet.h"

#include <chrono>

namespace VelaSwitchTable {
std::string FloodSetResult::resultString() const {
  return Orb::text("uucPortMask:0x", Orb::Hex{uucPortMask(), 12}, " umcPortMask:0x",
                   Orb::Hex{umcPortMask(), 12});
}

bool FloodSetTable::entryIs(const FloodSetEntry& entry) {
  return PlainFamilyTable::entryIs(entry.key(), entry);
}

bool FloodSetTable::entryIs(Bridging::VlanId vid, const FloodSetResult& result) {
  return entryIs(entryOf(vid, result));
}

void FloodSetTable::entryIsByHwRow(const Bridging::VlanId& vid, const FloodSetEntry& row) {
  PlainFamilyTable::entryIsByHwRow(vid, entryOf(vid, row.result()));
}

Orb::Seconds FloodSetTable::systemTime() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return Orb::Seconds(std::chrono::duration<double>(now).count());
}

std::vector<PlainHwTable> FloodSetFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  ORB_ASSERT_TEXT(profile.ports() < 64, "len < 64");
  return vlanTables(profile, {"floodset_data0", "floodset_data1", "floodset_data2",
                              "floodset_data3", "floodset_ctl"});
}

RowSays FloodSetFamily::unpackMore(const PlainRowContext&, const Key& key,
                                   const RowReaderOf<FloodSetFamily>& row, Result& result) {
  if (!row.flag<"commit">() || row.get<"vlan">() != key.value()) return RowSays::unsound;
  row.getNamed(result.result.value);
  return RowSays::result;
}

VELA_PLAIN_FAMILY_DEFINE(FloodSet, Layer2All)

}  // namespace VelaSwitchTable
