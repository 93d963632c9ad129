#include "AuditReport.h"

#include <ostream>
#include <sstream>

#include "agent/Events.h"

namespace VelaTool {

using VelaAgent::HwTableAdapter;
using VelaAgent::Json;
using VelaAgent::RowFinding;

namespace {

/// Findings of one table that are told unless all are.
constexpr U64 toldFindings = 20;

/// A finding in words.
std::string words(const HwTableAdapter& table, const RowFinding& finding) {
  std::ostringstream text;
  text << table.name() << '/' << table.instance();
  const Json& key = finding.key.is_null() ? finding.holds : finding.key;
  if (!key.is_null()) text << ' ' << key.dump();
  if (!finding.index) {
    text << ": missing, it is in no row";
    return text.str();
  }
  text << ": row " << *finding.index << " of " << finding.hwTable->descriptor().identity.name;
  if (const auto at = table.location(*finding.index)) {
    text << " (way " << int{at->way} << ", row " << at->row << ')';
  }
  switch (finding.kind) {
    case RowFinding::Kind::inconsistent:
      text << (finding.corrupt ? " is corrupt" : " differs");
      break;
    case RowFinding::Kind::missing:
      text << " is empty";
      break;
    case RowFinding::Kind::unexpected:
      text << (finding.corrupt ? " is corrupt, and no entry's" : " is no entry's that is desired");
      break;
    case RowFinding::Kind::unreadable:
      text << " could not be read";
      break;
  }
  const char* separator = ": ";
  for (const auto& field : finding.fields) {
    text << separator << field.field << " is " << VelaAgent::hexText(field.found, 0)
         << ", should be " << VelaAgent::hexText(field.expected, 0);
    separator = "; ";
  }
  return text.str();
}

}  // namespace

void AuditReport::audit(HwTableAdapter& table) {
  table.audit();
  for (const auto& [id, hwTable] : table.convertor().hwTables()) {
    if (!table.borrowsRows()) rows_ += hwTable->descriptor().last - hwTable->descriptor().first + 1;
  }
  U64 told = 0;
  for (const RowFinding& finding : table.findings()) {
    ++found_;
    ++byKind_[static_cast<std::size_t>(finding.kind)];
    if (finding.corrupt) ++corrupt_;
    if (json_) {
      Json line = VelaAgent::findingLine(finding);
      line["table"] = table.name();
      line["instance"] = table.instance();
      out_ << line.dump() << '\n';
    } else if (everything_ || told < toldFindings) {
      out_ << words(table, finding) << '\n';
    } else if (told == toldFindings) {
      out_ << table.name() << '/' << table.instance() << ": more is told with --verbose\n";
    }
    ++told;
  }
}

void AuditReport::finish(const VelaAgent::Agent& agent, bool repaired) {
  U64 left = 0;
  for (const auto& table : agent.tables()) left += table->convertor().auditFindings().size();
  if (json_) {
    Json line = {{"rows", rows_},
                 {"inconsistent", byKind_[0]},
                 {"missing", byKind_[1]},
                 {"unexpected", byKind_[2]},
                 {"unreadable", byKind_[3]},
                 {"corrupt", corrupt_}};
    if (repaired) {
      line["rowWrites"] = agent.recorder().rowWrites();
      line["left"] = left;
    }
    out_ << line.dump() << '\n';
    return;
  }
  out_ << rows_ << " rows audited: " << byKind_[0] << " inconsistent, " << byKind_[1]
       << " missing, " << byKind_[2] << " unexpected, " << byKind_[3] << " unreadable; " << corrupt_
       << " of them corrupt\n";
  if (repaired) {
    out_ << agent.recorder().rowWrites() << " rows written to repair them; " << left
         << " findings left\n";
  }
}

}  // namespace VelaTool
