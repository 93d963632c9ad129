#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>

// Runs the benchmarks and then prints the ratios that matter, each of two figures of the same run:
// the machine's speed cancels out.

namespace {

/// Prints as usual and remembers the time per item of each benchmark (its median when repeated).
class Collector final : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
      if (run.error_occurred || (!single && run.aggregate_name != "median")) continue;
      const auto items = run.counters.find("ns_per_item");
      if (items != run.counters.end())
        times[withoutSuffix(run.run_name.str())] = items->second.value;
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> times;

 private:
  static std::string withoutSuffix(const std::string& name) {
    return name.substr(0, std::min(name.find("/iterations"), name.find("/manual_time")));
  }
};

constexpr double noAim = 0;

struct Ratio {
  const char* what;
  const char* over;
  const char* under;
  double limit;
};

constexpr Ratio ratios[] = {
    {"program an ACL entry / insert into std::unordered_map", "AclProgram", "UnorderedMapInsert",
     5},
    {"announce an unchanged ACL entry / find in std::unordered_map", "AclAnnounceUnchanged",
     "UnorderedMapFind", 2},
    {"program an ACL entry at 45 % load / at 10 %", "AclProgramAtLoad/45", "AclProgramAtLoad/10",
     1.5},
    {"program a static NAT flow / insert into std::unordered_map", "NatFill<Static>",
     "NatMapFill<Static>", 15},
    {"program a dynamic NAT flow / insert into std::unordered_map", "NatFill<Dynamic>",
     "NatMapFill<Dynamic>", 15},
    {"a static NAT flow in at 85 % load / at 10 %", "NatFlows<Static>/85", "NatFlows<Static>/10",
     2},
    {"a dynamic NAT flow in at 90 % load / at 10 %", "NatFlows<Dynamic>/90", "NatFlows<Dynamic>/10",
     2},
    {"decode a NAT row / copy its words", "NatDecode", "NatCopy", 60},
    {"audit a NAT row / copy its words", "NatAudit", "NatCopy", 60},
    {"audit a VLAN's row / copy its words", "VlanAudit", "VlanCopy", 100},
    {"a flow in or out at 70 % load, hits tracked / no hit bits", "NatChurn<tracked>/70",
     "NatChurn<untracked>/70", noAim},
    {"the same at 85 % load", "NatChurn<tracked>/85", "NatChurn<untracked>/85", noAim},
    {"the same at 70 % load, every row hit / no hit bits", "NatChurn<busy>/70",
     "NatChurn<untracked>/70", noAim},
    {"fill a NAT table to 70 %, hits tracked / no hit bits", "NatFresh<tracked>/70",
     "NatFresh<untracked>/70", noAim},
    {"a flow leaves a full table, one waits / none waits", "NatGoing/1", "NatGoing/0", noAim},
    {"withdraw a route of a table far too large / of one that fits", "RouteWithdrawAll",
     "RouteWithdrawFitting", 2},
    {"add a route when 95 % are there / when 5 % are", "RouteAddAt/95", "RouteAddAt/5", 1.5},
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  std::printf("\nRatios of this run\n");
  for (const Ratio& ratio : ratios) {
    const auto over = collector.times.find(ratio.over);
    const auto under = collector.times.find(ratio.under);
    if (over == collector.times.end() || under == collector.times.end()) continue;
    std::printf("  %-62s %5.2f", ratio.what, over->second / under->second);
    if (ratio.limit != noAim) std::printf("  (aim: at most %.1f)", ratio.limit);
    std::printf("\n");
  }
  return 0;
}
