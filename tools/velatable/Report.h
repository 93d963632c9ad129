#pragma once

#include <iosfwd>

#include "Names.h"

/// What the tool prints about a run and about tables.
namespace VelaTool {

/// Figures of a run that the tables themselves do not have.
struct RunFigures {
  U64 events = 0;
  U64 repeats = 0;     ///< Announcements of keys that were announced before.
  U64 refusals = 0;    ///< Announcements that left their entry unprogrammed.
  U64 admissions = 0;  ///< Of those entries, the ones that came in by themselves.
  U64 refused = 0;     ///< The ones that hardware still lacks.
  U64 unmet = 0;
  U64 startRowWrites = 0;  ///< Row writes while the tables started.
  bool dryRun = false;
  U64 reconciled = 0;
  double seconds = 0;
};

/// The rows that hold an entry, or something else than their table holds without one; with `all`
/// each that was written.
void writeRows(std::ostream& out, const Agent& agent, bool all);
/// One line for each entry's status.
void writeStatuses(std::ostream& out, const Agent& agent);
/// One line of the writes listing.
void writeWrite(std::ostream& out, const Agent& agent, U64 sequence, U64 event,
                const VelaAgent::Recorder::RowWrite& write);

/// Calls `visit(table, key, result)` for every entry: whole routes, and of the levels' entries
/// those that no route stands for.
using EntryVisitor = std::function<void(const TableAdapter&, const Json& key, const Json& result)>;
void forEachEntry(const Agent& agent, const EntryVisitor& visit);
/// The event that announces an entry.
Json eventLine(const TableAdapter& table, const Json& key, const Json& result);

/// After a restart, and before anything is written: how many rows of each table are corrupt, differ
/// between copies or are no entry's; with `everything` which ones. Returns whether there are any.
bool tellDamage(std::ostream& out, const Agent& agent, bool everything,
                const std::string& only = {});

/// A document for people: a line for each field, the inner ones further in. Of long lists the first
/// items are told, unless `everything` is.
void writeWords(std::ostream& out, const Json& value, const std::string& indent, bool everything);

/// What the run came to, as one JSON object or in words.
Json summaryJson(const Agent& agent, const RunFigures& figures);
void writeSummary(std::ostream& out, const Agent& agent, const RunFigures& figures);

/// No line is longer than `width`, as far as words can be parted.
void writeTables(std::ostream& out, const Agent& agent, unsigned width);
/// The registers of a hardware table: the block of its first row and the names in it; a single one
/// as a whole path.
std::string registersOf(const Agent& agent, const HwTableConfig& hwTable);

}  // namespace VelaTool
