#include <iostream>

#include "Commands.h"
#include "Csv.h"
#include "Input.h"
#include "Progress.h"
#include "Report.h"
#include "agent/Explain.h"
#include "agent/Profiles.h"

namespace VelaTool {

int decode(const Options& options, const std::string& name) {
  if (!options.connect.empty()) {
    Json request = {{"request", "decode"}};
    if (!name.empty()) request["table"] = name;
    return ask(options.connect, request);
  }
  const auto profile = VelaAgent::loadProfile(options.profile);
  SimulatedSwitch chip = copySaved(options.device);
  MadeAgent agent(profile, chip);
  if (!name.empty()) agent.table(name, 0);
  agent.decode();
  bool first = true;
  Progress progress(true);
  double done = 0;
  for (const TableAdapter* table : agent.announced()) {
    progress.is(done++ / static_cast<double>(agent.announced().size()));
    if (!name.empty() && table->name() != name) continue;
    CsvTable csv;
    bool any = false;
    table->forEachEntry([&](const Json& key, const Json& result) {
      // Routes are told whole, unless the level is asked for.
      if (name.empty() && !options.levels && !agent.routesAt(*table, key).empty()) return;
      any = true;
      if (options.csv) {
        Json line = tableLine(*table);
        line["key"] = key;
        line["result"] = result;
        csv.lineIs(line);
      } else {
        std::cout << eventLine(*table, key, result).dump() << '\n';
      }
    });
    if (!options.csv || !any) continue;
    if (!first) std::cout << '\n';
    first = false;
    csv.write(std::cout);
  }
  progress.hide();
  std::cout << std::flush;
  return tellDamage(std::cerr, agent, true, name) ? exitRefused : exitGood;
}

int lookup(const Options& options, const std::string& table, const std::vector<std::string>& keys) {
  if (!options.connect.empty()) {
    Json request = {{"request", "lookup"}, {"table", table}, {"keys", Json::array()}};
    for (const std::string& key : keys) request["keys"].push_back(keyFromText(table, key));
    return ask(options.connect, request);
  }
  const auto profile = VelaAgent::loadProfile(options.profile);
  SimulatedSwitch chip = options.hits ? openSaved(options.device) : copySaved(options.device);
  MadeAgent agent(profile, chip);
  EventRunner runner(agent);
  runner.explainIs(options.explain);
  runner.resultListenerIs([](const std::string& line) { std::cout << line << '\n'; });
  for (const std::string& key : keys) {
    runner.apply(Json{{"op", "lookup"}, {"table", table}, {"key", keyFromText(table, key)}});
  }
  return exitGood;
}

}  // namespace VelaTool
