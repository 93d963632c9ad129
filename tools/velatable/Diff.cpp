#include "Diff.h"

#include <iostream>
#include <map>

#include "Commands.h"
#include "Input.h"
#include "Report.h"
#include "agent/Explain.h"
#include "agent/Profiles.h"

namespace VelaTool {

namespace {

/// A switch with its entries as its registers hold them.
struct Decoded {
  Decoded(const Profile& profile, const SimulatedSwitch& original)
      : chip(original), agent(profile, chip) {
    agent.decode();
  }
  /// The entries, by what they are.
  std::map<Json, Json> entries() const {
    std::map<Json, Json> all;
    forEachEntry(agent, [&](const TableAdapter& table, const Json& key, const Json& result) {
      Json entry = tableLine(table);
      entry["key"] = key;
      all[std::move(entry)] = result;
    });
    return all;
  }
  SimulatedSwitch chip;
  MadeAgent agent;
};

Json fieldsOf(const Json& described) {
  return described.is_null() ? Json(nullptr) : described["fields"];
}

/// The fields in which two values differ; a value that is no object is one field of no name.
Json differences(const Json& before, const Json& after) {
  Json fields = Json::array();
  const auto add = [&](const std::string& name, const Json& a, const Json& b) {
    if (a != b) fields.push_back({{"field", name}, {"before", a}, {"after", b}});
  };
  if (!before.is_object() || !after.is_object()) {
    add("", before, after);
    return fields;
  }
  for (const auto& [name, value] : before.items()) {
    add(name, value, after.contains(name) ? after[name] : Json(nullptr));
  }
  for (const auto& [name, value] : after.items()) {
    if (!before.contains(name)) add(name, nullptr, value);
  }
  return fields;
}

}  // namespace

SwitchDiff::SwitchDiff(const Profile& profile, const SimulatedSwitch& before,
                       const SimulatedSwitch& after) {
  const Decoded a(profile, before);
  const Decoded b(profile, after);
  const auto held = a.entries();
  auto left = b.entries();
  for (const auto& [where, result] : held) {
    const auto other = left.find(where);
    if (other == left.end()) {
      entries_.push_back({where, result, nullptr});
    } else if (other->second != result) {
      entries_.push_back({where, result, other->second});
    }
    if (other != left.end()) left.erase(other);
  }
  for (const auto& [where, result] : left) entries_.push_back({where, nullptr, result});

  for (std::size_t i = 0; i < a.agent.tables().size(); ++i) {
    const auto& table = *a.agent.tables()[i];
    if (table.borrowsRows()) continue;
    for (const auto& [id, hwTable] : table.convertor().hwTables()) {
      const auto& descriptor = hwTable->descriptor();
      for (HwIndex index = descriptor.first; index <= descriptor.last; ++index) {
        if (VelaAgent::heldImage(a.chip, *hwTable, index) ==
            VelaAgent::heldImage(b.chip, *hwTable, index))
          continue;
        Json was = describeRow(a.chip, table, id, index);
        Json is = describeRow(b.chip, *b.agent.tables()[i], id, index);
        Json where = was.is_null() ? is : was;
        where.erase("fields");
        rows_.push_back({std::move(where), fieldsOf(was), fieldsOf(is)});
      }
    }
  }
}

Json SwitchDiff::line(const char* kind, const Difference& difference) {
  Json line = {{"differs", kind}};
  line.update(difference.where);
  if (difference.before.is_null() || difference.after.is_null()) {
    line["before"] = difference.before;
    line["after"] = difference.after;
  } else {
    line["fields"] = differences(difference.before, difference.after);
  }
  return line;
}

std::string SwitchDiff::words(const Difference& difference) {
  const Json& where = difference.where;
  std::string text;
  if (where.contains("key")) {
    text = where["table"].get<std::string>() + "/" + where["instance"].dump() + " " +
           where["key"].dump();
  } else {
    text = "row " + where["index"].dump() + " of " + where["hwTable"].get<std::string>();
    if (where.contains("way")) {
      text += " (way " + where["way"].dump() + ", row " + where["row"].dump() + ")";
    }
  }
  if (difference.before.is_null()) return "+ " + text + ": " + difference.after.dump();
  if (difference.after.is_null()) return "- " + text + ": " + difference.before.dump();
  const char* separator = ": ";
  text = "~ " + text;
  for (const Json& field : differences(difference.before, difference.after)) {
    const std::string name = field["field"];
    text += separator + (name.empty() ? name : name + " ") + field["before"].dump() + " -> " +
            field["after"].dump();
    separator = ", ";
  }
  return text;
}

void SwitchDiff::tell(std::ostream& out, bool json, bool everything) const {
  constexpr std::size_t most = 100;
  const auto each = [&](const char* kind, const std::vector<Difference>& differences) {
    std::size_t told = 0;
    for (const Difference& difference : differences) {
      if (told++ == most && !json && !everything) {
        out << "… " << differences.size() - most << " more with --verbose\n";
        break;
      }
      out << (json ? line(kind, difference).dump() : words(difference)) << '\n';
    }
  };
  each("entry", entries_);
  each("row", rows_);
  if (json) {
    out << Json{{"entries", entries()}, {"rows", rows()}}.dump() << '\n';
  } else {
    out << entries() << (entries() == 1 ? " entry differs, " : " entries differ, ") << rows()
        << (rows() == 1 ? " row differs\n" : " rows differ\n");
  }
}

int diff(const Options& options) {
  const auto profile = VelaAgent::loadProfile(options.profile);
  checkFiles(options);
  const bool withEvents = !options.events.empty();
  if (options.devices.size() != (withEvents ? 1u : 2u)) {
    throw InputException("diff takes two saved switches, or one and --events");
  }
  const SimulatedSwitch before = copySaved(options.devices.front());
  SimulatedSwitch after = withEvents ? before : copySaved(options.devices.back());
  if (withEvents) {
    // What the switch becomes when the events are all that is desired.
    Agent agent(profile, after);
    agent.make();
    agent.start(Agent::Start::restart);
    EventRunner runner(agent);
    runner.desiresOnlyIs(true);
    if (!applyFiles(options, runner)) return exitBadInput;
    if (agent.announcedEntries() == 0) throw InputException("the events announce no entry");
    runner.complete();
    runner.reconcile();
  }
  const SwitchDiff difference(profile, before, after);
  difference.tell(std::cout, options.json, options.verbose);
  return difference.entries() + difference.rows() == 0 ? exitGood : exitRefused;
}

}  // namespace VelaTool
