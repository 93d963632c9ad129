#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "AuditReport.h"
#include "Report.h"
#include "agent/Profiles.h"

namespace {

using VelaAgent::Agent;
using VelaAgent::InputException;
using VelaAgent::Json;

constexpr int exitGood = 0;
constexpr int exitRefused = 1;
constexpr int exitBadInput = 2;

/// Events that are told in words unless --verbose asks for all.
constexpr U64 toldEvents = 200;

struct RunOptions {
  std::string profile = "vela-48-5.1";
  std::string device = "sim";
  std::vector<std::string> events;
  std::string rows;
  std::string writes;
  std::string status;
  std::string results;
  std::string trace;
  bool reconcile = false;
  bool json = false;
  bool keepGoing = false;
  bool explain = false;
  bool verbose = false;
};

/// Prints trace messages to standard error.
class StderrSink final : public Twinlog::Sink {
 public:
  void line(std::string_view handle, U8 level, std::string_view message) override {
    std::cerr << handle << '/' << int{level} << ": " << message << '\n';
  }
};

void throwFatal(const char* expression, const char*) {
  throw Orb::AssertionFailed(std::string("fatal assertion \"") + expression + "\"");
}

/// Sets the levels of "HANDLE[/LEVEL][,…]"; a handle may be named without its "VelaTable".
void traceIs(const std::string& levels) {
  VelaAgent::families();  // makes the handles
  std::istringstream parts(levels);
  for (std::string part; std::getline(parts, part, ',');) {
    const std::size_t slash = part.find('/');
    const std::string name = part.substr(0, slash);
    Trace::Handle* handle = Trace::Handle::find(name);
    if (!handle) handle = Trace::Handle::find("VelaTable" + name);
    if (!handle) {
      std::string known;
      for (const Trace::Handle* each : Trace::Handle::all())
        known += std::string(" ") + each->name();
      throw InputException("no trace handle \"" + name + "\"; there are:" + known);
    }
    constexpr U8 everyStep = 8;
    handle->twinlogLevelIs(slash == std::string::npos
                               ? everyStep
                               : Orb::fromText<U8>(std::string_view(part).substr(slash + 1)));
  }
}

/// A file to write to, or nothing when no name was given.
std::optional<std::ofstream> outputFile(const std::string& name) {
  if (name.empty()) return std::nullopt;
  std::ofstream file(name);
  if (!file) throw InputException("cannot write " + name);
  return file;
}

/// How far the events file is read, on a terminal.
class Progress {
 public:
  explicit Progress(const std::string& file) : on_(isatty(STDERR_FILENO) != 0 && file != "-") {
    std::error_code error;
    size_ = on_ ? std::filesystem::file_size(file, error) : 0;
    on_ = on_ && !error && size_ > minimum;
  }
  ~Progress() {
    if (on_) std::cerr << "\r\033[K";
  }
  void advance(std::size_t bytes) {
    done_ += bytes;
    if (!on_ || done_ * 100 / size_ == shown_) return;
    shown_ = done_ * 100 / size_;
    const auto filled = static_cast<int>(shown_ * 40 / 100);
    std::cerr << '\r' << '[' << std::string(filled, '=') << std::string(40 - filled, ' ') << "] "
              << shown_ << " %" << std::flush;
  }

