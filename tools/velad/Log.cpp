#include "Log.h"

#include <systemd/sd-daemon.h>

#include <cstdio>
#include <cstdlib>

namespace Velad {

namespace {

Level least = Level::info;

}  // namespace

Level levelOf(const std::string& name) {
  return name == "error" ? Level::error : name == "warning" ? Level::warning : Level::info;
}

void leastLevelIs(Level level) { least = level; }

Level leastLevel() { return least; }

void log(Level level, const std::string& text) {
  if (level > least) return;
  static const bool journal = std::getenv("JOURNAL_STREAM") != nullptr;
  static constexpr const char* marks[] = {SD_ERR, SD_WARNING, SD_INFO};
  static constexpr const char* names[] = {"velad: error: ", "velad: warning: ", "velad: info: "};
  const auto at = static_cast<std::size_t>(level);
  std::fprintf(stderr, "%s%s\n", journal ? marks[at] : names[at], text.c_str());
}

}  // namespace Velad
