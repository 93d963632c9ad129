#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <functional>
#include <iostream>

#include "Commands.h"
#include "Completion.h"
#include "Input.h"
#include "Orb/Assert.h"
#include "agent/RouteEntries.h"
#include "tools/manual/Manual.h"

namespace {

using namespace VelaTool;

constexpr const char* connectAbout = "PATH, the control socket of a running velad";

void throwFatal(const char* expression, const char*) {
  throw Orb::AssertionFailed(std::string("fatal assertion \"") + expression + "\"");
}

/// Whoever starts the tool may have closed its standard streams. A file that took their place would
/// get what is meant for them, and one of them may be the switch.
void standardStreamsAreOpen() {
  int last = 0;
  while ((last = open("/dev/null", O_RDWR)) >= 0 && last <= STDERR_FILENO) {
  }
  if (last > STDERR_FILENO) close(last);
}

/// A command that there is not gets a better word than that an argument was not expected.
void refuseUnknownCommand(const CLI::App& app, int argc, char** argv) {
  if (argc < 2 || argv[1][0] == '-') return;
  std::vector<std::string> names;
  std::string list;
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    if (command->get_name() == argv[1]) return;
    if (command->get_group().empty()) continue;
    names.push_back(command->get_name());
    list += " " + command->get_name();
  }
  throw VelaAgent::InputException(std::string("unknown command \"") + argv[1] + "\"" +
                                  VelaAgent::suggestion(argv[1], names) + "; there are:" + list);
}

/// The command line: the commands, and what each is told.
class CommandLine {
 public:
  CommandLine();
  /// Reads the arguments; returns an exit code when that is all.
  std::optional<int> parse(int argc, char** argv);
  /// Carries out the command.
  int operator()() const;

 private:
  using Action = std::function<int()>;
  using Commands = std::initializer_list<CLI::App*>;

  CLI::App* add(const char* name, const char* description, Action action) {
    CLI::App* command = app_.add_subcommand(name, description);
    actions_.emplace_back(command, std::move(action));
    return command;
  }
  CLI::App* addRun();
  CLI::App* addDecode();
  CLI::App* addLookup();
  CLI::App* addShow();
  CLI::App* addAudit();
  CLI::App* addDiff();
  CLI::App* addFit();
  CLI::App* addWhy();
  CLI::App* addReport();
  CLI::App* addLayout();
  void addStreams();
  void addRoutes();
  void addManual();
  void addLive();
  void connectable(CLI::App& command, const std::vector<std::string>& options);

  CLI::App app_{"run the table layer of a switch from events, and look at what it holds",
                "velatable"};
  std::vector<std::pair<CLI::App*, Action>> actions_;
  Options options_;
  std::string name_;
  std::string key_;
  std::string kind_;
  std::vector<std::string> keys_;
  std::string routesFile_;
  U32 vrf_ = 0;
  U32 nexthops_ = VelaAgent::nexthopNumbers;
};

CLI::App* CommandLine::addRun() {
  CLI::App* command =
      add("run", "start every table of the profile, apply the events, print a summary",
          [this] { return run(options_); });
  command->add_option("events", options_.events,
                      "files of events, JSON lines; - is standard input");
  command
      ->add_option("--device", options_.device,
                   "sim, or sim:FILE to keep the switch; an existing FILE is a restart")
      ->capture_default_str();
  command
      ->add_flag("--reconcile{announced}", options_.reconcile,
                 "the events are all that is desired: remove what else FILE held; =empty allows "
                 "that they announce nothing")
      ->check(CLI::IsMember({"announced", allowEmpty}));
  command->add_option("--rows", options_.rows, "write the rows at the end to this file");
  command->add_flag("--all-rows", options_.allRows, "with --rows: all that were written");
  command->add_option("--writes", options_.writes, "write every row write to this file");
  command->add_option("--status", options_.status, "write the entries' status to this file");
  command->add_option("--results", options_.results,
                      "write lookups, audits and refusals to this file; - is standard output, "
                      "where everything is JSON then, as it is when that is no terminal");
  command->add_option("--trace", options_.trace, "HANDLE[/LEVEL][,…]: trace to standard error");
  command->add_flag("--json", options_.json, "print the summary as one JSON object");
  command->add_flag("--explain", options_.explain,
                    "say what a refused entry competes with, and what a lookup asked");
  return command;
}

