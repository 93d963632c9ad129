#include "agent/Why.h"

#include <iostream>

#include "Commands.h"
#include "Input.h"
#include "Report.h"
#include "agent/Profiles.h"

namespace VelaTool {

namespace {

Json answerOf(Agent& agent, bool desiresKnown, const std::string& table, const std::string& key) {
  VelaAgent::Reasons reasons(agent, desiresKnown);
  if (table == "address") {
    const Json asked = keyFromText("Route", key);
    if (asked.contains("prefix")) throw InputException("a prefix is a route, no address: " + key);
    return reasons.address(asked);
  }
  const std::size_t slash = table.find('/');
  const std::string instance = slash == std::string::npos ? "0" : table.substr(slash + 1);
  const std::string name = table == "route" ? "Route" : table.substr(0, slash);
  TableAdapter& asked =
      agent.table(name, static_cast<U32>(VelaAgent::numberFromJson(instance, ~U32{0})));
  return reasons.entry(asked, keyFromText(name, key));
}

}  // namespace

int why(const Options& options, const std::string& table, const std::string& key) {
  const bool saved = options.device != "sim";
  if (!saved && options.events.empty())
    throw InputException("why takes --events, --device or both");
  checkFiles(options);
  const auto profile = VelaAgent::loadProfile(options.profile);
  SimulatedSwitch chip = saved ? copySaved(options.device) : SimulatedSwitch();
  MadeAgent agent(profile, chip);
  if (!readDesires(agent, options)) return exitBadInput;
  Json answer = answerOf(agent, !options.events.empty(), table, key);
  if (options.json) {
    std::cout << answer.dump() << '\n';
    return exitGood;
  }
  for (const Json& sentence : answer["says"]) std::cout << sentence.get<std::string>() << '\n';
  answer.erase("says");
  writeWords(std::cout, answer, "  ", options.verbose);
  return exitGood;
}

}  // namespace VelaTool
