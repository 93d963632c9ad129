#pragma once

#include <span>
#include <string>
#include <vector>

#include "DirectBase/PlainBase.h"
#include "VelaSwitch/Types.h"
#include "VelaSwitchTable/VelaRegPrefixUtil.h"

/// The hardware tables of plain families, as several of them declare theirs.
namespace VelaSwitchTable {

/// A hardware table with a row and a register for each port.
struct PortRegister {
  const char* suffix;  ///< Part of the hardware table's name.
  const char* path;    ///< With places for the port's pipe, if any, and for the port.
};
VELA_EXPORT std::vector<PlainHwTable> portRegisterTables(const VelaSwitch::ProfileInfo& profile,
                                                         U8 rowWords,
                                                         std::span<const PortRegister> registers);

/// The register prefix of a layer-2 processor's tables.
VELA_EXPORT const char* layer2Prefix(const VelaSwitch::ProfileInfo& profile);

/// The tables of the layer-2 processors, each with the rows of the ports that it serves. With
/// `cpuRegisters`, the CPU pipeline's table of all ports stands behind them; it has no control
/// word.
VELA_EXPORT std::vector<PlainHwTable> layer2PortTables(
    const VelaSwitch::ProfileInfo& profile, const std::vector<std::string>& registers,
    const std::vector<std::string>& cpuRegisters = {});

/// Makes hardware take the row, in a control word that selects it by a bit.
inline constexpr U32 controlCommit = 1u << 31;
/// The bit of a control word that selects a port of the table.
inline U32 portSelection(const PlainHwTable& table, VelaSwitch::ChipPortId port) {
  return 1u << (port.value() - table.first) % 32;
}

/// One table with the same rows for each of the kind, and the CPU pipeline's behind them where the
/// profile has it.
VELA_EXPORT std::vector<PlainHwTable> pipelineTables(const VelaSwitch::ProfileInfo& profile,
                                                     VelaSwitch::TableKind kind, const char* prefix,
                                                     const char* cpuPrefix, HwIndex first,
                                                     HwIndex last,
                                                     const std::vector<std::string>& registers);

/// Tables whose rows are VLAN ids; older formats have them in the pipelines' processors.
VELA_EXPORT std::vector<PlainHwTable> vlanTables(const VelaSwitch::ProfileInfo& profile,
                                                 const std::vector<std::string>& registers);

}  // namespace VelaSwitchTable
