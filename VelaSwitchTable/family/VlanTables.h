#pragma once

#include "Bridging/VlanId.h"
#include "VelaSwitchTable/family/PlainFamily.h"

/// Hardware tables whose rows are VLAN ids: one for each of the profile's VLAN tables, and the CPU
/// pipeline's behind them.
namespace VelaSwitchTable {

/// The register prefix of a VLAN table; older formats have the rows in the pipelines' processors.
inline std::string vlanTablePrefix(const VelaSwitch::ProfileInfo& profile, U32 table, bool cpu) {
  const bool oldFormat = profile.registerFormat().major() < 3;
  if (cpu) return oldFormat ? "cpu_pipeline[0]/processor/" : "cpu_pipeline[0]/vlan/";
  return regPrefix(oldFormat ? "pipeline[%d]/processor/" : "ingress/vlan[%d]/", table);
}

inline std::vector<PlainHwTable> vlanTables(const VelaSwitch::ProfileInfo& profile,
                                            const std::vector<std::string>& registers) {
  const U32 slices = profile.numTables(VelaSwitch::TableKind::vlan);
  std::vector<PlainHwTable> tables;
  for (U32 t = 0; t < slices + (profile.cpuPipeline() ? 1 : 0); ++t) {
    const bool cpu = t == slices;
    tables.push_back({.id = t,
                      .suffix = cpu ? "Cpu" : "",
                      .first = Bridging::VlanId::min,
                      .last = Bridging::VlanId::max,
                      .rowWords = static_cast<U8>(registers.size()),
                      .registers = [prefix = vlanTablePrefix(profile, t, cpu),
                                    registers](HwIndex) { return regAddresses(prefix, registers); },
                      .cpu = cpu});
  }
  return tables;
}

}  // namespace VelaSwitchTable
