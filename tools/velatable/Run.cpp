#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <iostream>
#include <memory>

#include "Commands.h"
#include "Diff.h"
#include "Input.h"
#include "Orb/Sanitizer.h"
#include "Report.h"
#include "agent/Profiles.h"
#include "agent/Registry.h"

namespace VelaTool {

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
      for (const Trace::Handle* each : Trace::Handle::all()) (known += ' ') += each->name();
      throw InputException(Orb::text("no trace handle \"", name, "\"; there are:", known));
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

/// Hands lines to a file in large blocks, each of which is written beside what makes the next.
class LineWriter {
 public:
  explicit LineWriter(std::ostream& file) : file_(file) {}
  ~LineWriter() { finish(); }
  LineWriter(const LineWriter&) = delete;
  LineWriter& operator=(const LineWriter&) = delete;

  void add(const std::string& line) {
    constexpr std::size_t blockSize = 1 << 17;
    (lines_ += line) += '\n';
    if (lines_.size() < blockSize) return;
    if (writing_.valid()) writing_.get();
    written_.swap(lines_);
    lines_.clear();
    writing_ = std::async([this] { file_ << written_; });
  }
  /// The file has all lines then.
  void finish() {
    if (writing_.valid()) writing_.get();
    file_ << lines_;
    lines_.clear();
  }

 private:
  std::ostream& file_;
  std::string lines_;
  std::string written_;  ///< While it is.
  std::future<void> writing_;
};

/// Tells what events did, up to a number of them.
class Story {
 public:
  Story(std::ostream& out, bool everything) : out_(out), everything_(everything) {}
  /// Whether there is more to tell.
  bool operator()(const std::string& event, const std::string& sentence) {
    if (everything_ || told_++ < toldEvents) {
      out_ << event << "\n    " << sentence << '\n';
      return true;
    }
    out_ << "(events from here on are told with --verbose)\n";
    return false;
  }

 private:
  std::ostream& out_;
  bool everything_;
  U64 told_ = 0;
};

/// One run on a device.
class Run {
 public:
  explicit Run(const Options& options);
  /// Applies the events and tells what came of them; returns the exit code.
  int operator()();

 private:
  void start();
  void tellEvents();
  bool applyEvents();
  bool reconcile(bool good);
  void takeFigures();
  void report();
  void finishFiles();

