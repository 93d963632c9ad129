#include "Report.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

namespace VelaTool {

using VelaAgent::Agent;
using VelaAgent::hexText;
using VelaAgent::HwIndex;
using VelaAgent::HwTableAdapter;
using VelaAgent::Json;
using VelaAgent::TableAdapter;
using VelaSwitchApi::HwTableConfig;

namespace {

template <class... Arguments>
std::string format(const char* pattern, Arguments... arguments) {
  char line[300];
  std::snprintf(line, sizeof line, pattern, arguments...);
  return line;
}

U32 capacity(const HwTableAdapter& table) {
  U32 size = 0;
  for (const auto& counter : table.convertor().entryCounters()) size += counter.size;
  return size;
}

/// Highest use since the start.
U32 peak(const HwTableAdapter& table) {
  U32 highest = 0;
  for (const auto& counter : table.convertor().entryCounters()) highest += counter.peak();
  return highest;
}

Json rowLine(const Agent& agent, const HwTableAdapter& table, const HwTableConfig& hwTable,
             HwIndex index, const Json& key) {
  const auto& descriptor = hwTable.descriptor();
  Json line = {{"table", table.name()},
               {"instance", table.instance()},
               {"hwTable", descriptor.identity.name},
               {"hwTableId", descriptor.identity.id},
               {"index", index}};
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

/// The registers of a hardware table: the block of its first row and the names in it; a single one
/// as a whole path.
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

std::string registerName(const Agent& agent, const HwTableConfig& hwTable, U8 word) {
  for (const auto& m : hwTable.mapped(hwTable.descriptor().first)) {
    if (m.word != word) continue;
    const std::string& path = agent.recorder().path(m.reg);
    return path.substr(path.rfind('/') + 1);
  }
  return "(no register)";
}

}  // namespace

void writeRows(std::ostream& out, const Agent& agent) {
  for (const auto& table : agent.tables()) {
    for (const auto& [id, hwTable] : table->convertor().hwTables()) {
      for (HwIndex i = hwTable->descriptor().first; i <= hwTable->descriptor().last; ++i) {
        if (!table->listsRow(i)) continue;
        const Json key = table->keyAt(i);
        if (!key.is_null() || hwTable->written(i)) {
          out << rowLine(agent, *table, *hwTable, i, key).dump() << '\n';
        }
      }
    }
  }
}

void writeStatuses(std::ostream& out, const Agent& agent) {
  for (const TableAdapter* table : agent.announced()) {
    for (const auto& status : table->statuses()) {
      const Json line = {{"table", table->name()},
                         {"instance", table->instance()},
                         {"key", status.key},
                         {"status", VelaSwitchApi::nameOf(status.status)},
                         {"lastHit", status.lastHit.value()}};
      out << line.dump() << '\n';
    }
  }
}

bool writeEntries(std::ostream& out, std::ostream& problems, const Agent& agent,
                  const std::string& only) {
  if (!only.empty()) agent.table(only, 0);
  bool good = true;
  for (TableAdapter* table : agent.announced()) {
    if (!only.empty() && table->name() != only) continue;
    table->forEachEntry([&](const Json& key, const Json& result) {
      out << Json{{"op", "set"},
                  {"table", table->name()},
                  {"instance", table->instance()},
                  {"key", key},
                  {"result", result}}
                 .dump()
          << '\n';
    });
    const HwTableAdapter* hardware = table->hardware();
    if (!hardware) continue;
    for (const auto& [id, index] : hardware->corruptRows()) {
      good = false;
      problems << table->name() << '/' << table->instance() << " row " << index
               << " of hardware table "
               << hardware->convertor().hwTable(id)->descriptor().identity.name << " is corrupt\n";
    }
  }
  return good;
}

Json writeLine(const Agent& agent, U64 sequence, U64 event,
               const VelaAgent::Recorder::RowWrite& write) {
  Json registers = Json::array();
  for (const auto& [reg, value] : write.writes) {
    registers.push_back({agent.recorder().path(reg), hexText(value, 8)});
  }
  Json line = {{"seq", sequence},
               {"event", event},
               {"table", write.table.family},
               {"instance", write.table.instance},
               {"hwTableId", write.table.id},
               {"index", write.index},
               {"registers", registers}};
  if (write.failed) line["failed"] = true;
  return line;
}

Json summaryJson(const Agent& agent, const RunFigures& figures) {
  U64 moves = 0;
  Json tables = Json::array();
  for (TableAdapter* table : agent.announced()) {
    Json line = {{"table", table->name()},          {"instance", table->instance()},
                 {"entries", table->entries()},     {"programmed", table->programmed()},
                 {"unclaimed", table->unclaimed()}, {"waiting", table->waiting()}};
    if (const HwTableAdapter* hardware = table->hardware()) {
      if (!hardware->borrowsRows()) moves += table->moves();
      line["peak"] = peak(*hardware);
      line["capacity"] = capacity(*hardware);
    }
    tables.push_back(line);
  }
  return {{"profile", agent.profile().name()},
          {"events", figures.events},
          {"programmed", agent.programmed()},
          {"refused", figures.refused},
          {"unmet", figures.unmet},
          {"reconciled", figures.reconciled},
          {"startRowWrites", figures.startRowWrites},
          {"rowWrites", agent.recorder().rowWrites()},
          {"registerWrites", agent.recorder().registerWrites()},
          {"moves", moves},
          {"seconds", figures.seconds},
          {"tables", tables}};
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

  out << format(
      "  entries programmed: %llu; announcements refused: %llu; expectations unmet: %llu\n",
      json["programmed"].get<unsigned long long>(),
      static_cast<unsigned long long>(figures.refused),
      static_cast<unsigned long long>(figures.unmet));
  out << format(
      "  rows written: %llu while starting, %llu for the events; entries moved to make room: "
      "%llu\n",
      static_cast<unsigned long long>(figures.startRowWrites),
      static_cast<unsigned long long>(rowWrites - figures.startRowWrites),
      json["moves"].get<unsigned long long>());
  if (figures.reconciled > 0) {
    out << format("  entries of an earlier run that were not announced again, removed: %u\n",
                  figures.reconciled);
  }
}

void writeTables(std::ostream& out, const Agent& agent) {
  out << format("%-26s %-22s %7s %5s %9s  %s\n", "table", "hardware table", "rows", "ways",
                "capacity", "registers");
  for (const auto& table : agent.tables()) {
    const std::string name = table->name() + "/" + std::to_string(table->instance());
    if (table->convertor().hwTables().empty()) {
      out << format("%-26s %-22s\n", name.c_str(), "(none: kept in software)");
    }
    for (const auto& [id, hwTable] : table->convertor().hwTables()) {
      const auto& descriptor = hwTable->descriptor();
      const auto last = table->location(descriptor.last);
      out << format("%-26s %-22s %7u %5s %9u  %s\n", name.c_str(), descriptor.identity.name.c_str(),
                    descriptor.last - descriptor.first + 1,
                    last ? std::to_string(last->way + 1).c_str() : "-", capacity(*table),
                    registersOf(agent, *hwTable).c_str());
    }
  }
}

void writeLayout(std::ostream& out, const Agent& agent, const HwTableAdapter& table) {
  if (table.convertor().hwTables().empty()) {
    out << table.name() << " has no rows in hardware\n";
    return;
  }
  const HwTableConfig& hwTable = *table.convertor().hwTables().begin()->second;
  out << table.name() << ", profile " << agent.profile().name() << ", registers "
      << registersOf(agent, hwTable) << "\n";
  out << format("%-11s %5s  %-24s %s\n", "bits", "width", "field", "register");
  const auto& descriptor = hwTable.descriptor();
  auto fields = table.convertor().rowLayout(descriptor.identity.id, descriptor.first).fields();
  std::stable_sort(fields.begin(), fields.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& field : fields) {
    if (field.width == 0) continue;
    const U32 last = field.first + field.width - 1u;
    const auto word = [](U32 bit) { return static_cast<U8>(bit / 32); };
    std::string registers = registerName(agent, hwTable, word(field.first));
    if (word(last) != word(field.first)) {
      registers += " … " + registerName(agent, hwTable, word(last));
    }
    const std::string bits = field.width == 1
                                 ? std::to_string(field.first)
                                 : std::to_string(field.first) + "–" + std::to_string(last);
    // Counted by hand: the dash has more bytes than columns.
    out << bits
        << std::string(11 - std::min<std::size_t>(11, bits.size() - (field.width == 1 ? 0 : 2)),
                       ' ')
        << format(" %5u  %-24s %s\n", field.width, field.name, registers.c_str());
  }
}

}  // namespace VelaTool
