#include "VelaSwitchTable/VelaTableLagLookUp.h"

#include <cstdio>
#include <ostream>

namespace VelaSwitchTable {
namespace {

enum class Row : U8 { buckets, select };

constexpr U8 rowWords = 2;
constexpr VelaSwitchApi::RowField fields[] = {{"buckets", 0, 32}, {"select", 32, 32}};

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
         .first = 0,
         .last = profile.ports() - 1,
         .rowWords = rowWords,
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

VelaSwitchApi::RowLayout LagLookUpFamily::layout(const VelaSwitch::ProfileInfo&, U32) {
  return {{std::begin(fields), std::end(fields)}, rowWords};
}

void LagLookUpFamily::pack(const PlainRowContext& at, const Key& key, const Result& result,
                           VelaSwitchApi::RowWriter& row) {
  const U32 port = key.portId().value();
  row.set(Row::buckets, result.buckets());
  row.set(Row::select, 1u << (port - firstPortOfPipe(at.profile, port)) % 32);
}

RowSays LagLookUpFamily::unpack(const PlainRowContext&, const Key&,
                                const VelaSwitchApi::RowReader& row, Result& result) {
  result.buckets = static_cast<U32>(row.get(Row::buckets));
  return RowSays::result;
}

VELA_PLAIN_FAMILY_DEFINE(LagLookUpFamily, LagLookUpTable, LagLookUpConvertor,
                         LagLookUpConvertorLayer2All)

}  // namespace VelaSwitchTable
