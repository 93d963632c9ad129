#include <algorithm>
#include <iostream>
#include <set>

#include "Commands.h"
#include "Format.h"
#include "Names.h"
#include "RedisConnection.h"
#include "agent/Json.h"

namespace VelaTool {

namespace {

using VelaRedis::textOf;
using VelaService::StreamEntry;

/// The switches that a server has streams of.
std::set<std::string> switchesOf(RedisConnection& server) {
  constexpr std::string_view before = "vela:{";
  std::set<std::string> names;
  std::string cursor = "0";
  do {
    const auto reply =
        server.ask({"SCAN", cursor, "MATCH", std::string(before) + "*}:*", "COUNT", "1000"});
    if (reply->elements != 2) throw InputException("an answer that is no list of names");
    cursor = textOf(*reply->element[0]);
    const redisReply& keys = *reply->element[1];
    for (std::size_t at = 0; at < keys.elements; ++at) {
      const std::string name = textOf(*keys.element[at]).substr(before.size());
      names.insert(name.substr(0, name.find('}')));
    }
  } while (cursor != "0");
  return names;
}

/// The last entry of a stream, up to `to`.
std::optional<StreamEntry> lastOf(RedisConnection& server, const std::string& stream,
                                  const std::string& to = "+") {
  const auto reply = server.ask({"XREVRANGE", stream, to, "-", "COUNT", "1"});
  const auto entries = VelaRedis::entriesOf(*reply);
  return entries.empty() ? std::nullopt : std::optional(entries.front());
}

/// The last change, or the one that the snapshot stands for where there is none.
VelaService::StreamPosition lastChange(RedisConnection& server,
                                       const VelaService::StreamNames& streams) {
  auto entry = lastOf(server, streams.changes);
  while (entry) {
    try {
      return {entry->id, VelaService::changeOf(*entry).sequence};
    } catch (const std::exception&) {
      // A switch passes it over as well.
      entry = lastOf(server, streams.changes, "(" + toText(entry->id));
    }
  }
  const auto end = lastOf(server, streams.snapshot);
  return end ? VelaService::snapshotEndOf(*end).at : VelaService::StreamPosition();
}

/// The report in an entry, with its figures checked: others than switches may write there.
Json reportOf(const StreamEntry& status) {
  Json report = VelaAgent::jsonFromText(status.fields.at("report"));
  if (!report.is_object()) throw InputException("a report that is no JSON object");
  const auto check = [&](const char* name, bool good) {
    if (!good) throw InputException(std::string("a report with a wrong \"") + name + "\"");
  };
  check("position", report.value("position", Json()).is_string());
  check("sequence", report.value("sequence", Json()).is_number_unsigned());
  for (const char* name : {"refused", "findings", "invalid"}) {
    check(name, report.value(name, Json(0U)).is_number_unsigned());
  }
  check("wantsSnapshot", report.value("wantsSnapshot", Json(false)).is_boolean());
  report.erase("error");
  return report;
}

/// What a switch said last, and how far its stream is ahead of it.
Json switchLine(RedisConnection& server, const std::string& name, U64 now) {
  const auto streams = VelaService::streamNames(name);
  const auto status = lastOf(server, streams.status);
  const auto desired = lastChange(server, streams);
  VelaService::StreamPosition applied;
  Json line = {{"switch", name}, {"position", nullptr}, {"sequence", 0U}, {"age", nullptr}};
  if (status && status->fields.contains("report")) {
    line.update(reportOf(*status));
    applied = {VelaService::entryIdFromText(line["position"].get<std::string>()), line["sequence"]};
    line["age"] = static_cast<double>(now - std::min(now, status->id.milliseconds)) / 1000;
  }
  line["switch"] = name;
  // Where numbers began anew all of them are to come.
  const U64 before = applied.sequence < desired.sequence ? applied.sequence : 0;
  line["lag"] = applied.id < desired.id ? desired.sequence - before : 0;
  return line;
}

/// The same, with an "error" instead where the streams are not what they should be.
Json switchLineOrError(RedisConnection& server, const std::string& name, U64 now) {
  try {
    return switchLine(server, name, now);
  } catch (const ServerGone&) {
    throw;
  } catch (const std::exception& error) {
    return {{"switch", name}, {"age", nullptr}, {"error", error.what()}};
  }
}

U64 millisecondsOf(RedisConnection& server) {
  const auto reply = server.ask({"TIME"});
  if (reply->elements != 2) throw InputException("an answer that is no time");
  return Orb::fromText<U64>(textOf(*reply->element[0])) * 1000 +
         Orb::fromText<U64>(textOf(*reply->element[1])) / 1000;
}

std::string numberText(const Json& line, const char* name) {
  const auto at = line.find(name);
  return at == line.end() ? "-" : at->dump();
}

/// What an operator has to know beside the figures.
std::string remarkOf(const Json& line) {
  if (line.contains("error")) return line["error"].get<std::string>();
  if (line["age"].is_null()) return "never reported";
  std::string remark;
  if (line.value("wantsSnapshot", false)) remark = "wants a snapshot";
  if (line.value("invalid", U64{0}) == 0) return remark;
  if (!remark.empty()) remark += ", ";
  return remark + numberText(line, "invalid") + " lines invalid";
}

void tellSwitch(const Json& line) {
  const bool told = !line["age"].is_null();
  const std::string age = told ? format("%.1f s", line["age"].get<double>()) : "-";
  const std::string name = VelaAgent::quoted(line["switch"].get<std::string>());
  std::cout << format("%-24s %-22s %8s %8s %8s %9s  %s", name.c_str(),
                      told ? line["position"].get<std::string>().c_str() : "-",
                      numberText(line, "lag").c_str(), numberText(line, "refused").c_str(),
                      numberText(line, "findings").c_str(), age.c_str(), remarkOf(line).c_str())
            << '\n';
}

void tellSwitchesOf(const std::string& url, const Options& options) {
  RedisConnection server(url, options.credentials);
  const U64 now = millisecondsOf(server);
  for (const std::string& name : switchesOf(server)) {
    const Json line = switchLineOrError(server, name, now);
    if (options.json) {
      // A name may be any bytes.
      std::cout << line.dump(-1, ' ', false, Json::error_handler_t::replace) << '\n';
    } else {
      tellSwitch(line);
    }
  }
}

}  // namespace

int fleet(const Options& options) {
  if (!options.json) {
    std::cout << format("%-24s %-22s %8s %8s %8s %9s", "switch", "position", "lag", "refused",
                        "findings", "age")
              << '\n';
  }
  int result = exitGood;
  for (const std::string& url : options.streams) {
    try {
      tellSwitchesOf(url, options);
    } catch (const InputException& error) {
      std::cerr << "velatable: " << error.what() << '\n';
      result = exitBadInput;
    }
  }
  return result;
}

}  // namespace VelaTool
