#include <iostream>
#include <optional>
#include <sstream>

#include "Commands.h"
#include "Diff.h"
#include "Input.h"
#include "Progress.h"
#include "agent/Profiles.h"
#include "agent/TableAudit.h"

namespace VelaTool {

using VelaAgent::RowFinding;
using VelaAgent::Waiting;

namespace {

/// Findings of one table that are told unless all are.
constexpr U64 toldFindings = 20;

/// A finding in words.
std::string words(const HwTableAdapter& table, const RowFinding& finding) {
  std::ostringstream text;
  text << table.fullName();
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
  // By the kind of finding; what no row of the table can be is told as such.
  static constexpr const char* says[][2] = {
      {" differs", " is corrupt"},
      {" is empty", " is empty"},
      {" is no entry's that is desired", " is corrupt, and no entry's"},
      {" could not be read", " could not be read"}};
  text << says[static_cast<std::size_t>(finding.kind)][finding.corrupt ? 1 : 0];
  const char* separator = ": ";
  for (const auto& field : finding.fields) {
    text << separator << field.field << " is " << hexText(field.found, 0) << ", should be "
         << hexText(field.expected, 0);
    separator = "; ";
  }
  return text.str();
}

std::string words(const TableAdapter& table, const Waiting& waiting) {
  std::string text = table.fullName() + " " + waiting.key.dump() + ": waits, " +
                     VelaSwitchApi::nameOf(waiting.status);
  if (waiting.level) text += " in " + *waiting.level;
  if (waiting.entries) {
    text += "; " + VelaAgent::competingText(*waiting.entries);
  }
  return text;
}

/// Audits tables and tells what was found, each finding in a line of words or of JSON.
class AuditReport {
 public:
  /// Without `everything` only the first findings of a table are told in words; all are counted.
  AuditReport(std::ostream& out, bool json, bool everything)
      : out_(out), json_(json), everything_(everything) {}

  void audit(const Agent& agent, TableAdapter& table);
  /// The line that sums up, after a repair also what that did.
  void finish(const Agent& agent, const Options& options);
  U64 found() const { return found_; }
  /// How far it is.
  Progress& progress() { return progress_; }

 private:
  void auditRows(HwTableAdapter& table);
  void tell(const TableAdapter& table, const std::string& text);
  template <class Items, class LineOf>
  void tellList(const TableAdapter& table, const char* name, const Items& items,
                const LineOf& lineOf);