CLI::App* CommandLine::addDecode() {
  CLI::App* command =
      add("decode", "print the entries that a saved switch holds, from its registers alone",
          [this] { return decode(options_, name_); });
  command->add_option("table", name_, "table; all of them when none is named");
  command->add_flag("--levels", options_.levels, "entries of route levels as well");
  return command;
}

CLI::App* CommandLine::addLookup() {
  CLI::App* command = add("lookup", "ask the data path of a saved switch, which stays as it is",
                          [this] { return lookup(options_, name_, keys_); });
  command->add_option("table", name_, "table, or Flow, Multicast, LagMember")->required();
  command->add_option("keys", keys_, "JSON each; for Route also ADDRESS or VRF:ADDRESS")
      ->required();
  command->add_flag("--explain", options_.explain, "the tables asked, their rows and fields");
  command->add_flag("--hits", options_.hits, "let the lookups set hit bits in the saved switch");
  return command;
}

CLI::App* CommandLine::addShow() {
  CLI::App* command =
      add("show", "everything that a saved switch holds of one thing, across its tables",
          [this] { return show(options_, kind_, key_); });
  command->add_option("kind", kind_, "vlan, port, nexthop, flow or route")->required();
  command
      ->add_option("id", key_, "a number; L3LAG/REWRITE; a flow as JSON; [VRF:]ADDRESS or PREFIX")
      ->required();
  return command;
}

CLI::App* CommandLine::addAudit() {
  CLI::App* command =
      add("audit", "compare a saved switch with what events desire; exit code 1 when they differ",
          [this] { return audit(options_); });
  command->add_option("--events", options_.events, "files of events, JSON lines")->required();
  command->add_flag("--repair", options_.repair, "write the rows that differ");
  return command;
}

CLI::App* CommandLine::addDiff() {
  CLI::App* command = add("diff",
                          "compare two saved switches, or one with what it would be if events "
                          "were all that is desired; exit code 1 when they differ",
                          [this] { return diff(options_); });
  command->add_option("--device", options_.devices, "sim:FILE, once or twice")
      ->required()
      ->allow_extra_args(false);
  command->add_option("--events", options_.events, "files of events, JSON lines");
  return command;
}

CLI::App* CommandLine::addFit() {
  CLI::App* command =
      add("fit", "would a switch have room for all of it? exit code 1 when not; none is touched",
          [this] { return fit(options_); });
  command
      ->add_option("events", options_.events,
                   "files of events, JSON lines, or lists of a.b.c.d/len; - is standard input")
      ->required();
  command->add_flag("--all-profiles", options_.allProfiles, "a line for each built-in profile");
  return command;
}

CLI::App* CommandLine::addWhy() {
  CLI::App* command =
      add("why", "why is an entry not in hardware, or why does a packet go elsewhere?",
          [this] { return why(options_, name_, key_); });
  command->add_option("table", name_, "table, perhaps with /INSTANCE; route; address")->required();
  command->add_option("key", key_, "JSON; [VRF:]PREFIX for a route, [VRF:]ADDRESS")->required();
  command->add_option("--events", options_.events,
                      "files of events, JSON lines; without --device they are run on a new switch");
  command->add_option("--device", options_.device, "sim:FILE, the saved switch");
  return command;
}

CLI::App* CommandLine::addReport() {
  CLI::App* command =
      add("report", "write a page that shows a switch: its tables, rows and refusals",
          [this] { return report(options_); });
  command->add_option("-o,--output", options_.output, "write the page to this file");
  command->add_option("--events", options_.events,
                      "files of events, JSON lines; without --device they are run on a new switch");
  command->add_option("--device", options_.device, "sim:FILE, the saved switch");
  return command;
}

CLI::App* CommandLine::addLayout() {
  CLI::App* command = add("layout", "print the row layout of a table",
                          [this] { return layout(options_, name_, key_); });
  command->add_option("table", name_, "table")->required();
  command->add_option("--row", key_, "a key: what it makes of its row, bit by bit");
  return command;
}

