#include "VelaSwitchTable/VelaTableMacVlan.h"

namespace VelaSwitchTable {

std::vector<PlainHwTable> MacVlanFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  constexpr U32 rows = 1024;
  const bool ownProcessor = profile.fields().ingressL2Processor();
  return pipelineTables(
      profile, VelaSwitch::TableKind::layer2, layer2Prefix(profile),
      ownProcessor ? "cpu_pipeline[0]/processor_l2/" : "cpu_pipeline[0]/processor/", 0, rows - 1,
      hashRegisters(4));
}

VELA_PLAIN_FAMILY_DEFINE(MacVlan, Layer2All)

}  // namespace VelaSwitchTable
