#pragma once

#include <iosfwd>

#include "Names.h"

namespace VelaTool {

/// Lines of a table for a spreadsheet. The columns are all fields that any line has, those of
/// nested objects as "outer.inner".
class CsvTable {
 public:
  /// Adds a line: an object.
  void lineIs(const Json& line);
  /// Writes the head and all lines.
  void write(std::ostream& out) const;

 private:
  std::vector<std::string> columns_;
  std::vector<std::map<std::string, std::string>> lines_;
};

}  // namespace VelaTool