/// Commands about switches that have streams.
void CommandLine::addStreams() {
  const std::string url = "redis://HOST:PORT, the server of the streams";
  CLI::App* publish =
      add("publish", "tell a switch what is desired, by a stream that its velad follows",
          [this] { return VelaTool::publish(options_); });
  publish->add_option("events", options_.events,
                      "files of events, JSON lines; - is standard input, line by line as it comes");
  publish->add_option("--stream", options_.stream, url + "; more of a cluster behind commas")
      ->required();
  publish->add_option("--switch", options_.switchName, "the name that its velad has for it")
      ->required();
  std::array<char, 256> host{};
  gethostname(host.data(), host.size() - 1);
  options_.owner = host.data();
  publish
      ->add_option("--owner", options_.owner,
                   "the controller's name: one of another name is refused")
      ->default_str("this machine's name");
  publish->add_flag("--take-over", options_.takeOver,
                    "whoever published before is refused from now on");
  publish
      ->add_flag("--snapshot{announced}", options_.snapshot,
                 "the events are all that is desired: what else the switch holds goes, and earlier "
                 "changes go from the stream; =empty allows that there are none")
      ->check(CLI::IsMember({"announced", allowEmpty}));
  CLI::App* fleet = add("fleet", "how far each switch is that has streams on the servers",
                        [this] { return VelaTool::fleet(options_); });
  fleet->add_option("--stream", options_.streams, url)->required()->allow_extra_args(false);
  for (CLI::App* each : Commands{publish, fleet}) {
    each->add_option("--credentials", options_.credentials,
                     "a file with a password, or a user and a password");
    each->add_flag("--json", options_.json, "print JSON");
  }
}

void CommandLine::addRoutes() {
  CLI::App* command = add("routes", "turn a list of prefixes into Route events",
                          [this] { return routes(routesFile_, vrf_, nexthops_); });
  command
      ->add_option("file", routesFile_, "lines of a.b.c.d/len, optionally with a next hop's number")
      ->required();
  command->add_option("--vrf", vrf_, "the routes' VRF")
      ->check(CLI::Range(0, 255))
      ->capture_default_str();
  command->add_option("--nexthops", nexthops_, "how many next hops the routes without one share")
      ->check(CLI::Range(U32{1}, VelaAgent::nexthopNumbers))
      ->capture_default_str();
}

/// For the build and the shell, not for people.
void CommandLine::addManual() {
  CLI::App* page = add("manual", "print a manual page", [this] {
    printManual(
        app_, name_.empty() ? app_ : *app_.get_subcommand(name_),
        {"1",
         "0 when all went well, 1 when something was refused, missing or different, 2 for bad "
         "input.",
         key_});
    return exitGood;
  });
  page->add_option("--examples", key_, "a file of examples")->required();
  page->add_option("command", name_, "command; the tool when none is named");
  CLI::App* words = add("complete", "print what the last word may become",
                        [this] { return complete(app_, keys_); });
  words->add_option("words", keys_, "the command line so far");
  for (CLI::App* each : Commands{page, words}) each->group("");
}

/// Commands for a running switch alone.
void CommandLine::addLive() {
  CLI::App* status = add("status", "ask a running velad how it does, or of entries, in JSON",
                         [this] { return VelaTool::status(options_, name_, keys_); });
  CLI::Option* table = status->add_option("table", name_, "table of the entries");
  CLI::Option* keys =
      status->add_option("keys", keys_, "JSON each; for Route also PREFIX or VRF:PREFIX");
  table->needs(keys);
  status->add_flag("--refused", options_.refused, "each route that is refused or waits, and why");
  CLI::App* watch = add("watch", "print what happens to a running switch, a line of JSON each",
                        [this] { return VelaTool::watch(options_); });
  for (CLI::App* each : Commands{status, watch}) {
    each->add_option("--connect", options_.connect, connectAbout)->required();
  }
}

