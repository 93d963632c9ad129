#include "Progress.h"

#include <unistd.h>

#include <cstdlib>
#include <iostream>

namespace VelaTool {

bool coloured(int file) {
  const char* refused = std::getenv("NO_COLOR");
  return isatty(file) != 0 && (!refused || *refused == '\0');
}

Progress::Progress(bool printsLines)
    : terminal_(isatty(STDERR_FILENO) != 0 && !(printsLines && isatty(STDOUT_FILENO) != 0)) {}

void Progress::is(double share) {
  constexpr int width = 40;
  constexpr auto patience = std::chrono::seconds(1);
  const auto percent = static_cast<int>(100 * share);
  if (!terminal_ || percent == percent_) return;
  percent_ = percent;
  if (std::chrono::steady_clock::now() - begin_ < patience) return;
  const auto filled = static_cast<std::size_t>(percent * width / 100);
  const bool colours = coloured(STDERR_FILENO);
  visible_ = true;
  std::cerr << "\r\033[K[" << (colours ? "\033[36m" : "") << std::string(filled, '=')
            << (colours ? "\033[0m" : "") << std::string(width - filled, ' ') << "] " << percent
            << " %\r" << std::flush;
}

void Progress::hide() {
  if (visible_) std::cerr << "\r\033[K" << std::flush;
  visible_ = false;
}

}  // namespace VelaTool