  std::ostream& out_;
  Progress progress_;
  bool json_;
  bool everything_;
  U64 told_ = 0;  ///< Findings of the table under way.
  U64 rows_ = 0;
  U64 found_ = 0;
  U64 corrupt_ = 0;
  U64 waiting_ = 0;
  U64 disagreeing_ = 0;
  U64 byKind_[4]{};
};

void AuditReport::tell(const TableAdapter& table, const std::string& text) {
  progress_.hide();
  if (everything_ || told_ < toldFindings) {
    out_ << text << '\n';
  } else if (told_ == toldFindings) {
    out_ << table.fullName() << ": more is told with --verbose\n";
  }
  ++told_;
}

/// A list of one table, a thousand items a line.
template <class Items, class LineOf>
void AuditReport::tellList(const TableAdapter& table, const char* name, const Items& items,
                           const LineOf& lineOf) {
  constexpr std::size_t lineItems = 1000;
  for (std::size_t done = 0; done < items.size(); done += lineItems) {
    Json line = tableLine(table);
    line[name] = Json::array();
    for (std::size_t i = done; i < std::min(items.size(), done + lineItems); ++i) {
      line[name].push_back(lineOf(items[i]));
    }
    out_ << line.dump() << '\n';
  }
}

void AuditReport::audit(const Agent& agent, TableAdapter& table) {
  told_ = 0;
  // What the audit is about to find is not what hardware never had.
  const std::vector<Waiting> waiting =
      waitingEntries(agent, table, VelaAgent::RoutesOfLevels::elsewhere);
  if (HwTableAdapter* hardware = table.hardware()) auditRows(*hardware);
  waiting_ += waiting.size();
  found_ += waiting.size();
  if (json_) return tellList(table, "waiting", waiting, VelaAgent::waitingLine);
  for (const Waiting& each : waiting) tell(table, words(table, each));
}

void AuditReport::auditRows(HwTableAdapter& table) {
  table.audit();
  for (const auto& [id, hwTable] : table.convertor().hwTables()) {
    if (!table.borrowsRows()) rows_ += hwTable->descriptor().last - hwTable->descriptor().first + 1;
  }
  const std::vector<RowFinding> findings = table.findings();
  for (const RowFinding& finding : findings) {
    ++found_;
    ++byKind_[static_cast<std::size_t>(finding.kind)];
    if (finding.corrupt) ++corrupt_;
    if (json_) {
      Json line = VelaAgent::findingLine(finding);
      line["table"] = table.name();
      line["instance"] = table.instance();
      out_ << line.dump() << '\n';
    } else {
      tell(table, words(table, finding));
    }
  }
  const std::vector<Json> disagreeing = disagreeingKeys(table, findings);
  disagreeing_ += disagreeing.size();
  if (json_) {
    return tellList(table, "disagreeing", disagreeing, [](const Json& key) { return key; });
  }
  for (const Json& key : disagreeing) {
    tell(table, table.fullName() + " " + key.dump() + ": its copies disagree");
  }
}

void AuditReport::finish(const Agent& agent, const Options& options) {
  progress_.hide();
  U64 left = 0;
  for (const auto& table : agent.tables()) left += table->convertor().auditFindings().size();
  if (json_) {
    Json line = {{"rows", rows_},
                 {"inconsistent", byKind_[0]},
                 {"missing", byKind_[1]},
                 {"unexpected", byKind_[2]},
                 {"unreadable", byKind_[3]},
                 {"corrupt", corrupt_},
                 {"waiting", waiting_},
                 {"disagreeing", disagreeing_}};
    if (options.repair) {
      line["rowWrites"] = agent.recorder().rowWrites();
      line["left"] = left;
      if (options.dryRun) line["dryRun"] = true;
    }
    out_ << line.dump() << '\n';
    return;
  }
  out_ << rows_ << " rows audited: " << byKind_[0] << " inconsistent, " << byKind_[1]
       << " missing, " << byKind_[2] << " unexpected, " << byKind_[3] << " unreadable; " << corrupt_
       << " of them corrupt; " << disagreeing_ << (disagreeing_ == 1 ? " entry" : " entries")
       << " with copies that disagree, " << waiting_ << " waiting\n";
  if (!options.repair) return;
  const U64 rows = agent.recorder().rowWrites();
  out_ << rows << (rows == 1 ? " row " : " rows ")
       << (options.dryRun ? "would be written" : "written") << " to repair them; " << left
       << " findings left\n";
}

}  // namespace

int audit(const Options& options) {
  if (!options.connect.empty()) return auditLive(options);
  const auto profile = VelaAgent::loadProfile(options.profile);
  checkFiles(options);
  const bool writes = options.repair && !options.dryRun;
  SimulatedSwitch chip = writes ? openSaved(options.device) : copySaved(options.device);
  std::optional<SimulatedSwitch> untouched;
  if (options.dryRun) untouched.emplace(chip);
  MadeAgent agent(profile, chip);
  agent.desireBegin();
  EventRunner runner(agent);
  runner.desiresOnlyIs(true);
  const bool good = applyFiles(options, runner);
  if (!good && !options.keepGoing) return exitBadInput;
  agent.desireEnd();

  AuditReport report(std::cout, options.json, options.verbose);
  double done = 0;
  for (TableAdapter* table : agent.announced()) {
    report.progress().is(done++ / static_cast<double>(agent.announced().size()));
    report.audit(agent, *table);
  }
  if (options.repair) {
    for (const auto& table : agent.tables()) table->repair();
    for (const auto& table : agent.tables()) table->audit();
  }
  if (untouched) {
    if (!options.json) std::cout << "Dry run. A repair would change this:\n";
    SwitchDiff(profile, *untouched, chip).tell(std::cout, options.json, options.verbose);
  }
  report.finish(agent, options);
  if (!good) return exitBadInput;
  return report.found() == 0 ? exitGood : exitRefused;
}

}  // namespace VelaTool
