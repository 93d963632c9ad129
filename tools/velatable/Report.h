#pragma once

#include <iosfwd>

#include "agent/Agent.h"
#include "agent/Events.h"

/// What the tool prints about a run and about tables.
namespace VelaTool {

/// Figures of a run that the tables themselves do not have.
struct RunFigures {
  U64 events = 0;
  U64 refused = 0;
  U64 unmet = 0;
  U64 startRowWrites = 0;  ///< Row writes while the tables started.
  U32 reconciled = 0;
  double seconds = 0;
};

void writeRows(std::ostream& out, const VelaAgent::Agent& agent);
void writeStatuses(std::ostream& out, const VelaAgent::Agent& agent);
/// One line of the writes listing.
VelaAgent::Json writeLine(const VelaAgent::Agent& agent, U64 sequence, U64 event,
                          const VelaAgent::Recorder::RowWrite& write);

/// Writes every entry of the tables, or of one, as the event that announces it; to `problems` a
/// line for each row that no entry can be read from. Returns whether there was none.
bool writeEntries(std::ostream& out, std::ostream& problems, const VelaAgent::Agent& agent,
                  const std::string& only);

VelaAgent::Json summaryJson(const VelaAgent::Agent& agent, const RunFigures& figures);
void writeSummary(std::ostream& out, const VelaAgent::Agent& agent, const RunFigures& figures);

void writeTables(std::ostream& out, const VelaAgent::Agent& agent);
void writeLayout(std::ostream& out, const VelaAgent::Agent& agent,
                 const VelaAgent::HwTableAdapter& table);

}  // namespace VelaTool
