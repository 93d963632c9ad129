#pragma once

#include <chrono>

namespace VelaTool {

/// Whether what is written to the file descriptor may be coloured: it is a terminal, and nobody
/// asked for NO_COLOR.
bool coloured(int file);

/// How far a command is: a bar on standard error where that is a terminal, for what takes more than
/// a second. It is gone when this goes.
class Progress {
 public:
  /// Lines that a command prints as it goes show how far it is, where they go to a terminal.
  explicit Progress(bool printsLines = false);
  ~Progress() { hide(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// How much is done, 0 to 1.
  void is(double share);
  /// Makes room for a line; the next change shows the bar again.
  void hide();

 private:
  bool terminal_;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  int percent_ = -1;
  bool visible_ = false;
};

}  // namespace VelaTool
