#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Orb/Text.h"
#include "Peers.h"

// Runs the benchmarks, in random order, and then prints the ratios that matter, each of two medians
// of the same run: the machine's speed cancels out.

namespace {

struct Ratio {
  const char* name;
  const char* what;
  const char* over;
  const char* under;  ///< Null where the figure itself is what has an aim.
  double aim;
};

constexpr double noAim = 0;

constexpr Ratio ratios[] = {
    {"acl-add", "program an ACL entry / rte_hash add", "acl/add/vela/ns", "acl/add/rte_hash/ns",
     1.5},
    {"acl-add-batch", "the same in batches of 64 / rte_hash add", "acl/batch/vela/ns",
     "acl/add/rte_hash/ns", 1},
    {"nat-add", "program a static flow, two rows / rte_hash add", "nat/add/vela/ns",
     "nat/add/rte_hash/ns", 2},
    {"acl-rows", "an ACL entry's row alone, of no table's / rte_hash add", "acl/rows/vela/ns",
     "acl/add/rte_hash/ns", noAim},
    {"nat-rows", "a static flow's two rows alone / rte_hash add", "nat/rows/vela/ns",
     "nat/add/rte_hash/ns", noAim},
    {"acl-unchanged", "announce an unchanged ACL entry / rte_hash lookup", "acl/again/vela/ns",
     "acl/again/rte_hash/ns", 0.5},
    {"nat-unchanged", "announce an unchanged flow / rte_hash lookup", "nat/again/vela/ns",
     "nat/again/rte_hash/ns", 0.5},
    {"acl-remove", "remove an ACL entry / rte_hash delete", "acl/del/vela/ns",
     "acl/del/rte_hash/ns", 3},
    {"nat-remove", "remove a flow, two rows / rte_hash delete", "nat/del/vela/ns",
     "nat/del/rte_hash/ns", 3},
    {"route-add", "add a route / rte_fib add", "route/add/vela/ns", "route/add/rte_fib/ns", 0.4},
    {"route-replace", "replace a route / rte_fib add", "route/replace/vela/ns",
     "route/add/rte_fib/ns", 0.4},
    {"route-withdraw", "withdraw a route / rte_fib add", "route/del/vela/ns",
     "route/add/rte_fib/ns", 0.4},
    {"acl-load", "an ACL entry at 95 % of the refusal load / at 10 %", "acl/at/95/ns",
     "acl/at/10/ns", 1.3},
    {"nat-load", "a flow at 95 % of the refusal load / at 10 %", "nat/at/95/ns", "nat/at/10/ns",
     1.3},
    {"route-load", "a route at 95 % of the refusal load / at 10 %", "route/at/95/ns",
     "route/at/10/ns", 1.3},
    {"acl-load-access", "its time for each access of the bus, an ACL entry's at 95 % / at 10 %",
     "acl/at/95/access_ns", "acl/at/10/access_ns", noAim},
    {"nat-load-access", "likewise a flow's", "nat/at/95/access_ns", "nat/at/10/access_ns", noAim},
    {"route-load-access", "likewise a route's", "route/at/95/access_ns", "route/at/10/access_ns",
     noAim},
    {"nat-audit", "audit a NAT row / copy its words", "nat/audit/ns", "nat/copy/ns", 8},
    {"tool-event-us", "microseconds that the tool takes for a route", "tool/routes-full/us",
     nullptr, 1.5},
    {"tool-event", "the same / rte_hash add", "tool/routes-full/ns", "acl/add/rte_hash/ns", noAim},
    {"acl-tail", "p99.9 of an ACL entry at 95 % of the refusal load / median",
     "latency/acl/95/add/p99.9", "latency/acl/95/add/p50", 20},
    {"nat-tail", "p99.9 of a flow at 95 % of the refusal load / median", "latency/nat/95/add/p99.9",
     "latency/nat/95/add/p50", 20},
    {"acl-memory", "bytes for an ACL entry at 45 % of the rows, of pages that are touched",
     "acl/memory/touched", nullptr, 300},
    {"acl-memory-asked", "the same, as it is asked for", "acl/memory/bytes", nullptr, noAim},
    {"acl-add-libcuckoo", "program an ACL entry / libcuckoo insert", "acl/add/vela/ns",
     "acl/add/libcuckoo/ns", noAim},
    {"acl-add-unordered_map", "program an ACL entry / std::unordered_map emplace",
     "acl/add/vela/ns", "acl/add/unordered_map/ns", noAim},
};

using Figures = std::map<std::string, double>;

/// Keeps what each repetition counted, by "benchmark/counter".
class Collector final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const std::string name = withoutSuffix(run.run_name.str());
      if (run.error_occurred) {
        std::printf("%s: %s\n", name.c_str(), run.error_message.c_str());
        failed_ = true;
      } else if (run.run_type == Run::RT_Iteration) {
        for (const auto& [counter, value] : run.counters) {
          counted_[name][counter].push_back(value.value);
        }
      }
    }
    std::fputc('.', stderr);
  }
  bool failed() const { return failed_; }

  /// The medians over the repetitions; of maxima the largest. Printed line by line.
  Figures figures() const {
    Figures all;
    for (const auto& [name, counters] : counted_) {
      std::printf("  %-26s", name.c_str());
      for (const auto& [counter, counted] : counters) {
        auto values = counted;
        std::sort(values.begin(), values.end());
        const double value = counter.ends_with("max") ? values.back() : values[values.size() / 2];
        std::printf("  %s %.*f", counter.c_str(), value < 10 ? 2 : 0, value);
        all[Orb::text(name, "/", counter)] = value;
      }
      std::printf("\n");
    }
    return all;
  }

 private:
  static std::string withoutSuffix(const std::string& name) {
    return name.substr(
        0, std::min({name.find("/iterations"), name.find("/manual_time"), name.find("/repeats")}));
  }
  std::map<std::string, std::map<std::string, std::vector<double>>> counted_;
  bool failed_ = false;
};

