#include "agent/Why.h"

#include <iostream>

#include "Commands.h"
#include "Input.h"
#include "Report.h"

namespace VelaTool {

namespace {

/// What is asked for, as a daemon is asked.
Json requestOf(const std::string& table, const std::string& key) {
  Json request = {{"request", "why"}};
  if (table == "address") {
    request["address"] = keyFromText("Route", key);
    if (request["address"].contains("prefix")) {
      throw InputException("a prefix is a route, no address: " + key);
    }
    return request;
  }
  const std::size_t slash = table.find('/');
  const std::string instance = slash == std::string::npos ? "0" : table.substr(slash + 1);
  const std::string name = table == "route" ? "Route" : table.substr(0, slash);
  request["table"] = name;
  request["instance"] = VelaAgent::numberFromJson(instance, ~U32{0});
  request["key"] = keyFromText(name, key);
  return request;
}

/// The answer that events or a saved switch give.
std::optional<Json> answerOf(const Options& options, const Json& request) {
  AskedSwitch asked(options, "why");
  if (!asked.good) return std::nullopt;
  VelaAgent::Reasons reasons(asked.agent, asked.desiresKnown);
  if (request.contains("address")) return reasons.address(request["address"]);
  const auto name = request["table"].get<std::string>();
  return reasons.entry(asked.agent.table(name, request["instance"]), request["key"]);
}

}  // namespace

int why(const Options& options, const std::string& table, const std::string& key) {
  const Json request = requestOf(table, key);
  std::optional<Json> answer =
      options.connect.empty() ? answerOf(options, request) : answerTo(options.connect, request);
  if (!answer) return exitBadInput;
  if (options.json) {
    std::cout << answer->dump() << '\n';
    return exitGood;
  }
  for (const Json& sentence : (*answer)["says"]) std::cout << sentence.get<std::string>() << '\n';
  answer->erase("says");
  writeWords(std::cout, *answer, "  ", options.verbose);
  return exitGood;
}

}  // namespace VelaTool
