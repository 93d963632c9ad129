#pragma once

#include "agent/Agent.h"
#include "agent/TableAdapter.h"

/// What an audit has to tell of a table beside the rows that are wrong.
namespace VelaAgent {

/// A desired entry that hardware does not have.
struct Waiting {
  Json key;
  EntryProgrammedStatus status;
  std::optional<std::string> level;  ///< Of a route: the table that it is to be in.
  /// How many entries, this one among them, have how few rows between them; for a full table.
  std::optional<U64> entries;
};

/// The desired entries of the table that hardware does not have. For an entry of a level the routes
/// that it stands for are told, unless they are `elsewhere`.
enum class RoutesOfLevels : bool { here, elsewhere };
std::vector<Waiting> waitingEntries(const Agent& agent, const TableAdapter& table,
                                    RoutesOfLevels routes);
/// The JSON form of one.
Json waitingLine(const Waiting& waiting);

/// The keys whose rows in several hardware tables do not say the same, by what an audit found.
std::vector<Json> disagreeingKeys(const HwTableAdapter& table,
                                  const std::vector<RowFinding>& findings);

/// What a refused entry competes for: how many entries have how few rows between them.
Json competingLine(U64 entries);
/// The same in words.
std::string competingText(U64 entries);

}  // namespace VelaAgent
