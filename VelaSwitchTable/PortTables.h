#pragma once

#include "VelaSwitch/Types.h"
#include "VelaSwitchTable/PlainFamily.h"

/// Hardware tables whose rows are chip ports, as several families declare them.
namespace VelaSwitchTable {

/// One row and one register for each port; `path` has the places of the port's pipe, if any, and of
/// the port.
inline PlainHwTable portRegisterTable(const VelaSwitch::ProfileInfo& profile, HwTableId id,
                                      const char* suffix, const char* path, U8 rowWords) {
  return {id,
          suffix,
          0,
          profile.ports() - 1,
          rowWords,
          [&profile, format = std::string(path)](HwIndex port) {
            const bool ofPipe = format.starts_with("pipeline");
            const std::string half =
                ofPipe ? regPrefix(format, profile.portToIngressPipeId(port)) : format;
            return regAddresses(regPrefix(half, port), {""});
          },
          true};
}

/// The register prefix of a layer-2 processor's tables.
inline const char* layer2Prefix(const VelaSwitch::ProfileInfo& profile) {
  return profile.fields().ingressL2Processor() ? "ingress/processor_l2[%u]/"
                                               : "pipeline[%u]/processor/";
}

/// The tables of the layer-2 processors, each with the rows of the ports that it serves.
inline std::vector<PlainHwTable> layer2PortTables(const VelaSwitch::ProfileInfo& profile,
                                                  const std::vector<std::string>& registers) {
  std::vector<PlainHwTable> tables;
  for (U32 t = 0; t < profile.numTables(VelaSwitch::TableKind::layer2); ++t) {
    const VelaSwitch::PortRange ports = portRangeOfL2Table(&profile, t);
    tables.push_back({t, "", ports.first, ports.last, static_cast<U8>(registers.size()),
                      [prefix = regPrefix(layer2Prefix(profile), t), registers](HwIndex) {
                        return regAddresses(prefix, registers);
                      }});
  }
  return tables;
}

/// The CPU pipeline's table of all ports, behind `count` others; it has no control word.
inline PlainHwTable cpuPortTable(const VelaSwitch::ProfileInfo& profile, std::size_t count,
                                 const std::vector<std::string>& registers) {
  return {
      .id = static_cast<HwTableId>(count),
      .suffix = "Cpu",
      .first = 0,
      .last = profile.ports() - 1,
      .rowWords = static_cast<U8>(registers.size()),
      .registers =
          [registers](HwIndex) { return regAddresses("cpu_pipeline[0]/lag_cpu[0]/", registers); },
      .cpu = true};
}

/// The bit of a control word that selects a port of the table.
inline U32 portSelection(const PlainHwTable& table, VelaSwitch::ChipPortId port) {
  return 1u << (port.value() - table.first) % 32;
}

}  // namespace VelaSwitchTable
