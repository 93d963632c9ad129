#include "agent/TableAudit.h"

#include <algorithm>

namespace VelaAgent {

std::vector<Waiting> waitingEntries(const Agent& agent, const TableAdapter& table,
                                    RoutesOfLevels routes) {
  std::vector<Waiting> all;
  for (const auto& status : table.statuses()) {
    if (status.status == EntryProgrammedStatus::programmed) continue;
    Waiting waiting{status.key, status.status, std::nullopt, std::nullopt};
    if (const TableEntries* level = table.levelOf(status.value)) waiting.level = level->name();
    if (status.status == EntryProgrammedStatus::tableFull) {
      waiting.entries = table.competitors(status.value) + 1;
    }
    const std::vector<Json> of = agent.routesAt(table, status.key);
    if (of.empty()) {
      all.push_back(std::move(waiting));
    } else if (routes == RoutesOfLevels::here) {
      waiting.level = table.name();
      for (const Json& route : of) {
        waiting.key = route;
        all.push_back(waiting);
      }
    }
  }
  return all;
}

Json competingLine(U64 entries) { return {{"entries", entries}, {"rows", entries - 1}}; }

std::string competingText(U64 entries) {
  return entries == 2 ? "it and another have only one row between them"
                      : Orb::text("it and ", entries - 1, " others have only ", entries - 1,
                                  " rows between them");
}

Json waitingLine(const Waiting& waiting) {
  Json line = {{"key", waiting.key}, {"status", VelaSwitchApi::nameOf(waiting.status)}};
  if (waiting.level) line["level"] = *waiting.level;
  if (waiting.entries) line["competing"] = competingLine(*waiting.entries);
  return line;
}

namespace {

/// Whether the fields that two rows should have alike are alike in them.
bool sayTheSame(const RowFinding& a, const RowFinding& b) {
  if (a.kind != b.kind) return false;
  return std::all_of(a.fields.begin(), a.fields.end(), [&](const auto& field) {
    const auto other = std::find_if(b.fields.begin(), b.fields.end(), [&](const auto& each) {
      return each.field == field.field && each.expected == field.expected;
    });
    return other == b.fields.end() || other->found == field.found;
  });
}

}  // namespace

std::vector<Json> disagreeingKeys(const HwTableAdapter& table,
                                  const std::vector<RowFinding>& findings) {
  std::map<Json, std::vector<const RowFinding*>> rows;
  for (const RowFinding& finding : findings) {
    const bool held =
        finding.kind == RowFinding::Kind::inconsistent || finding.kind == RowFinding::Kind::missing;
    if (held && finding.index && !finding.key.is_null()) rows[finding.key].push_back(&finding);
  }
  std::vector<Json> keys;
  const auto& hwTables = table.convertor().hwTables();
  for (const auto& each : rows) {
    const std::vector<const RowFinding*>& wrong = each.second;
    const auto copies = std::count_if(hwTables.begin(), hwTables.end(), [&](const auto& copy) {
      const HwIndex index = *wrong.front()->index;
      return HwTableAdapter::holds(*copy.second, index) && !copy.second->mapped(index).empty();
    });
    const bool same = wrong.size() == static_cast<std::size_t>(copies) &&
                      std::all_of(wrong.begin(), wrong.end(), [&](const RowFinding* row) {
                        return sayTheSame(*wrong.front(), *row);
                      });
    if (!same) keys.push_back(each.first);
  }
  return keys;
}

}  // namespace VelaAgent
