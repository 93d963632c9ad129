#include "VelaSwitch/Profile.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <map>
#include <set>

#include "Orb/Assert.h"

namespace VelaSwitch {
namespace {

/// Ports that the control word of a layer-2 table can tell apart.
constexpr U32 maxLayer2Ports = 32;

void require(bool holds, const char* rangeText) {
  if (!holds) throw Orb::RangeException(rangeText);
}

/// First and last port of each group of pipes; groups whose ports interleave are refused.
std::map<U32, PortRange> spans(const std::vector<IngressPipeRange>& pipes,
                               const std::function<U32(U32 pipe)>& groupOf, const char* rangeText) {
  std::map<U32, PortRange> spans;
  for (const IngressPipeRange& range : pipes) {
    const PortRange ports{range.firstPort(), range.lastPort()};
    PortRange& span = spans.try_emplace(groupOf(range.pipe()), ports).first->second;
    span = {std::min(span.first, ports.first), std::max(span.last, ports.last)};
  }
  for (const auto& [group, span] : spans) {
    for (const auto& [other, otherSpan] : spans) {
      require(group == other || span.last < otherSpan.first || otherSpan.last < span.first,
              rangeText);
    }
  }
  return spans;
}

std::vector<IngressPipeRange> pipes(std::initializer_list<IngressPipeRange> ranges) {
  return ranges;
}

const ProfileFields vela48v5{
    .name = "vela-48-5.1",
    .hwApi = ProfileHwApi{5u, 1u},
    .registerFormat = RegisterFormatVersion{4u, 0u},
    .ports = 48u,
    .vrfs = 8u,
    .pipelines = 2u,
    .ingressPipes = pipes({{0u, 0u, 23u}, {1u, 24u, 47u}}),
    .pipesPerVlanTable = 2u,
    .pipesPerL2Table = 1u,
    .cpuPipeline = true,
    .aclWideRows = true,
    .ingressL2Processor = true,
    .ingressRateLimiter = true,
};

ProfileFields vela48v4() {
  ProfileFields fields = vela48v5;
  fields.name = "vela-48-4.1";
  fields.hwApi = ProfileHwApi{4u, 1u};
  fields.registerFormat = RegisterFormatVersion{3u, 0u};
  fields.vrfs = 4u;
  fields.aclWideRows = false;
  fields.ingressL2Processor = false;
  fields.ingressRateLimiter = false;
  return fields;
}

ProfileFields vela20() {
  ProfileFields fields = vela48v4();
  fields.name = "vela-20-4.0";
  fields.hwApi = ProfileHwApi{4u, 0u};
  fields.registerFormat = RegisterFormatVersion{2u, 0u};
  fields.ports = 20u;
  fields.pipelines = 1u;
  fields.ingressPipes = pipes({{0u, 0u, 19u}});
  fields.pipesPerVlanTable = 1u;
  fields.cpuPipeline = false;
  return fields;
}

/// The oldest row format on a switch with a CPU pipeline.
ProfileFields vela24() {
  ProfileFields fields = vela20();
  fields.name = "vela-24-4.0";
  fields.ports = 24u;
  fields.pipelines = 2u;
  fields.ingressPipes = pipes({{0u, 0u, 11u}, {1u, 12u, 23u}});
  fields.cpuPipeline = true;
  return fields;
}

ProfileFields vela48Vrf32() {
  ProfileFields fields = vela48v5;
  fields.name = "vela-48-32vrf";
  fields.vrfs = 32u;
  fields.mrouteWideFlags = true;
  return fields;
}

}  // namespace

ProfileInfo::ProfileInfo(ProfileFields fields) : fields_(std::move(fields)) {
  require(ports() >= 1 && ports() <= maxPorts, "ports: < 1 or > 49 not allowed");
  require(vrfs() >= 1 && vrfs() <= 256, "vrfs: < 1 or > 256 not allowed");
  require(pipelines() >= 1 && pipelines() <= maxPipes, "pipelines: < 1 or > 13 not allowed");
  require(fields_.pipesPerVlanTable() >= 1, "pipesPerVlanTable: < 1 not allowed");
  require(fields_.pipesPerL2Table() >= 1, "pipesPerL2Table: < 1 not allowed");
  for (const IngressPipeRange& range : ingressPipeRangeInfos()) {
    require(range.pipe() < maxPipes, "ingressPipes: pipe > 12 not allowed");
    require(range.firstPort() <= range.lastPort() && range.lastPort() < ports(),
            "ingressPipes: firstPort > lastPort or lastPort >= ports not allowed");
  }
  spans(
      ingressPipeRangeInfos(), [](U32 pipe) { return pipe; },
      "ingressPipes: ports of pipes that interleave not allowed");
  for (const TableKind kind : {TableKind::vlan, TableKind::layer2}) {
    const auto tables = spans(
        ingressPipeRangeInfos(), [&](U32 pipe) { return pipeToTableId(pipe, kind); },
        "ingressPipes: ports of tables that interleave not allowed");
    for (const auto& [table, span] : tables) {
      require(kind == TableKind::vlan || span.last - span.first < maxLayer2Ports,
              "pipesPerL2Table: a layer-2 table of more than 32 ports not allowed");
    }
  }
}

const Orb::Type& ProfileInfo::fwkType() const { return Orb::registeredType<ProfileInfo>; }

U32 ProfileInfo::numVrfBits() const { return static_cast<U32>(std::bit_width(vrfs())) - 1; }

U32 ProfileInfo::pipesPerTable(TableKind kind) const {
  return kind == TableKind::vlan ? fields_.pipesPerVlanTable() : fields_.pipesPerL2Table();
}

U32 ProfileInfo::pipeToTableId(U32 pipe, TableKind kind) const {
  return pipe / pipesPerTable(kind);
}

U32 ProfileInfo::numTables(TableKind kind) const {
  std::set<U32> tables;
  for (const IngressPipeRange& range : ingressPipeRangeInfos()) {
    tables.insert(pipeToTableId(range.pipe(), kind));
  }
  return static_cast<U32>(tables.size());
}

U32 ProfileInfo::numPipelinesOfTable(TableKind) const {
  std::set<U32> pipes;
  for (const IngressPipeRange& range : ingressPipeRangeInfos()) pipes.insert(range.pipe());
  return static_cast<U32>(pipes.size());
}

U32 ProfileInfo::portToIngressPipeId(U32 port) const {
  for (const IngressPipeRange& range : ingressPipeRangeInfos()) {
    if (port >= range.firstPort() && port <= range.lastPort()) return range.pipe();
  }
  return 0;
}

std::vector<Orb::PtrConst<ProfileInfo>> ProfileInfo::builtIns() {
  std::vector<Orb::PtrConst<ProfileInfo>> all;
  for (const ProfileFields& fields : {vela48v5, vela48v4(), vela20(), vela24(), vela48Vrf32()}) {
    all.emplace_back(Orb::make<ProfileInfo>(fields));
  }
  return all;
}

Orb::PtrConst<ProfileInfo> ProfileInfo::builtIn(std::string_view name) {
  for (const auto& profile : builtIns()) {
    if (profile->name() == name) return profile;
  }
  return nullptr;
}

}  // namespace VelaSwitch
