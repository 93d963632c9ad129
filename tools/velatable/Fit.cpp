#include "agent/Fit.h"

#include <filesystem>
#include <iostream>
#include <set>

#include "Commands.h"
#include "Format.h"
#include "Input.h"
#include "agent/Explain.h"
#include "agent/Profiles.h"
#include "agent/TableAudit.h"

namespace VelaTool {

using VelaAgent::FitMeter;
using VelaAgent::Misfit;
using VelaAgent::TableFit;

namespace {

/// What files desire of a switch that there is not.
struct DesiredSwitch {
  DesiredSwitch(const Profile& profile, const Options& options) : agent(profile, chip) {
    agent.desireBegin();
    EventRunner runner(agent);
    runner.desiresOnlyIs(true);
    good = applyFiles(options, runner, Form::eventsOrPrefixes);
    refused = runner.refused();
  }

  SimulatedSwitch chip;
  MadeAgent agent;
  bool good;
  U64 refused;
};

double percent(double share) { return 100 * share; }

Json fitLine(const TableAdapter& table, const TableFit& fit) {
  Json line = tableLine(table);
  line["entries"] = fit.entries;
  line["refused"] = fit.refused;
  if (fit.capacity == 0) return line;
  line["taken"] = fit.taken;
  line["capacity"] = fit.capacity;
  line["load"] = fit.load();
  if (fit.randomLoad) line["randomLoad"] = *fit.randomLoad;
  line["headRoom"] = fit.headRoom();
  return line;
}

std::string fitWords(const TableAdapter& table, const TableFit& fit) {
  const auto number = [](U64 value) { return static_cast<unsigned long long>(value); };
  std::string line = format("  %-20s %8llu", table.fullName().c_str(), number(fit.entries));
  if (fit.capacity == 0) {
    if (fit.refused != 0) line += format("%45s", "");
  } else {
    line += format(" %8llu %8llu %5.1f%%", number(fit.taken), number(fit.capacity),
                   percent(fit.load()));
    line += fit.randomLoad ? format(" %8.1f%%", percent(*fit.randomLoad)) : format(" %9s", "-");
    line += format(" %9llu", number(fit.headRoom()));
  }
  return line + (fit.refused == 0 ? "" : format(" %8llu", number(fit.refused))) + '\n';
}

/// Tells of the entries that have no place, and proves it. Entries that lack the same rows share
/// the proof, which is told once.
class MisfitReport {
 public:
  MisfitReport(const Agent& agent, const Options& options) : agent_(agent), options_(options) {}

  void tell(const TableAdapter& table) {
    const std::size_t most = options_.verbose ? ~std::size_t{0} : toldMisfits;
    for (const Misfit& misfit : VelaAgent::misfits(agent_, table, most)) tell(table, misfit);
    if (most >= table.refused() || options_.json) return;
    std::cout << table.fullName() << ": " << table.refused() - most
              << " more are told with --verbose\n";
  }

 private:
  static constexpr std::size_t toldMisfits = 3;
  static constexpr std::size_t toldKeys = 8;
  using Rows = std::vector<std::pair<const VelaSwitchApi::SwTable*, HwIndex>>;

  void tell(const TableAdapter& table, const Misfit& misfit) {
    const auto* level = table.levelOf(misfit.key);
    auto competing = table.competing(misfit.key);
    std::sort(competing.begin(), competing.end(),
              [](const auto& a, const auto& b) { return a.index < b.index; });
    Rows rows;
    for (const auto& each : competing) rows.emplace_back(each.table, each.index);
    const auto [at, isNew] = sets_.try_emplace(std::move(rows), sets_.size() + 1);
    Json line = tableLine(table);
    line["key"] = table.keyToJson(misfit.key);
    line["status"] = VelaSwitchApi::nameOf(misfit.status);
    if (level) line["level"] = level->name();
    if (!competing.empty()) {
      line["competing"] = VelaAgent::competingLine(competing.size() + 1);
      line["competing"]["set"] = at->second;
    }
    if (options_.json) {
      if (!competing.empty() && isNew) {
        std::cout << Json{{"set", at->second}, {"keys", keysOf(table, competing)}}.dump() << '\n';
      }
      std::cout << line.dump() << '\n';
      return;
    }
    std::cout << table.fullName() << ' ' << line["key"].dump() << " has no place"
              << (level ? " in " + level->name() : "") << ": ";
    if (competing.empty()) {
      std::cout << line["status"].get<std::string>() << '\n';
      return;
    }
    std::cout << VelaAgent::competingText(competing.size() + 1) << " (set " << at->second << ")\n";
    if (isNew) tellSet(at->second, keysOf(table, competing));
  }

