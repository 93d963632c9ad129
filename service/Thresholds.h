#pragma once

#include <map>
#include <string>

#include "service/Watch.h"

namespace VelaService {

/// How full a table is, in percent, when operators are to hear of it.
struct Marks {
  unsigned high = 85;  ///< It is too full when it is fuller than this,
  unsigned low = 70;   ///< until it is no fuller than this.
  bool operator==(const Marks&) const = default;
};

struct ThresholdSettings {
  Marks usual;
  std::map<std::string, Marks> tables;  ///< Those that are others, by the table's name.

  const Marks& of(const std::string& table) const {
    const auto at = tables.find(table);
    return at == tables.end() ? usual : at->second;
  }
};

/// Tells when tables become too full, and when they are not any more. Tables that share rows are
/// one, by the name of the first.
class Thresholds {
 public:
  /// What is known of a table.
  struct State {
    bool above = false;
    U64 rises = 0;  ///< How often it became too full, so far,
    U64 falls = 0;  ///< and how often it was not any more.
  };

  /// Both must outlive it.
  Thresholds(const VelaAgent::Agent& agent, Watch& watch) : agent_(agent), watch_(watch) {}

  /// Whether the table has rows that no other one before it has.
  static bool hasMarks(const VelaAgent::HwTableAdapter& table);
  void settingsAre(ThresholdSettings settings) { settings_ = std::move(settings); }
  /// Compares how full each table is with its marks.
  void check();
  const Marks& marks(const std::string& table) const { return settings_.of(table); }
  /// Null for a table that was never checked: its rows are another's, or it has none.
  const State* state(const VelaAgent::HwTableAdapter& table) const;

 private:
  const VelaAgent::Agent& agent_;
  Watch& watch_;
  ThresholdSettings settings_;
  std::map<const VelaAgent::HwTableAdapter*, State> states_;
};

}  // namespace VelaService