 private:
  static constexpr std::size_t minimum = 1 << 20;  ///< Smaller files are read in no time.
  bool on_;
  std::size_t size_ = 0;
  std::size_t done_ = 0;
  std::size_t shown_ = ~std::size_t{0};
};

/// Applies all events of one input. Returns whether every line was good.
bool applyFile(const std::string& name, VelaAgent::EventRunner& runner, bool keepGoing) {
  std::ifstream file;
  if (name != "-") {
    file.open(name);
    if (!file) throw InputException("cannot read " + name);
  }
  std::istream& in = name == "-" ? std::cin : file;
  Progress progress(name);
  bool good = true;
  U64 number = 0;
  runner.warningListenerIs([&](const std::string& text) {
    std::cout << std::flush;
    std::cerr << (name == "-" ? "stdin" : name) << ':' << number << ": warning: " << text << '\n';
  });
  for (std::string line; std::getline(in, line);) {
    ++number;
    progress.advance(line.size() + 1);
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    const auto report = [&](const std::exception& error) {
      std::cout << std::flush;
      std::cerr << (name == "-" ? "stdin" : name) << ':' << number << ": " << error.what() << '\n';
      good = false;
    };
    try {
      runner.apply(line);
    } catch (const Orb::AssertionFailed& error) {
      // The tables are not to be used any more.
      report(error);
      return false;
    } catch (const std::exception& error) {
      report(error);
      if (!keepGoing) return false;
    }
  }
  return good;
}

/// The switch of a --device option. One that is to be looked at must be there already.
VelaDevice::SimulatedSwitch openDevice(const std::string& device, bool existing = false) {
  if (device == "sim" && !existing) return {};
  if (!device.starts_with("sim:")) {
    throw InputException(std::string("--device is ") + (existing ? "" : "\"sim\" or ") +
                         "\"sim:FILE\", not \"" + device + "\"");
  }
  const std::string file = device.substr(4);
  if (existing && !std::filesystem::exists(file)) throw InputException("cannot read " + file);
  try {
    return VelaDevice::SimulatedSwitch(VelaDevice::Memory(file));
  } catch (const VelaDevice::ImageException& error) {
    throw InputException(file + ": " + error.what());
  }
}

int run(const RunOptions& options) {
  StderrSink traceSink;
  Twinlog::sinkIs(&traceSink);
  if (!options.trace.empty()) traceIs(options.trace);
  const auto profile = VelaAgent::loadProfile(options.profile);

  VelaDevice::SimulatedSwitch chip = openDevice(options.device);
  const bool restart = chip.used();
  auto rows = outputFile(options.rows);
  auto writes = outputFile(options.writes);
  auto statuses = outputFile(options.status);
  auto results = outputFile(options.results);

  const auto begin = std::chrono::steady_clock::now();
  Agent agent(profile, chip);
  VelaAgent::EventRunner runner(agent);
  U64 sequence = 0;
  bool applying = true;  // writes are some event's
  if (writes) {
    agent.recorder().listenerIs([&](const auto& write) {
      const U64 event = applying ? runner.eventNumber() : 0;
      *writes << VelaTool::writeLine(agent, ++sequence, event, write).dump() << '\n';
    });
  }
  agent.make();
  agent.start(restart ? Agent::Start::restart : Agent::Start::fresh);
  VelaTool::RunFigures figures;
  figures.startRowWrites = agent.recorder().rowWrites();

  runner.explainIs(options.explain);
  runner.resultListenerIs([&](const Json& line) {
    (results ? static_cast<std::ostream&>(*results) : std::cout) << line.dump() << '\n';
  });
  if (!options.json) {
    runner.storyListenerIs([&](const std::string& event, const std::string& sentence) {
      const U64 number = runner.eventNumber();
      if (options.verbose || number <= toldEvents) {
        std::cout << event << "\n    " << sentence << '\n';
      } else if (number == toldEvents + 1) {
        std::cout << "(events from here on are told with --verbose)\n";
      }
    });
  }

  bool good = true;
  for (const std::string& file : options.events) {
    good = applyFile(file, runner, options.keepGoing) && good;
    if (!good && !options.keepGoing) break;
  }
  // A desired state that was not read to its end says nothing of what is not desired.
  if (restart && good) {
    applying = false;
    agent.complete();
    applying = true;
  }
  if (options.reconcile && good) figures.reconciled = agent.reconcile();

  figures.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  figures.events = runner.eventNumber();
  figures.refused = runner.refused();
  figures.unmet = runner.unmet();
  if (rows) VelaTool::writeRows(*rows, agent);
  if (statuses) VelaTool::writeStatuses(*statuses, agent);
  if (options.json) {
    std::cout << VelaTool::summaryJson(agent, figures).dump() << '\n';
  } else {
    VelaTool::writeSummary(std::cout, agent, figures);
  }
  if (!good) return exitBadInput;
  return figures.refused > 0 || figures.unmet > 0 ? exitRefused : exitGood;
}

/// Prints what a saved switch holds, as events that would announce it.
int decode(const RunOptions& options, const std::string& name) {
  const auto profile = VelaAgent::loadProfile(options.profile);
  const VelaDevice::SimulatedSwitch saved = openDevice(options.device, true);
  VelaDevice::SimulatedSwitch chip(saved);
  Agent agent(profile, chip);
  agent.make();
  agent.decode();
  return VelaTool::writeEntries(std::cout, std::cerr, agent, name) ? exitGood : exitRefused;
}

/// Compares a saved switch with what events desire.
int audit(const RunOptions& options, bool repair) {
  const auto profile = VelaAgent::loadProfile(options.profile);
  VelaDevice::SimulatedSwitch saved = openDevice(options.device, true);
  std::optional<VelaDevice::SimulatedSwitch> copy;
  if (!repair) copy.emplace(saved);
  Agent agent(profile, copy ? *copy : saved);
  agent.make();
  agent.desireBegin();
  VelaAgent::EventRunner runner(agent);
  runner.desiresOnlyIs(true);
  for (const std::string& file : options.events) {
    if (!applyFile(file, runner, options.keepGoing)) return exitBadInput;
  }
  agent.desireEnd();

  VelaTool::AuditReport report(std::cout, options.json, options.verbose);
  for (const auto& table : agent.tables()) report.audit(*table);
  if (repair) {
    for (const auto& table : agent.tables()) table->repair();
    for (const auto& table : agent.tables()) table->audit();
  }
  report.finish(agent, repair);
  return report.found() == 0 ? exitGood : exitRefused;
}

int profiles(const std::string& name) {
  if (!name.empty()) {
    std::cout << VelaAgent::profileToJson(*VelaAgent::loadProfile(name)).dump(2) << '\n';
    return exitGood;
  }
  for (const auto& profile : VelaSwitch::ProfileInfo::builtIns()) {
    std::cout << profile->name() << ": " << profile->ports() << " ports, " << profile->vrfs()
              << " VRFs, hardware interface " << profile->hwApi().major() << '.'
              << profile->hwApi().minor() << ", register format "
              << profile->registerFormat().major() << '.' << profile->registerFormat().minor()
              << ", " << profile->pipelines() << " ingress pipeline"
              << (profile->pipelines() == 1 ? "" : "s") << '\n';
  }
  return exitGood;
}

/// Turns a list of prefixes, "a.b.c.d/len" and perhaps a next hop's number a line, into events that
/// announce them. Prefixes without a number take the next hops in turn.
int routes(const std::string& file, U32 vrf, U32 nexthops) {
  std::ifstream in(file);
  if (!in) throw InputException("cannot read " + file);
  U64 lineNumber = 0;
  U64 routeNumber = 0;
  std::string text;
  const auto fail = [&](const std::string& what) {
    std::cout << std::flush;
    std::cerr << file << ':' << lineNumber << ": " << what << '\n';
    return exitBadInput;
  };
  while (std::getline(in, text)) {
    ++lineNumber;
    std::istringstream line(text);
    std::string prefix;
    std::string number;
    std::string rest;
    line >> prefix >> number >> rest;
    if (prefix.empty() || prefix.starts_with('#')) continue;
    if (!rest.empty()) return fail("expected \"a.b.c.d/len\" and at most one number");
    try {
      const U64 nexthop = number.empty() ? routeNumber % nexthops : Orb::fromText<U64>(number);
      ++routeNumber;
      const Json event = {
          {"op", "set"},
          {"table", "Route"},
          {"key", {{"vrf", vrf}, {"prefix", Orb::text(Orb::fromText<Ipnet::IpPrefix>(prefix))}}},
          {"result", VelaAgent::toJson(VelaAgent::nexthopOfNumber(nexthop))}};
      std::cout << event.dump() << '\n';
    } catch (const std::exception& error) {
      return fail(error.what());
    }
  }
  return exitGood;
}

/// Makes the tables of a profile without starting them, and lets `print` look at them.
int describe(const std::string& profile, const std::function<void(const Agent&)>& print) {
  VelaDevice::SimulatedSwitch chip;
  Agent agent(VelaAgent::loadProfile(profile), chip);
  agent.make();
  print(agent);
  return exitGood;
}

}  // namespace

