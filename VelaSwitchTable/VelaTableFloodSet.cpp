#include "VelaSwitchTable/VelaTableFloodSet.h"

#include <chrono>

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
  const FloodSetEntry* there = this->entry(entry.key());
  const bool same = there && there->result() == entry.result();
  return PlainFamilyTable::entryIs(entry.key(), same ? FloodSetEntry(*there) : entry);
}

bool FloodSetTable::entryIs(Bridging::VlanId vid, const FloodSetResult& result) {
  return entryIs({vid, result, clock_()});
}

void FloodSetTable::entryIsByHwRow(const Bridging::VlanId& vid, const FloodSetEntry& row) {
  PlainFamilyTable::entryIsByHwRow(vid, {vid, row.result(), clock_()});
}

Orb::Seconds FloodSetTable::systemTime() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return Orb::Seconds(std::chrono::duration<double>(now).count());
}

bool FloodSetConvertorLayer2All::isCpuPipeline(U32 tableIndex, U32 numTables) const {
  return profile().cpuPipeline() && tableIndex == numTables - 1;
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
  row.set(Row::uucPortMask, result.result().uucPortMask());
  row.set(Row::umcPortMask, result.result().umcPortMask());
  row.set(Row::vlan, key.value());
  row.set(Row::commit, 1);
}

RowSays FloodSetFamily::unpack(const PlainRowContext&, const Key& key,
                               const VelaSwitchApi::RowReader& row, Result& result) {
  if (!row.flag(Row::commit) || row.get(Row::vlan) != key.value()) return RowSays::unsound;
  result.result = FloodSetResult{row.get(Row::uucPortMask), row.get(Row::umcPortMask)};
  return RowSays::result;
}

VELA_PLAIN_FAMILY_DEFINE(FloodSetFamily, FloodSetTable, FloodSetConvertor,
                         FloodSetConvertorLayer2All)

}  // namespace VelaSwitchTable
