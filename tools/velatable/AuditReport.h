#pragma once

#include <iosfwd>

#include "agent/Agent.h"

namespace VelaTool {

/// Audits tables and tells what was found, each finding in a line of words or of JSON.
class AuditReport {
 public:
  /// Without `everything` only the first findings of a table are told in words; all are counted.
  AuditReport(std::ostream& out, bool json, bool everything)
      : out_(out), json_(json), everything_(everything) {}

  void audit(VelaAgent::HwTableAdapter& table);
  /// The line that sums up; `repaired` when the tables were audited again after a repair.
  void finish(const VelaAgent::Agent& agent, bool repaired);
  U64 found() const { return found_; }

 private:
  std::ostream& out_;
  bool json_;
  bool everything_;
  U64 rows_ = 0;
  U64 found_ = 0;
  U64 corrupt_ = 0;
  U64 byKind_[4]{};
};

}  // namespace VelaTool
