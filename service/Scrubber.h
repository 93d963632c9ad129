#pragma once

#include <map>
#include <optional>

#include "service/Watch.h"

namespace VelaService {

struct ScrubSettings {
  U32 rows = 1000;      ///< Read in a second; 0: none.
  bool repair = false;  ///< Whether what is found wrong is written.
};

/// Audits the switch little by little. Rows are read again and compared; where one differs its
/// table is audited as a whole, and the rows that it has are not due for a while.
class Scrubber {
 public:
  using Kind = VelaSwitchApi::AuditFinding::Kind;

  /// Both must outlive it.
  Scrubber(VelaAgent::Agent& agent, Watch& watch);

  void settingsAre(const ScrubSettings& settings) { settings_ = settings; }
  /// Reads as many rows as are due; to be called several times a second, while no change is under
  /// way.
  void tick(Clock::time_point now);

  U64 rows() const { return rows_; }      ///< Read so far.
  U64 passes() const { return passes_; }  ///< How often all were, from the first to the last.
  /// When that ended last.
  std::optional<Clock::time_point> lastPass() const { return lastPass_; }
  /// Calls `visit(table, kind, count)` for what was found so far.
  template <class Visitor>
  void forEachFound(const Visitor& visit) const {
    for (const auto& [of, count] : found_) visit(*of.first, of.second, count);
  }

 private:
  /// The rows of a hardware table.
  struct Part {
    VelaAgent::HwTableAdapter* table;
    VelaSwitchApi::HwTableId id;
    VelaSwitchApi::HwIndex first;
    VelaSwitchApi::HwIndex last;
  };

  void step(Clock::time_point now);
  void nextPart(Clock::time_point now);
  void audit(VelaAgent::HwTableAdapter& table);

  VelaAgent::Agent& agent_;
  Watch& watch_;
  ScrubSettings settings_;
  std::vector<Part> parts_;
  std::size_t part_ = 0;                 ///< The one under way,
  VelaSwitchApi::HwIndex index_ = 0;     ///< and its next row.
  double due_ = 0;                       ///< Rows, less than none after an audit.
  std::optional<Clock::time_point> at_;  ///< The last tick.
  U64 rows_ = 0;
  U64 passes_ = 0;
  std::optional<Clock::time_point> lastPass_;
  std::map<std::pair<const VelaAgent::HwTableAdapter*, Kind>, U64> found_;
};

}  // namespace VelaService
