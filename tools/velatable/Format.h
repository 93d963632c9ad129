#pragma once

#include <cstdio>
#include <string>

namespace VelaTool {

/// A line of columns.
template <class... Arguments>
std::string format(const char* pattern, Arguments... arguments) {
  char line[300];
  std::snprintf(line, sizeof line, pattern, arguments...);
  return line;
}

}  // namespace VelaTool