  void tellSet(std::size_t number, const Json& keys) const {
    std::cout << "    set " << number << ", of which any one less would do:";
    std::size_t told = 0;
    for (const Json& key : keys) {
      if (told++ == toldKeys && !options_.verbose) {
        std::cout << "\n      … " << keys.size() - toldKeys << " more with --verbose";
        break;
      }
      std::cout << "\n      " << (key.size() == 1 ? key.front() : key).dump();
    }
    std::cout << '\n';
  }

  /// What each of the rows holds: a list, since routes may share one.
  Json keysOf(const TableAdapter& table,
              const std::vector<VelaSwitchApi::Competitor>& competing) const {
    Json keys = Json::array();
    for (const auto& each : competing) keys.push_back(announcedAt(agent_, table, each));
    return keys;
  }

  const Agent& agent_;
  const Options& options_;
  std::map<Rows, std::size_t> sets_;
};

/// What a profile comes to, with the table that is fullest.
Json profileLine(const Agent& agent, U64 refused, FitMeter& meter) {
  Json line = {{"profile", agent.profile().name()}, {"fits", refused == 0}, {"refused", refused}};
  const TableAdapter* fullest = nullptr;
  TableFit most{};
  for (const TableAdapter* table : agent.announced()) {
    const TableFit fit = meter.measure(*table);
    if (fit.entries == 0 || fit.capacity == 0 || (fullest && fit.load() <= most.load())) continue;
    fullest = table;
    most = fit;
  }
  if (fullest) line["fullest"] = fitLine(*fullest, most);
  return line;
}

int tellOne(const DesiredSwitch& desired, const Options& options, FitMeter& meter) {
  const Agent& agent = desired.agent;
  const Json sum = profileLine(agent, desired.refused, meter);
  if (!options.json) {
    std::cout << "Profile " << agent.profile().name() << ": "
              << (desired.refused == 0
                      ? "all fits\n"
                      : std::to_string(desired.refused) + " entries have no place\n")
              << format("  %-20s %8s %8s %8s %6s %9s %9s %8s\n", "table", "entries", "taken",
                        "capacity", "load", "random to", "head room", "no place");
  }
  for (const TableAdapter* table : agent.announced()) {
    if (table->entries() == 0) continue;
    const TableFit fit = meter.measure(*table);
    if (options.json) {
      std::cout << fitLine(*table, fit).dump() << '\n';
    } else {
      std::cout << fitWords(*table, fit);
    }
  }
  MisfitReport report(agent, options);
  for (const TableAdapter* table : agent.announced()) report.tell(*table);
  if (options.json) std::cout << sum.dump() << '\n';
  return desired.refused == 0 ? exitGood : exitRefused;
}

/// A profile whose switch lacks what the events name has no place for them either, unless it is
/// like that in all.
int tellAll(const Options& options, FitMeter& meter) {
  for (const std::string& file : options.events) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file, error)) {
      throw InputException(file + " can be read only once, and --all-profiles reads it again");
    }
  }
  bool fits = true;
  bool good = false;
  if (!options.json) {
    std::cout << format("%-14s %-5s %8s  %-20s %6s %9s %9s\n", "profile", "fits", "no place",
                        "fullest table", "load", "random to", "head room");
  }
  for (const auto& profile : VelaSwitch::ProfileInfo::builtIns()) {
    const DesiredSwitch desired(profile, options);
    Json line = {{"profile", profile->name()}, {"fits", false}};
    if (desired.good) line = profileLine(desired.agent, desired.refused, meter);
    good = good || desired.good;
    fits = fits && line["fits"];
    if (options.json) {
      std::cout << line.dump() << '\n' << std::flush;
      continue;
    }
    std::cout << format("%-14s %-5s", profile->name().c_str(),
                        !desired.good  ? "bad"
                        : line["fits"] ? "yes"
                                       : "no");
    if (desired.good) {
      std::cout << format(" %8llu", line["refused"].get<unsigned long long>());
    }
    if (line.contains("fullest")) {
      const Json& fullest = line["fullest"];
      const std::string name =
          fullest["table"].get<std::string>() + "/" + fullest["instance"].dump();
      std::cout << format("  %-20s %5.1f%%", name.c_str(), percent(fullest["load"]))
                << (fullest.contains("randomLoad")
                        ? format(" %8.1f%%", percent(fullest["randomLoad"]))
                        : format(" %9s", "-"))
                << format(" %9llu", fullest["headRoom"].get<unsigned long long>());
    }
    std::cout << '\n' << std::flush;
  }
  if (!good) return exitBadInput;
  return fits ? exitGood : exitRefused;
}

}  // namespace

int fit(const Options& options) {
  checkFiles(options);
  FitMeter meter;
  if (options.allProfiles) return tellAll(options, meter);
  const DesiredSwitch desired(VelaAgent::loadProfile(options.profile), options);
  if (!desired.good) return exitBadInput;
  return tellOne(desired, options, meter);
}

}  // namespace VelaTool