int main(int argc, char** argv) {
  Orb::assertHandlerIs(throwFatal);
  CLI::App app{"velatable: runs the table layer of a switch from an events file"};
  app.require_subcommand(1);

  RunOptions options;
  CLI::App* runCommand = app.add_subcommand(
      "run", "start every table of the profile, apply the events, print a summary");
  runCommand->add_option("events", options.events,
                         "files of events, JSON lines; - is standard input");
  runCommand->add_option("--profile", options.profile, "built-in profile or JSON file")
      ->capture_default_str();
  runCommand
      ->add_option("--device", options.device,
                   "sim, or sim:FILE to keep the switch; an existing FILE is a restart")
      ->capture_default_str();
  runCommand->add_flag("--reconcile", options.reconcile,
                       "the events are all that is desired: remove what else FILE held");
  runCommand->add_option("--rows", options.rows, "write the rows at the end to this file");
  runCommand->add_option("--writes", options.writes, "write every row write to this file");
  runCommand->add_option("--status", options.status, "write the entries' status to this file");
  runCommand->add_option("--results", options.results,
                         "write lookups, audits and refusals to this file, not to standard output");
  runCommand->add_option("--trace", options.trace, "HANDLE[/LEVEL][,…]: trace to standard error");
  runCommand->add_flag("--json", options.json, "print the summary as one JSON object");
  runCommand->add_flag("--keep-going", options.keepGoing, "report a bad event and go on");
  runCommand->add_flag("--explain", options.explain, "list what a refused entry competes with");
  runCommand->add_flag("-v,--verbose", options.verbose, "tell what every event did");

  std::string name;
  CLI::App* decodeCommand = app.add_subcommand(
      "decode", "print the entries that a saved switch holds, from its registers alone");
  decodeCommand->add_option("table", name, "table; all of them when none is named");
  CLI::App* auditCommand = app.add_subcommand(
      "audit", "compare a saved switch with what events desire; exit code 1 when they differ");
  auditCommand->add_option("--events", options.events, "files of events, JSON lines")->required();
  bool repair = false;
  auditCommand->add_flag("--repair", repair, "write the rows that differ");
  auditCommand->add_flag("--json", options.json, "print findings and summary as JSON lines");
  auditCommand->add_flag("--keep-going", options.keepGoing, "report a bad event and go on");
  auditCommand->add_flag("-v,--verbose", options.verbose, "print every finding");
  for (CLI::App* command : {decodeCommand, auditCommand}) {
    command->add_option("--device", options.device, "sim:FILE, the saved switch")->required();
    command->add_option("--profile", options.profile, "built-in profile or JSON file")
        ->capture_default_str();
  }
  CLI::App* profilesCommand =
      app.add_subcommand("profiles", "list the built-in profiles, or print one as JSON");
  profilesCommand->add_option("name", name, "profile");
  CLI::App* tablesCommand = app.add_subcommand("tables", "list the tables of a profile");
  CLI::App* layoutCommand = app.add_subcommand("layout", "print the row layout of a table");
  layoutCommand->add_option("table", name, "table")->required();
  std::string routesFile;
  U32 vrf = 0;
  U32 nexthops = VelaAgent::nexthopNumbers;
  CLI::App* routesCommand =
      app.add_subcommand("routes", "turn a list of prefixes into Route events");
  routesCommand
      ->add_option("file", routesFile, "lines of a.b.c.d/len, optionally with a next hop's number")
      ->required();
  routesCommand->add_option("--vrf", vrf, "the routes' VRF")
      ->check(CLI::Range(0, 255))
      ->capture_default_str();
  routesCommand
      ->add_option("--nexthops", nexthops, "how many next hops the routes without one share")
      ->check(CLI::Range(U32{1}, VelaAgent::nexthopNumbers))
      ->capture_default_str();
  for (CLI::App* command : {tablesCommand, layoutCommand}) {
    command->add_option("--profile", options.profile, "built-in profile or JSON file")
        ->capture_default_str();
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? exitGood : exitBadInput;
  }
  if (options.events.empty()) options.events.push_back("-");

  try {
    if (*runCommand) return run(options);
    if (*decodeCommand) return decode(options, name);
    if (*auditCommand) return audit(options, repair);
    if (*profilesCommand) return profiles(name);
    if (*routesCommand) return routes(routesFile, vrf, nexthops);
    if (*tablesCommand) {
      return describe(options.profile,
                      [](const Agent& agent) { VelaTool::writeTables(std::cout, agent); });
    }
    return describe(options.profile, [&](const Agent& agent) {
      const auto* table = agent.table(name, 0).hardware();
      if (!table) throw InputException("table " + name + " has no rows of its own");
      VelaTool::writeLayout(std::cout, agent, *table);
    });
  } catch (const std::exception& error) {
    std::cout << std::flush;
    std::cerr << "velatable: " << error.what() << '\n';
    return exitBadInput;
  }
}
