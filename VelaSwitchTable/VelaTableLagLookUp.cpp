#include "VelaSwitchTable/VelaTableLagLookUp.h"

#include <cstdio>
#include <ostream>

namespace VelaSwitchTable {
namespace {

/// First port of the pipe that serves the port; 0 when none does.
U32 firstPortOfPipe(const VelaSwitch::ProfileInfo& profile, U32 port) {
  const U32 pipe = profile.portToIngressPipeId(port);
  for (const auto& range : profile.ingressPipeRangeInfos()) {
    if (range.pipe() == pipe) return range.firstPort();
  }
  return 0;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const LagLookUpResult& result) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%02X", result.buckets());
  return out << text;
}

std::vector<PlainHwTable> LagLookUpFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  const U32 pipelines = profile.numPipelinesOfTable(VelaSwitch::TableKind::layer2);
  std::vector<PlainHwTable> tables;
  for (U32 t = 0; t <= pipelines; ++t) {
    const bool cpu = t == pipelines;
    const std::string block =
        cpu ? "cpu_pipeline[0]/lag_lut[%d]/" : regPrefix("pipeline[%d]/lag_lut[%d]/", t);
    tables.push_back(
        {.id = t,
         .suffix = cpu ? "Cpu" : "",
         .last = profile.ports() - 1,
         .rowWords = traits.rowWords,
         .registers =
             [&profile, block, pipelines](HwIndex port) {
               const U32 pipe = std::min(profile.portToIngressPipeId(port), pipelines - 1);
               return regAddresses(regPrefix(block, pipe), {"lag_lut_data0", "lag_lut_ctl"});
             },
         .registersPerRow = true,
         .cpu = cpu});
  }
  return tables;
}

void LagLookUpFamily::packMore(const PlainRowContext& at, const Key& key, const Result&,
                               RowWriterOf<LagLookUpFamily>& row) {
  const U32 port = key.portId().value();
  row.set<"select">(1u << (port - firstPortOfPipe(at.profile, port)) % 32);
}

VELA_PLAIN_FAMILY_DEFINE(LagLookUp, Layer2All)

}  // namespace VelaSwitchTable
