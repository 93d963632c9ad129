#pragma once

#include <iosfwd>

#include "Names.h"

namespace VelaTool {

/// How two switches of one profile differ: in the entries that their registers hold, and in rows.
class SwitchDiff {
 public:
  /// Neither switch is changed.
  SwitchDiff(const Profile& profile, const SimulatedSwitch& before, const SimulatedSwitch& after);

  U64 entries() const { return entries_.size(); }
  U64 rows() const { return rows_.size(); }
  /// A line for each difference, in words or of JSON, and one that sums up. Words on many rows are
  /// cut short unless `everything` is told.
  void tell(std::ostream& out, bool json, bool everything) const;

 private:
  /// One thing that differs, by field.
  struct Difference {
    Json where;   ///< What it is: the same members in both switches.
    Json before;  ///< Null where it is in one switch alone.
    Json after;
  };
  static Json line(const char* kind, const Difference& difference);
  static std::string words(const Difference& difference);

  std::vector<Difference> entries_;
  std::vector<Difference> rows_;
};

}  // namespace VelaTool
