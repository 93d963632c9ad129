#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "Commands.h"
#include "Input.h"
#include "Orb/Assert.h"
#include "agent/RouteAdapter.h"

namespace {

using namespace VelaTool;

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
    names.push_back(command->get_name());
    list += " " + command->get_name();
  }
  throw VelaAgent::InputException(std::string("unknown command \"") + argv[1] + "\"" +
                                  VelaAgent::suggestion(argv[1], names) + "; there are:" + list);
}

}  // namespace

int main(int argc, char** argv) {
  standardStreamsAreOpen();
  Orb::assertHandlerIs(throwFatal);
  CLI::App app{"velatable: runs the table layer of a switch from an events file"};
  app.require_subcommand(1);

  Options options;
  std::string name;
  std::string key;
  std::string kind;
  std::vector<std::string> keys;

  CLI::App* runCommand = app.add_subcommand(
      "run", "start every table of the profile, apply the events, print a summary");
  runCommand->add_option("events", options.events,
                         "files of events, JSON lines; - is standard input");
  runCommand
      ->add_option("--device", options.device,
                   "sim, or sim:FILE to keep the switch; an existing FILE is a restart")
      ->capture_default_str();
  runCommand
      ->add_flag("--reconcile{announced}", options.reconcile,
                 "the events are all that is desired: remove what else FILE held; =empty allows "
                 "that they announce nothing")
      ->check(CLI::IsMember({"announced", allowEmpty}));
  runCommand->add_option("--rows", options.rows, "write the rows at the end to this file");
  runCommand->add_flag("--all-rows", options.allRows, "with --rows: all that were written");
  runCommand->add_option("--writes", options.writes, "write every row write to this file");
  runCommand->add_option("--status", options.status, "write the entries' status to this file");
  runCommand->add_option("--results", options.results,
                         "write lookups, audits and refusals to this file; - is standard output, "
                         "where everything is JSON then, as it is when that is no terminal");
  runCommand->add_option("--trace", options.trace, "HANDLE[/LEVEL][,…]: trace to standard error");
  runCommand->add_flag("--json", options.json, "print the summary as one JSON object");
  runCommand->add_flag("--explain", options.explain,
                       "say what a refused entry competes with, and what a lookup asked");

  CLI::App* decodeCommand = app.add_subcommand(
      "decode", "print the entries that a saved switch holds, from its registers alone");
  decodeCommand->add_option("table", name, "table; all of them when none is named");
  decodeCommand->add_flag("--levels", options.levels, "entries of route levels as well");

  CLI::App* lookupCommand =
      app.add_subcommand("lookup", "ask the data path of a saved switch, which stays as it is");
  lookupCommand->add_option("table", name, "table, or Flow, Multicast, LagMember")->required();
  lookupCommand->add_option("keys", keys, "JSON each; for Route also ADDRESS or VRF:ADDRESS")
      ->required();
  lookupCommand->add_flag("--explain", options.explain, "the tables asked, their rows and fields");
  lookupCommand->add_flag("--hits", options.hits,
                          "let the lookups set hit bits in the saved switch");

  CLI::App* showCommand = app.add_subcommand(
      "show", "everything that a saved switch holds of one thing, across its tables");
  showCommand->add_option("kind", kind, "vlan, port, nexthop, flow or route")->required();
  showCommand
      ->add_option("id", key, "a number; L3LAG/REWRITE; a flow as JSON; [VRF:]ADDRESS or PREFIX")
      ->required();

  CLI::App* auditCommand = app.add_subcommand(
      "audit", "compare a saved switch with what events desire; exit code 1 when they differ");
  auditCommand->add_option("--events", options.events, "files of events, JSON lines")->required();
  auditCommand->add_flag("--repair", options.repair, "write the rows that differ");

  CLI::App* diffCommand = app.add_subcommand(
      "diff",
      "compare two saved switches, or one with what it would be if events were all that "
      "is desired; exit code 1 when they differ");
  diffCommand->add_option("--device", options.devices, "sim:FILE, once or twice")
      ->required()
      ->allow_extra_args(false);
  diffCommand->add_option("--events", options.events, "files of events, JSON lines");

  CLI::App* profilesCommand =
      app.add_subcommand("profiles", "list the built-in profiles, or print one as JSON");
  profilesCommand->add_option("name", name, "profile");
  CLI::App* tablesCommand = app.add_subcommand("tables", "list the tables of a profile");
  CLI::App* layoutCommand = app.add_subcommand("layout", "print the row layout of a table");
  layoutCommand->add_option("table", name, "table")->required();
  layoutCommand->add_option("--row", key, "a key: what it makes of its row, bit by bit");
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

  for (CLI::App* each : {decodeCommand, lookupCommand, showCommand, auditCommand}) {
    each->add_option("--device", options.device, "sim:FILE, the saved switch")->required();
  }
  for (CLI::App* each : {runCommand, decodeCommand, lookupCommand, showCommand, auditCommand,
                         diffCommand, tablesCommand, layoutCommand}) {
    each->add_option("--profile", options.profile, "built-in profile or JSON file")
        ->capture_default_str();
  }
  for (CLI::App* each : {showCommand, auditCommand, diffCommand}) {
    each->add_flag("--json", options.json, "print JSON");
  }
  for (CLI::App* each : {decodeCommand, showCommand}) {
    each->add_flag("--csv", options.csv, "print a table for a spreadsheet");
  }
  for (CLI::App* each : {runCommand, auditCommand}) {
    each->add_flag("--keep-going", options.keepGoing, "report a bad event and go on");
    each->add_flag("--dry-run", options.dryRun, "say what would change, and change nothing");
  }
  auditCommand->get_option("--dry-run")->needs("--repair");
  for (CLI::App* each : {runCommand, showCommand, auditCommand, diffCommand}) {
    each->add_flag("-v,--verbose", options.verbose, "tell everything");
  }

  try {
    refuseUnknownCommand(app, argc, argv);
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? exitGood : exitBadInput;
  } catch (const VelaAgent::InputException& error) {
    std::cerr << "velatable: " << error.what() << '\n';
    return exitBadInput;
  }

  const auto command = [&] {
    if (*runCommand) return run(options);
    if (*decodeCommand) return decode(options, name);
    if (*lookupCommand) return lookup(options, name, keys);
    if (*showCommand) return show(options, kind, key);
    if (*auditCommand) return audit(options);
    if (*diffCommand) return diff(options);
    if (*profilesCommand) return profiles(name);
    if (*routesCommand) return routes(routesFile, vrf, nexthops);
    if (*tablesCommand) return tables(options);
    return layout(options, name, key);
  };
  try {
    const int ended = command();
    finish(std::cout, "standard output");
    return ended;
  } catch (const std::exception& error) {
    std::cout << std::flush;
    std::cerr << "velatable: " << error.what() << '\n';
    return exitBadInput;
  }
}