  const Options& options_;
  Profile profile_ = VelaAgent::loadProfile(options_.profile);
  SimulatedSwitch chip_;
  std::optional<SimulatedSwitch> untouched_;  ///< Of a dry run: the device as it was.
  bool restart_ = chip_.used();
  std::optional<std::ofstream> rows_ = outputFile(options_.rows);
  std::optional<std::ofstream> writes_ = outputFile(options_.writes);
  std::optional<std::ofstream> statuses_ = outputFile(options_.status);
  Outputs outputs_{options_};
  std::optional<LineWriter> resultLines_;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  MadeAgent agent_{profile_, chip_};
  EventRunner runner_{agent_};
  RunFigures figures_;
  U64 sequence_ = 0;       ///< Row writes that were told.
  bool applying_ = false;  ///< Writes are some event's.
};

SimulatedSwitch deviceOf(const Options& options) {
  checkFiles(options);
  return options.dryRun ? openCopy(options.device) : openDevice(options.device);
}

Run::Run(const Options& options) : options_(options), chip_(deviceOf(options)) {
  if (options_.dryRun) untouched_.emplace(chip_);
}

void Run::start() {
  if (writes_) {
    agent_.recorder().listenerIs([this](const auto& write) {
      const U64 event = !applying_    ? 0
                        : write.entry ? runner_.eventNumber(*write.entry)
                                      : runner_.eventNumber();
      writeWrite(*writes_, agent_, ++sequence_, event, write);
    });
  }
  agent_.start(restart_ ? Agent::Start::restart : Agent::Start::fresh);
  if (restart_) tellDamage(std::cerr, agent_, options_.verbose);
  figures_.dryRun = options_.dryRun;
  figures_.startRowWrites = agent_.recorder().rowWrites();
}

void Run::tellEvents() {
  runner_.explainIs(options_.explain);
  runner_.warnOfRepeatsIs(options_.verbose);
  const bool ahead =
      !options_.events.empty() &&
      std::all_of(options_.events.begin(), options_.events.end(),
                  [](const auto& name) { return std::filesystem::is_regular_file(name); });
  // Where events are waited for, so may their results be.
  if (outputs_.file && ahead) {
    LineWriter& lines = resultLines_.emplace(*outputs_.file);
    runner_.resultListenerIs([&lines](const std::string& line) { lines.add(line); });
  } else if (outputs_.results) {
    runner_.resultListenerIs(
        [&out = *outputs_.results](const std::string& line) { out << line << '\n'; });
  }
  if (outputs_.json) return;
  if (options_.dryRun) std::cout << "Dry run: this is what the events would do.\n\n";
  runner_.storyListenerIs(Story(std::cout, options_.verbose));
}

bool Run::applyEvents() {
  applying_ = true;
  bool good = true;
  const std::vector<std::string> standardInput{"-"};
  for (const std::string& file : options_.events.empty() ? standardInput : options_.events) {
    good = applyFile(file, options_, runner_) && good;
    if (!good && !options_.keepGoing) break;
  }
  // What follows is nobody's announcement; a desired state that was not read to its end says
  // nothing of what is not desired.
  applying_ = false;
  if (restart_ && good) runner_.complete();
  return good;
}

/// Returns whether all is good still.
bool Run::reconcile(bool good) {
  if (options_.reconcile.empty()) return good;
  const char* refusal =
      !good ? "not all events could be read"
      : agent_.announcedEntries() == 0 && options_.reconcile != allowEmpty
          ? "the events announce no entry, and all would go (--reconcile=empty if that is meant)"
          : nullptr;
  if (refusal) {
    std::cout << std::flush;
    std::cerr << "velatable: nothing is reconciled: " << refusal << '\n';
    return false;
  }
  figures_.reconciled = runner_.reconcile();
  return true;
}

void Run::takeFigures() {
  const auto end = std::chrono::steady_clock::now();
  figures_.seconds = std::chrono::duration<double>(end - begin_).count();
  figures_.events = runner_.eventNumber();
  figures_.repeats = runner_.repeats();
  figures_.refusals = runner_.refusals();
  figures_.admissions = runner_.admissions();
  figures_.refused = runner_.refused();
  figures_.unmet = runner_.unmet();
}

void Run::report() {
  if (rows_) writeRows(*rows_, agent_, options_.allRows);
  if (statuses_) writeStatuses(*statuses_, agent_);
  if (untouched_) {
    if (!outputs_.json) std::cout << "\nThe run would change this:\n";
    std::ostream& lines = outputs_.json && outputs_.results ? *outputs_.results : std::cout;
    SwitchDiff(profile_, *untouched_, chip_).tell(lines, outputs_.json, options_.verbose);
  }
  if (outputs_.json) {
    std::cout << summaryJson(agent_, figures_).dump() << '\n';
  } else {
    writeSummary(std::cout, agent_, figures_);
  }
}

void Run::finishFiles() {
  for (const auto& [file, name] : {std::pair{&rows_, &options_.rows},
                                   {&writes_, &options_.writes},
                                   {&statuses_, &options_.status},
                                   {&outputs_.file, &options_.results}}) {
    if (*file) finish(**file, *name);
  }
}

int Run::operator()() {
  start();
  tellEvents();
  const bool good = reconcile(applyEvents());
  if (resultLines_) resultLines_->finish();
  takeFigures();
  report();
  finishFiles();
  if (!good) return exitBadInput;
  return figures_.refusals > 0 || figures_.unmet > 0 ? exitRefused : exitGood;
}

}  // namespace

int run(const Options& options) {
  if (!options.connect.empty()) return runLive(options);
  StderrSink traceSink;
  Twinlog::sinkIs(&traceSink);
  if (!options.trace.empty()) traceIs(options.trace);
  auto whole = std::make_unique<Run>(options);
  const int ended = (*whole)();
  // All files are written. The tables' memory goes with the process, faster than record by record,
  // unless somebody is to see that nothing else was left.
  if (!Orb::addressSanitizer) static_cast<void>(whole.release());
  return ended;
}

}  // namespace VelaTool
