#include "VelaSwitchTable/family/PlainTables.h"

#include "Bridging/VlanId.h"

namespace VelaSwitchTable {

using VelaSwitch::ProfileInfo;
using VelaSwitch::TableKind;

std::vector<PlainHwTable> portRegisterTables(const ProfileInfo& profile, U8 rowWords,
                                             std::span<const PortRegister> registers) {
  std::vector<PlainHwTable> tables;
  for (const auto& [suffix, path] : registers) {
    const auto ofPort = [&profile, format = std::string(path)](HwIndex port) {
      const bool ofPipe = format.starts_with("pipeline");
      const std::string half =
          ofPipe ? regPrefix(format, profile.portToIngressPipeId(port)) : format;
      return regAddresses(regPrefix(half, port), {""});
    };
    tables.push_back({.id = static_cast<HwTableId>(tables.size()),
                      .suffix = suffix,
                      .last = profile.ports() - 1,
                      .rowWords = rowWords,
                      .registers = ofPort,
                      .registersPerRow = true});
  }
  return tables;
}

const char* layer2Prefix(const ProfileInfo& profile) {
  return profile.fields().ingressL2Processor() ? "ingress/processor_l2[%u]/"
                                               : "pipeline[%u]/processor/";
}

namespace {

PlainHwTable processorTable(HwTableId id, bool cpu, HwIndex first, HwIndex last,
                            const std::string& prefix, const std::vector<std::string>& registers) {
  return {.id = id,
          .suffix = cpu ? "Cpu" : "",
          .first = first,
          .last = last,
          .rowWords = static_cast<U8>(registers.size()),
          .registers = [prefix, registers](HwIndex) { return regAddresses(prefix, registers); },
          .cpu = cpu};
}

}  // namespace

std::vector<PlainHwTable> layer2PortTables(const ProfileInfo& profile,
                                           const Layer2Registers& registers) {
  std::vector<std::string> data{registers.data[0]};
  if (registers.data[1]) data.emplace_back(registers.data[1]);
  std::vector<std::string> all = data;
  all.emplace_back(registers.control);
  std::vector<PlainHwTable> tables;
  const U32 processors = profile.numTables(TableKind::layer2);
  for (U32 t = 0; t < processors; ++t) {
    const VelaSwitch::PortRange ports = portRangeOfL2Table(&profile, t);
    tables.push_back(processorTable(t, false, ports.first, ports.last,
                                    regPrefix(layer2Prefix(profile), t), all));
  }
  if (registers.cpu) {
    tables.push_back(processorTable(processors, true, 0, profile.ports() - 1,
                                    "cpu_pipeline[0]/lag_cpu[0]/", data));
  }
  return tables;
}

std::vector<PlainHwTable> pipelineTables(const ProfileInfo& profile, TableKind kind,
                                         const char* prefix, const char* cpuPrefix, HwIndex first,
                                         HwIndex last, const std::vector<std::string>& registers) {
  std::vector<PlainHwTable> tables;
  const U32 slices = profile.numTables(kind);
  for (U32 t = 0; t < slices; ++t) {
    tables.push_back(processorTable(t, false, first, last, regPrefix(prefix, t), registers));
  }
  if (profile.cpuPipeline()) {
    tables.push_back(processorTable(slices, true, first, last, cpuPrefix, registers));
  }
  return tables;
}

std::vector<PlainHwTable> vlanTables(const ProfileInfo& profile,
                                     const std::vector<std::string>& registers) {
  const bool oldFormat = profile.registerFormat().major() < 3;
  return pipelineTables(profile, TableKind::vlan,
                        oldFormat ? "pipeline[%d]/processor/" : "ingress/vlan[%d]/",
                        oldFormat ? "cpu_pipeline[0]/processor/" : "cpu_pipeline[0]/vlan/",
                        Bridging::VlanId::min, Bridging::VlanId::max, registers);
}

}  // namespace VelaSwitchTable