/// Lets a command be about a running switch instead, with no other options than these.
void CommandLine::connectable(CLI::App& command, const std::vector<std::string>& options) {
  CLI::Option* connect = command.add_option("--connect", options_.connect, connectAbout);
  std::vector<CLI::Option*> needed;
  for (CLI::Option* each : command.get_options()) {
    const std::string name = each->get_name();
    if (!name.starts_with("--") || name == "--help" || each == connect) continue;
    if (each->get_required()) needed.push_back(each->required(false));
    const bool allowed = std::find(options.begin(), options.end(), name) != options.end();
    if (!allowed) connect->excludes(each);
  }
  command.callback([needed, connect] {
    for (const CLI::Option* each : needed) {
      if (!each->empty() || !connect->empty()) continue;
      throw CLI::RequiredError(each->get_name() + (each == needed.front() ? " or --connect" : ""));
    }
  });
}

CommandLine::CommandLine() {
  app_.require_subcommand(1);
  app_.set_version_flag("--version", "velatable " VELA_VERSION "\nJSON lines 1, saved switch 2");
  CLI::App* run = addRun();
  CLI::App* decode = addDecode();
  CLI::App* lookup = addLookup();
  CLI::App* show = addShow();
  CLI::App* audit = addAudit();
  CLI::App* diff = addDiff();
  CLI::App* fit = addFit();
  CLI::App* why = addWhy();
  CLI::App* report = addReport();
  add("profiles", "list the built-in profiles, or print one as JSON", [this] {
    return profiles(name_);
  })->add_option("name", name_, "profile");
  CLI::App* tables =
      add("tables", "list the tables of a profile", [this] { return VelaTool::tables(options_); });
  CLI::App* layout = addLayout();
  addRoutes();
  addManual();

  addLive();
  addStreams();
  for (CLI::App* each : Commands{decode, lookup, show, audit}) {
    each->add_option("--device", options_.device, "sim:FILE, the saved switch")->required();
  }
  for (CLI::App* each :
       Commands{run, decode, lookup, show, audit, diff, fit, why, report, tables, layout}) {
    each->add_option("--profile", options_.profile, "built-in profile or JSON file")
        ->capture_default_str();
  }
  for (CLI::App* each : Commands{show, audit, diff, fit, why, report}) {
    each->add_flag("--json", options_.json, "print JSON");
  }
  for (CLI::App* each : Commands{decode, show}) {
    each->add_flag("--csv", options_.csv, "print a table for a spreadsheet");
  }
  for (CLI::App* each : Commands{run, audit}) {
    each->add_flag("--keep-going", options_.keepGoing, "report a bad event and go on");
    each->add_flag("--dry-run", options_.dryRun, "say what would change, and change nothing");
  }
  audit->get_option("--dry-run")->needs("--repair");
  fit->get_option("--all-profiles")->excludes("--profile");
  for (CLI::App* each : Commands{run, show, audit, diff, fit, why}) {
    each->add_flag("-v,--verbose", options_.verbose, "tell everything");
  }
  for (CLI::App* each : Commands{decode, lookup}) connectable(*each, {});
  connectable(*audit, {"--repair"});
  connectable(*run, {"--results", "--keep-going"});
  connectable(*why, {"--json", "--verbose"});
  connectable(*report, {"--json", "--output"});
}

std::optional<int> CommandLine::parse(int argc, char** argv) {
  try {
    refuseUnknownCommand(app_, argc, argv);
    app_.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app_.exit(error) == 0 ? exitGood : exitBadInput;
  }
  return std::nullopt;
}

int CommandLine::operator()() const {
  const auto asked = std::find_if(actions_.begin(), actions_.end(),
                                  [](const auto& each) { return each.first->parsed(); });
  return asked->second();
}

}  // namespace

int main(int argc, char** argv) {
  standardStreamsAreOpen();
  Orb::assertHandlerIs(throwFatal);
  try {
    CommandLine command;
    if (const auto ended = command.parse(argc, argv)) return *ended;
    const int ended = command();
    finish(std::cout, "standard output");
    return ended;
  } catch (const std::exception& error) {
    std::cout << std::flush;
    std::cerr << "velatable: " << error.what() << '\n';
    return exitBadInput;
  }
}
