#include <functional>
#include <iostream>

#include "Commands.h"
#include "Csv.h"
#include "Input.h"
#include "Report.h"
#include "agent/Explain.h"
#include "agent/Profiles.h"

namespace VelaTool {

namespace {

/// What an entry's fields say of one thing. The names of fields mean the same in all tables, so
/// that a table that is added is shown as well.
using Mentions = std::function<bool(const std::string& field, const Json& value)>;

bool anyField(const Json& value, const std::string& name, const Mentions& mentions) {
  if (mentions(name, value)) return true;
  if (value.is_object()) {
    for (const auto& [inner, field] : value.items()) {
      if (anyField(field, inner, mentions)) return true;
    }
  } else if (value.is_array()) {
    for (const Json& element : value) {
      if (anyField(element, name, mentions)) return true;
    }
  }
  return false;
}

bool isNumber(const Json& value, U64 number) {
  return value.is_number_unsigned() && value.get<U64>() == number;
}

Mentions mentionsVlan(U64 vid) {
  return [vid](const std::string& field, const Json& value) {
    return (field == "vid" || field == "vlanId" || field == "vlanIds" || field == "nativeVlanId") &&
           isNumber(value, vid);
  };
}

/// A port by its number, in a mask, or in the pair that it shares.
Mentions mentionsPort(U64 port) {
  return [port](const std::string& field, const Json& value) {
    if (field == "portId" || field == "port") return isNumber(value, port);
    if (field == "baseChipPortId") return isNumber(value, port & ~U64{1});
    return field.ends_with("Mask") && value.is_string() &&
           (VelaAgent::numberFromJson(value, ~U64{0}) >> port & 1) != 0;
  };
}

Mentions mentionsNexthop(U64 lag, U64 rewrite) {
  return [lag, rewrite](const std::string& field, const Json& value) {
    if (field == "lag") return isNumber(value, lag);
    return value.is_object() && value.contains("l3LagIndex") && value.contains("rewriteIndex") &&
           isNumber(value["l3LagIndex"], lag) && isNumber(value["rewriteIndex"], rewrite);
  };
}

/// The entries of a decoded switch, by table, with their rows.
class Collector {
 public:
  explicit Collector(const Agent& agent) : agent_(agent) {}

  void add(const TableAdapter& table, const Json& key, const Json& result) {
    Json entry = {{"key", key}, {"result", result}};
    const Json rows = rowsOf(table, key);
    if (!rows.empty()) entry["rows"] = rows;
    Json& list = found_[table.name()];
    if (table.instance() != 0) entry["instance"] = table.instance();
    list.push_back(std::move(entry));
  }
  /// All entries that mention the thing. A key that is no object has one field, of the table's
  /// name for it.
  void addAll(const Mentions& mentions) {
    forEachEntry(agent_, [&](const TableAdapter& table, const Json& key, const Json& result) {
      if (anyField(key, table.keyName(), mentions) || anyField(result, "", mentions)) {
        add(table, key, result);
      }
    });
  }
  const Json& found() const { return found_; }

 private:
  Json rowsOf(const TableAdapter& table, const Json& key) const {
    Json rows = Json::array();
    const auto* hardware = table.hardware();
    const auto place = hardware ? hardware->place(key) : std::nullopt;
    if (!place) return rows;
    for (const auto& [id, hwTable] : hardware->convertor().hwTables()) {
      if (!HwTableAdapter::holds(*hwTable, place->index)) continue;
      Json row = describeRow(agent_.chip(), *hardware, id, place->index);
      if (row.is_null()) continue;
      row.erase("table");
      row.erase("instance");
      rows.push_back(std::move(row));
    }
    return rows;
  }

  const Agent& agent_;
  Json found_ = Json::object();
};

U64 numberOf(const std::string& text, const char* what, U64 first, U64 last) {
  try {
    const U64 number = Orb::fromText<U64>(VelaAgent::quoted(text));
    if (number >= first && number <= last) return number;
  } catch (const std::exception&) {
    // It is no number, then.
  }
  throw InputException(
      Orb::text(what, " ", VelaAgent::quoted(text), ": allowed are ", first, " to ", last));
}

/// What the data path makes of a flow or of a route's address, table by table.
Json asked(Agent& agent, const std::string& table, const Json& key) {
  Json line;
  EventRunner runner(agent);
  runner.explainIs(true);
  runner.resultListenerIs([&](const std::string& result) { line = Json::parse(result); });
  runner.apply(Json{{"op", "lookup"}, {"table", table}, {"key", key}});
  line.erase("op");
  return line;
}

void writeCsv(std::ostream& out, const Json& shown) {
  CsvTable csv;
  if (shown.contains("explain")) {
    for (const Json& step : shown["explain"]["asked"]) csv.lineIs(step);
  }
  for (const auto& [table, entries] : shown.items()) {
    if (!entries.is_array()) continue;
    for (const Json& entry : entries) {
      Json line = {{"table", table}};
      line.update(entry);
      line.erase("rows");
      csv.lineIs(line);
    }
  }
  csv.write(out);
}

}  // namespace

int show(const Options& options, const std::string& kind, const std::string& id) {
  const auto profile = VelaAgent::loadProfile(options.profile);
  SimulatedSwitch chip = copySaved(options.device);
  MadeAgent agent(profile, chip);
  agent.decode();
  Collector collector(agent);
  Json shown = {{kind, id}};
  if (kind == "vlan") {
    const U64 vid = numberOf(id, "vlan", 1, 4094);
    shown[kind] = vid;
    collector.addAll(mentionsVlan(vid));
  } else if (kind == "port") {
    const U64 port = numberOf(id, "port", 0, profile->ports() - 1);
    shown[kind] = port;
    collector.addAll(mentionsPort(port));
  } else if (kind == "nexthop") {
    const std::size_t slash = id.find('/');
    if (slash == std::string::npos) throw InputException("a next hop is L3LAG/REWRITE");
    collector.addAll(mentionsNexthop(numberOf(id.substr(0, slash), "L3 LAG", 0, 63),
                                     numberOf(id.substr(slash + 1), "rewrite", 0, 63)));
  } else if (kind == "flow") {
    shown.update(asked(agent, "Flow", keyFromText("Flow", id)));
  } else if (kind == "route") {
    const Json key = keyFromText("Route", id);
    // Asked first: that checks the key.
    shown.update(asked(agent, "Route", key));
    forEachEntry(agent, [&](const TableAdapter& table, const Json& route, const Json& result) {
      if (table.name() == "Route" && route["prefix"] == key.value("prefix", "") &&
          VelaAgent::numberFromJson(route["vrf"], ~U64{0}) ==
              VelaAgent::numberFromJson(key.value("vrf", Json(0u)), ~U64{0})) {
        collector.add(table, route, result);
      }
    });
  } else {
    const std::vector<std::string> kinds{"vlan", "port", "nexthop", "flow", "route"};
    throw InputException("show knows vlan, port, nexthop, flow and route, not \"" + kind + "\"" +
                         VelaAgent::suggestion(kind, kinds));
  }
  shown.update(collector.found());
  if (shown.size() == 1)
    std::cerr << "the switch holds no entry that names " << kind << ' ' << id << '\n';
  if (options.json) {
    std::cout << shown.dump() << '\n';
  } else if (options.csv) {
    writeCsv(std::cout, shown);
  } else {
    writeWords(std::cout, shown, "", options.verbose);
  }
  return exitGood;
}

}  // namespace VelaTool
