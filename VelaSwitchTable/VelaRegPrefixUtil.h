#pragma once

#include <algorithm>
#include <string>

#include "Orb/Assert.h"
#include "VelaSwitch/Profile.h"
#include "VelaSwitchApi/HwTable.h"

/// Where the tables' registers lie, and which ports a table serves.
namespace VelaSwitchTable {

/// Fills the instance number into a prefix such as "ingress/processor_acl[%d]/". A prefix without a
/// number is returned as it is.
inline std::string regPrefix(const std::string& format, U32 instance) {
  const std::size_t at = format.find('%');
  if (at == std::string::npos) return format;
  return format.substr(0, at) + std::to_string(instance) + format.substr(at + 2);
}

/// The addresses of fields under a prefix, under ascending data array indexes from 0.
inline VelaSwitchApi::HwAddressColl regAddresses(const std::string& prefix,
                                                 const std::vector<std::string>& fields) {
  VelaSwitchApi::HwAddressColl addresses;
  VelaSwitchApi::DataArrayIndex index = 0;
  for (const std::string& field : fields) addresses.addressIs(index++, prefix + field);
  return addresses;
}

/// "hash_data0" … for the number of data words, then "hash_ctl".
inline std::vector<std::string> hashRegisters(U8 dataWords) {
  std::vector<std::string> fields;
  for (U8 i = 0; i < dataWords; ++i) fields.push_back("hash_data" + std::to_string(i));
  fields.emplace_back("hash_ctl");
  return fields;
}

/// Each egress processor serves this many chip ports.
inline constexpr U32 portsPerEgressProcessor = 2;

inline U32 egressProcessors(const VelaSwitch::ProfileInfo& profile) {
  return (profile.ports() + portsPerEgressProcessor - 1) / portsPerEgressProcessor;
}

/// First and last port of the pipes that the table serves.
inline VelaSwitch::PortRange portRangeOfTable(const VelaSwitch::ProfileInfo* profileInfo, U32 table,
                                              VelaSwitch::TableKind kind) {
  ORB_ASSERT_TEXT(!profileInfo->ingressPipeRangeInfos().empty(),
                  "profileInfo->ingressPipeRangeInfos()");
  VelaSwitch::PortRange range{~0u, 0};
  for (const auto& pipe : profileInfo->ingressPipeRangeInfos()) {
    if (profileInfo->pipeToTableId(pipe.pipe(), kind) != table) continue;
    range.first = std::min(range.first, pipe.firstPort());
    range.last = std::max(range.last, pipe.lastPort());
  }
  ORB_ASSERT(range.first <= range.last);
  const U32 ppp = range.last - range.first + 1;
  ORB_ASSERT(ppp <= 48);
  return range;
}

inline VelaSwitch::PortRange portRangeOfVlanTable(const VelaSwitch::ProfileInfo* profileInfo,
                                                  U32 table) {
  return portRangeOfTable(profileInfo, table, VelaSwitch::TableKind::vlan);
}

inline VelaSwitch::PortRange portRangeOfL2Table(const VelaSwitch::ProfileInfo* profileInfo,
                                                U32 table) {
  return portRangeOfTable(profileInfo, table, VelaSwitch::TableKind::layer2);
}

}  // namespace VelaSwitchTable
