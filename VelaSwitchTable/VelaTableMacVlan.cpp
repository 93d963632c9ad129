#include "VelaSwitchTable/VelaTableMacVlan.h"

#include "VelaSwitch/Parity.h"

namespace VelaSwitchTable {
namespace {

enum class Row : U8 {
  vlanId,
  macAddr,
  portMask,
  multicast,
  routed,
  valid,
  parity,
  row,
  one,
  selector,
};

constexpr U8 rowWords = 5;
constexpr U8 parityWords = 4;
constexpr U32 rows = 1024;
/// Marks the table's rows in the control word.
constexpr U32 controlSelector = 12;

}  // namespace

std::vector<PlainHwTable> MacVlanFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  const bool ownProcessor = profile.fields().ingressL2Processor();
  const U32 slices = profile.numTables(VelaSwitch::TableKind::layer2);
  std::vector<PlainHwTable> tables;
  for (U32 t = 0; t < slices + (profile.cpuPipeline() ? 1 : 0); ++t) {
    const bool cpu = t == slices;
    const char* cpuPrefix =
        ownProcessor ? "cpu_pipeline[0]/processor_l2/" : "cpu_pipeline[0]/processor/";
    const std::string prefix = cpu ? cpuPrefix : regPrefix(layer2Prefix(profile), t);
    tables.push_back(
        {.id = t,
         .suffix = cpu ? "Cpu" : "",
         .first = 0,
         .last = rows - 1,
         .rowWords = rowWords,
         .registers = [prefix](HwIndex) { return regAddresses(prefix, hashRegisters(4)); },
         .cpu = cpu});
  }
  return tables;
}

VelaSwitchApi::RowLayout MacVlanFamily::layout(const VelaSwitch::ProfileInfo& profile, U32) {
  const auto maskBits = static_cast<U16>(profile.ports() + 1);
  const auto at = [&](int bit) { return static_cast<U16>(60 + maskBits + bit); };
  return {{{"vlanId", 0, 12},
           {"macAddr", 12, 48},
           {"portMask", 60, maskBits},
           {"multicast", at(0), 1},
           {"routed", at(1), 1},
           {"valid", at(2), 1},
           {"parity", at(3), 1},
           {"row", 128, 10},
           {"one", 145, 1},
           {"selector", 146, 4}},
          rowWords};
}

void MacVlanFamily::pack(const PlainRowContext& at, const Key& key, const Result& result,
                         VelaSwitchApi::RowWriter& row) {
  row.set(Row::vlanId, result.vlanId().value());
  row.set(Row::macAddr, result.macAddr().number());
  row.set(Row::portMask, result.portMask().hardwareBitmask(at.profile.ports()));
  row.set(Row::multicast, result.multicast());
  row.set(Row::routed, result.routed());
  row.set(Row::valid, result.valid());
  row.set(Row::parity, VelaSwitch::parityU32Array(row.words(), parityWords));
  row.set(Row::row, key.row());
  row.set(Row::one, 1);
  row.set(Row::selector, controlSelector);
}

RowSays MacVlanFamily::unpack(const PlainRowContext&, const Key&,
                              const VelaSwitchApi::RowReader& row, Result& result) {
  if (VelaSwitch::parityU32Array(row.words(), parityWords) != 0) return RowSays::unsound;
  result.vlanId = Bridging::VlanIdOrNone(row.get(Row::vlanId));
  result.macAddr = Bridging::EthAddr(row.get(Row::macAddr));
  result.portMask = VelaSwitch::IngressPortMask(row.get(Row::portMask));
  result.multicast = row.flag(Row::multicast);
  result.routed = row.flag(Row::routed);
  result.valid = row.flag(Row::valid);
  return RowSays::result;
}

VELA_PLAIN_FAMILY_DEFINE(MacVlanFamily, MacVlanTable, MacVlanConvertor, MacVlanConvertorLayer2All)

}  // namespace VelaSwitchTable