std::optional<double> valueOf(const Ratio& ratio, const Figures& figures) {
  const auto over = figures.find(ratio.over);
  const auto under = figures.find(ratio.under ? ratio.under : ratio.over);
  if (over == figures.end() || under == figures.end()) return std::nullopt;
  return ratio.under ? over->second / under->second : over->second;
}

/// Prints the ratios that there are figures for, and gives them by name together with the
/// percentiles.
nlohmann::ordered_json report(const Figures& figures) {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  std::printf("\nRatios of this run\n");
  for (const Ratio& ratio : ratios) {
    const auto value = valueOf(ratio, figures);
    if (!value) continue;
    std::printf("  %-62s %8.2f", ratio.what, *value);
    if (ratio.aim != noAim) {
      std::printf("   aim %5g: %s", ratio.aim, *value <= ratio.aim ? "met" : "MISSED");
    }
    std::printf("\n");
    json[ratio.name] = *value;
  }
  for (const auto& [name, value] : figures) {
    if (name.starts_with("latency/")) json[name] = value;
  }
  return json;
}

}  // namespace

/// Takes the flags of the benchmark library, and two of its own before them: --quick, and
/// --json=FILE for the ratios.
int main(int argc, char** argv) {
  // Pages that were touched once stay, as DPDK's do: what the system takes to find new ones is in
  // nobody's figures.
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);

  std::vector<std::string> arguments = {argv[0], "--benchmark_enable_random_interleaving=true",
                                        "--benchmark_repetitions=15", "--benchmark_min_time=0.02"};
  std::string jsonFile;
  for (const std::string& argument : std::vector<std::string>(argv + 1, argv + argc)) {
    if (argument == "--quick") {
      arguments.insert(arguments.end(), {"--benchmark_repetitions=3", "--benchmark_min_time=0.01",
                                         "--benchmark_filter=-tool"});
    } else if (argument.starts_with("--json=")) {
      jsonFile = argument.substr(7);
    } else {
      arguments.push_back(argument);
    }
  }
  std::vector<char*> words;
  words.reserve(arguments.size());
  for (std::string& argument : arguments) words.push_back(argument.data());
  int count = static_cast<int>(words.size());
  benchmark::Initialize(&count, words.data());
  if (benchmark::ReportUnrecognizedArguments(count, words.data())) return 1;

  std::printf("%s", VelaBench::missingPeers().c_str());
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  std::printf("\nMedians\n");
  const nlohmann::ordered_json json = report(collector.figures());
  if (!jsonFile.empty()) std::ofstream(jsonFile) << json.dump(2) << '\n';
  return collector.failed() ? 1 : 0;
}
