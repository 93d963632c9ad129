#include "Report.h"

#include <algorithm>
#include <ostream>
#include <sstream>

#include "Format.h"
#include "agent/Explain.h"
#include "agent/JsonText.h"

namespace VelaTool {

using VelaAgent::append;
using VelaAgent::Quoted;

namespace {

Json rowLine(const Agent& agent, const HwTableAdapter& table, const HwTableConfig& hwTable,
             HwIndex index, const Json& key) {
  const auto& descriptor = hwTable.descriptor();
  Json line = tableLine(table);
  line["hwTable"] = descriptor.identity.name;
  line["hwTableId"] = descriptor.identity.id;
  line["index"] = index;
  if (const auto location = table.location(index)) {
    line["way"] = location->way;
    line["row"] = location->row;
  }
  const U32* image = hwTable.image(index);
  Json registers = Json::array();
  for (const auto& m : hwTable.mapped(index)) {
    registers.push_back({agent.recorder().path(m.reg), hexText(image[m.word], 8)});
  }
  line["registers"] = registers;
  Json words = Json::array();
  for (U8 i = 0; i < descriptor.rowWords; ++i) words.push_back(hexText(image[i], 8));
  line["image"] = words;
  if (!key.is_null()) line["key"] = key;
  return line;
}

/// Whether the row was written or read, and says something without an entry.
bool isTold(const HwTableAdapter& table, const HwTableConfig& hwTable, HwIndex index) {
  const auto state = hwTable.state(index);
  return (state == HwTableConfig::Row::held || state == HwTableConfig::Row::lost) &&
         VelaAgent::saysSomething(table, hwTable, index, hwTable.image(index));
}

}  // namespace

std::string registersOf(const Agent& agent, const HwTableConfig& hwTable) {
  std::string prefix;
  std::vector<std::string> names;
  const auto& descriptor = hwTable.descriptor();
  for (HwIndex index = descriptor.first; index <= descriptor.last; ++index) {
    for (const auto& m : hwTable.mapped(index)) {
      const std::string& path = agent.recorder().path(m.reg);
      const std::size_t split = path.rfind('/') + 1;
      if (prefix.empty()) prefix = path.substr(0, split);
      const std::string name = path.substr(split);
      if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
  }
  if (names.size() == 1) return prefix + names.front();
  for (const std::string& name : names) prefix.append(" ").append(name);
  return prefix;
}

void writeRows(std::ostream& out, const Agent& agent, bool all) {
  for (const auto& table : agent.tables()) {
    for (const auto& [id, hwTable] : table->convertor().hwTables()) {
      for (HwIndex i = hwTable->descriptor().first; i <= hwTable->descriptor().last; ++i) {
        if (!table->listsRow(i)) continue;
        const Json key = table->keyAt(i);
        const bool told = all ? hwTable->written(i) : isTold(*table, *hwTable, i);
        if (!key.is_null() || told) out << rowLine(agent, *table, *hwTable, i, key).dump() << '\n';
      }
    }
  }
}

void writeStatuses(std::ostream& out, const Agent& agent) {
  for (const TableAdapter* table : agent.announced()) {
    std::string line;
    table->typed().forEachStatus([&](auto key, auto status, Orb::Seconds lastHit) {
      line.clear();
      append(line, R"({"table":)", Quoted{table->name()}, R"(,"instance":)", table->instance(),
             R"(,"key":)");
      table->appendKey(line, key);
      append(line, R"(,"status":")", VelaSwitchApi::nameOf(status), R"(","lastHit":)",
             Json(lastHit.value()).dump(), "}\n");
      out << line;
    });
  }
}

void forEachEntry(const Agent& agent, const EntryVisitor& visit) {
  for (const TableAdapter* table : agent.announced()) {
    table->forEachEntry([&](const Json& key, const Json& result) {
      if (agent.routesAt(*table, key).empty()) visit(*table, key, result);
    });
  }
}

Json eventLine(const TableAdapter& table, const Json& key, const Json& result) {
  return {{"op", "set"},
          {"table", table.name()},
          {"instance", table.instance()},
          {"key", key},
          {"result", result}};
}

bool tellDamage(std::ostream& out, const Agent& agent, bool everything, const std::string& only) {
  bool any = false;
  for (const auto& table : agent.tables()) {
    if (!only.empty() && table->name() != only) continue;
    const auto corrupt = table->corruptRows();
    const auto disagreeing = table->disagreeingKeys();
    const auto stray = table->strayRows();
    const std::string name = table->fullName();
    std::string sums;
    const auto add = [&](std::size_t number, const char* one, const char* several) {
      if (number == 0) return;
      sums +=
          (sums.empty() ? "" : ", ") + std::to_string(number) + " " + (number == 1 ? one : several);
    };
    add(corrupt.size(), "corrupt row", "corrupt rows");
    add(disagreeing.size(), "entry whose copies disagree", "entries whose copies disagree");
    add(stray.size(), "row of no entry", "rows of no entry");
    if (sums.empty()) continue;
    any = true;
    out << name << " was found with " << sums << '\n';
    if (!everything) continue;
    const auto tellRow = [&](const HwTableAdapter::RowId& row, const char* what) {
      out << name << " row " << row.second << " of "
          << table->convertor().hwTable(row.first)->descriptor().identity.name << ' ' << what
          << '\n';
    };
    for (const auto& row : corrupt) tellRow(row, "is corrupt");
    for (const Json& key : disagreeing) out << name << ' ' << key.dump() << ": copies disagree\n";
    for (const auto& row : stray) tellRow(row, "is no entry's");
  }
  return any;
}

void writeWrite(std::ostream& out, const Agent& agent, U64 sequence, U64 event,
                const VelaAgent::Recorder::RowWrite& write) {
  std::string line;
  append(line, R"({"seq":)", sequence, R"(,"event":)", event, R"(,"table":)",
         Quoted{write.table.family}, R"(,"instance":)", write.table.instance, R"(,"hwTableId":)",
         write.table.id, R"(,"index":)", write.index, R"(,"registers":[)");
  const char* separator = "[";
  for (const auto& [reg, value] : write.writes) {
    append(line, separator, Quoted{agent.recorder().path(reg)}, ",", Orb::Hex{value, 8}, "]");
    separator = ",[";
  }
  append(line, "]", write.failed ? R"(,"failed":true)" : "", "}\n");
  out << line;
}

void writeWords(std::ostream& out, const Json& value, const std::string& indent, bool everything) {
  constexpr std::size_t toldItems = 20;
  constexpr std::size_t shortList = 80;
  if (value.is_object()) {
    for (const auto& [name, field] : value.items()) {
      if (field.is_structured() && !field.empty()) {
        out << indent << name << ":\n";
        writeWords(out, field, indent + "  ", everything);
      } else {
        out << indent << name << ": " << field.dump() << '\n';
      }
    }
    return;
  }
  std::size_t told = 0;
  for (const Json& item : value) {
    if (told++ == toldItems && !everything) {
      out << indent << "… " << value.size() - toldItems << " more with --verbose\n";
      return;
    }
    const std::string text = item.dump();
    if (item.is_object() || (item.is_array() && text.size() > shortList)) {
      out << indent << "-\n";
      writeWords(out, item, indent + "  ", everything);
    } else {
      out << indent << "- " << text << '\n';
    }
  }
}

Json summaryJson(const Agent& agent, const RunFigures& figures) {
  U64 moves = 0;
  U64 programmed = 0;
  Json tables = Json::array();
  for (TableAdapter* table : agent.announced()) {
    Json line = tableLine(*table);
    line["entries"] = table->entries();
    const U64 there = table->programmed();
    programmed += there;
    line["programmed"] = there;
    line["unclaimed"] = table->unclaimed();
    line["waiting"] = table->waiting();
    if (const HwTableAdapter* hardware = table->hardware()) {
      if (!hardware->borrowsRows()) moves += table->moves();
      line["peak"] = hardware->typed().peak();
      line["capacity"] = hardware->typed().capacity();
    }
    tables.push_back(line);
  }
  Json summary = {{"profile", agent.profile().name()},
                  {"events", figures.events},
                  {"programmed", programmed - agent.programmedCells()},
                  {"refused", figures.refused},
                  {"refusals", figures.refusals},
                  {"admitted", figures.admissions},
                  {"repeated", figures.repeats},
                  {"unmet", figures.unmet},
                  {"reconciled", figures.reconciled},
                  {"startRowWrites", figures.startRowWrites},
                  {"rowWrites", agent.recorder().rowWrites()},
                  {"registerWrites", agent.recorder().registerWrites()},
                  {"moves", moves},
                  {"seconds", figures.seconds},
                  {"tables", tables}};
  if (figures.dryRun) summary["dryRun"] = true;
  return summary;
}

void writeSummary(std::ostream& out, const Agent& agent, const RunFigures& figures) {
  const Json json = summaryJson(agent, figures);
  const U64 rowWrites = agent.recorder().rowWrites();
  out << format("\nProfile %s: %llu events in %.3f s\n", agent.profile().name().c_str(),
                static_cast<unsigned long long>(figures.events), figures.seconds);
  out << format("  %-26s %9s %10s %9s %6s\n", "table", "entries", "programmed", "capacity", "load");
  U32 empty = 0;
  for (const Json& table : json["tables"]) {
    const std::string name = table["table"].get<std::string>() + "/" + table["instance"].dump();
    const U32 programmed = table["programmed"];
    const U32 unclaimed = table["unclaimed"];
    if (table["entries"] == 0 && unclaimed == 0) {
      ++empty;
      continue;
    }

    out << format("  %-26s %9u %10u", name.c_str(), table["entries"].get<U32>(), programmed);
    if (const U32 size = table.value("capacity", 0u); size != 0) {
      out << format(" %9u %5.1f%%", size, 100.0 * (programmed + unclaimed) / size);
    }
    if (unclaimed != 0) out << format("  and %u of an earlier run", unclaimed);
    if (const U32 waiting = table["waiting"]; waiting != 0) {
      out << format("  full: %u wait for room", waiting);
    }
    out << '\n';
  }
  out << format("  (%u tables have no entries)\n", empty);

  out << "  entries programmed: " << json["programmed"]
      << "; announcements refused: " << figures.refusals;
  if (figures.refused != figures.refusals) {
    out << ", of which hardware still lacks " << figures.refused;
  }
  out << "; expectations unmet: " << figures.unmet << '\n';
  if (figures.repeats > 0) {
    out << "  entries announced once more: " << figures.repeats << '\n';
  }
  out << format(
      "  rows written: %llu while starting, %llu for the events; entries moved to make room: "
      "%llu\n",
      static_cast<unsigned long long>(figures.startRowWrites),
      static_cast<unsigned long long>(rowWrites - figures.startRowWrites),
      json["moves"].get<unsigned long long>());
  if (figures.reconciled > 0) {
    out << "  entries of an earlier run that were not announced again, removed: "
        << figures.reconciled << '\n';
  }
}

namespace {

/// Writes a line; what it has no room for goes to further ones.
void writeWrapped(std::ostream& out, const std::string& line, unsigned width) {
  if (line.size() <= width) {
    out << line << '\n';
    return;
  }
  const std::string indent(4, ' ');
  std::string part(line.find_first_not_of(' '), ' ');
  std::istringstream words(line);
  for (std::string word; words >> word;) {
    const bool first = part.find_first_not_of(' ') == std::string::npos;
    if (!first && part.size() + 1 + word.size() > width) {
      out << part << '\n';
      part = indent + word;
    } else {
      part += (first ? "" : " ") + word;
    }
  }
  out << part << '\n';
}

}  // namespace

void writeTables(std::ostream& out, const Agent& agent, unsigned width) {
  writeWrapped(out,
               format("%-26s %-22s %7s %5s %9s  registers", "table", "hardware table", "rows",
                      "ways", "capacity"),
               width);
  for (const auto& table : agent.tables()) {
    const std::string name = table->fullName();
    if (table->convertor().hwTables().empty()) {
      writeWrapped(out, format("%-26s %-22s", name.c_str(), "(none: kept in software)"), width);
    }
    for (const auto& [id, hwTable] : table->convertor().hwTables()) {
      const auto& descriptor = hwTable->descriptor();
      const auto last = table->location(descriptor.last);
      const std::string line =
          format("%-26s %-22s %7u %5s %9u", name.c_str(), descriptor.identity.name.c_str(),
                 descriptor.last - descriptor.first + 1,
                 last ? std::to_string(last->way + 1).c_str() : "-", table->typed().capacity());
      const std::string registers = registersOf(agent, *hwTable);
      if (line.size() + 2 + registers.size() <= width) {
        out << line << "  " << registers << '\n';
      } else {
        writeWrapped(out, line, width);
        writeWrapped(out, "    " + registers, width);
      }
    }
  }
}

}  // namespace VelaTool
