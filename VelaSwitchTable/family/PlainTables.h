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

/// The registers of a family whose rows lie in the layer-2 processor that serves the port. A bit of
/// the control word selects the port; it is the row's field "control".
struct Layer2Registers {
  std::array<const char*, 2> data;  ///< The second is null where a row has one.
  const char* control;              ///< Written last.
  U32 commit = 1u << 31;            ///< What the control word says beside the port's bit.
  bool cpu = false;  ///< Whether the CPU's pipeline has a table as well, without control word.
};

/// The tables of the layer-2 processors, each with the rows of the ports that it serves, and the
/// CPU pipeline's of all ports behind them.
VELA_EXPORT std::vector<PlainHwTable> layer2PortTables(const VelaSwitch::ProfileInfo& profile,
                                                       const Layer2Registers& registers);

/// The control word of a port's row in the table.
inline U32 layer2Control(const PlainHwTable& table, const Layer2Registers& registers,
                         VelaSwitch::ChipPortId port) {
  return registers.commit | 1u << (port.value() - table.first) % 32;
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
