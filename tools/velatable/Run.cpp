#include <unistd.h>

#include <chrono>
#include <iostream>

#include "Commands.h"
#include "Diff.h"
#include "Input.h"
#include "Report.h"
#include "agent/Profiles.h"

namespace VelaTool {

using VelaAgent::Agent;
using VelaAgent::InputException;
using VelaAgent::Json;

namespace {

/// Events that are told in words unless --verbose asks for all.
constexpr U64 toldEvents = 200;

/// Prints trace messages to standard error.
class StderrSink final : public Twinlog::Sink {
 public:
  void line(std::string_view handle, U8 level, std::string_view message) override {
    std::cerr << handle << '/' << int{level} << ": " << message << '\n';
  }
};

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

/// Where a run writes. Lines of JSON and prose never go to one stream: where results go to standard
/// output, the summary is one of them and nothing else is said there.
struct Outputs {
  explicit Outputs(const Options& options) {
    const bool toOut = options.results == "-" ||
                       (options.results.empty() && (options.json || isatty(STDOUT_FILENO) == 0));
    if (!toOut) file = outputFile(options.results);
    results = file ? &*file : toOut ? &std::cout : nullptr;
    json = options.json || toOut;
  }
  std::optional<std::ofstream> file;
  std::ostream* results = nullptr;  ///< Null where a person reads along.
  bool json = false;
};

/// Tells what events did, up to a number of them.
class Story {
 public:
  Story(std::ostream& out, bool everything) : out_(out), everything_(everything) {}
  void operator()(const std::string& event, const std::string& sentence) {
    ++told_;
    if (everything_ || told_ <= toldEvents) {
      out_ << event << "\n    " << sentence << '\n';
    } else if (told_ == toldEvents + 1) {
      out_ << "(events from here on are told with --verbose)\n";
    }
  }

 private:
  std::ostream& out_;
  bool everything_;
  U64 told_ = 0;
};

}  // namespace

int run(const Options& options) {
  StderrSink traceSink;
  Twinlog::sinkIs(&traceSink);
  if (!options.trace.empty()) traceIs(options.trace);
  const auto profile = VelaAgent::loadProfile(options.profile);
  checkFiles(options);

  VelaDevice::SimulatedSwitch chip =
      options.dryRun ? openCopy(options.device) : openDevice(options.device);
  std::optional<VelaDevice::SimulatedSwitch> untouched;
  if (options.dryRun) untouched.emplace(chip);
  const bool restart = chip.used();
  auto rows = outputFile(options.rows);
  auto writes = outputFile(options.writes);
  auto statuses = outputFile(options.status);
  Outputs outputs(options);

  const auto begin = std::chrono::steady_clock::now();
  Agent agent(profile, chip);
  agent.make();
  VelaAgent::EventRunner runner(agent);
  U64 sequence = 0;
  bool applying = false;  // writes are some event's
  if (writes) {
    agent.recorder().listenerIs([&](const auto& write) {
      const U64 event = applying ? runner.eventNumber() : 0;
      *writes << writeLine(agent, ++sequence, event, write).dump() << '\n';
    });
  }
  agent.start(restart ? Agent::Start::restart : Agent::Start::fresh);
  if (restart) tellDamage(std::cerr, agent, options.verbose);
  RunFigures figures;
  figures.dryRun = options.dryRun;
  figures.startRowWrites = agent.recorder().rowWrites();

  runner.explainIs(options.explain);
  runner.warnOfRepeatsIs(options.verbose);
  runner.resultListenerIs([&](const Json& line) {
    if (outputs.results) *outputs.results << line.dump() << '\n';
  });
  if (!outputs.json && options.dryRun) {
    std::cout << "Dry run: this is what the events would do.\n\n";
  }
  if (!outputs.json) runner.storyListenerIs(Story(std::cout, options.verbose));

  applying = true;
  bool good = true;
  const std::vector<std::string> standardInput{"-"};
  for (const std::string& file : options.events.empty() ? standardInput : options.events) {
    good = applyFile(file, runner, options.keepGoing) && good;
    if (!good && !options.keepGoing) break;
  }
  // What follows is nobody's announcement; a desired state that was not read to its end says
  // nothing of what is not desired.
  applying = false;
  if (restart && good) runner.complete();
  if (!options.reconcile.empty()) {
    const char* refusal =
        !good ? "not all events could be read"
        : agent.announcedEntries() == 0 && options.reconcile != allowEmpty
            ? "the events announce no entry, and all would go (--reconcile=empty if that is meant)"
            : nullptr;
    if (refusal) {
      good = false;
      std::cout << std::flush;
      std::cerr << "velatable: nothing is reconciled: " << refusal << '\n';
    } else {
      figures.reconciled = runner.reconcile();
    }
  }

  figures.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  figures.events = runner.eventNumber();
  figures.repeats = runner.repeats();
  figures.refusals = runner.refusals();
  figures.admissions = runner.admissions();
  figures.refused = runner.refused();
  figures.unmet = runner.unmet();
  if (rows) writeRows(*rows, agent, options.allRows);
  if (statuses) writeStatuses(*statuses, agent);
  if (untouched) {
    if (!outputs.json) std::cout << "\nThe run would change this:\n";
    std::ostream& lines = outputs.json && outputs.results ? *outputs.results : std::cout;
    SwitchDiff(profile, *untouched, chip).tell(lines, outputs.json, options.verbose);
  }
  if (outputs.json) {
    std::cout << summaryJson(agent, figures).dump() << '\n';
  } else {
    writeSummary(std::cout, agent, figures);
  }
  for (const auto& [file, name] : {std::pair{&rows, &options.rows},
                                   {&writes, &options.writes},
                                   {&statuses, &options.status},
                                   {&outputs.file, &options.results}}) {
    if (*file) finish(**file, *name);
  }
  if (!good) return exitBadInput;
  return figures.refusals > 0 || figures.unmet > 0 ? exitRefused : exitGood;
}

}  // namespace VelaTool
