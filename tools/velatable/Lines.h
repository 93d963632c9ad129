#pragma once

#include <string>
#include <string_view>

namespace VelaTool {

/// The lines of a file, or of standard input, in large blocks.
class Lines {
 public:
  /// Throws InputException when the file cannot be read.
  explicit Lines(const std::string& name);
  ~Lines();
  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;

  /// Reads what comes next, whole lines, with EventReader::padding bytes behind them. False at the
  /// end. Throws InputException when they cannot be read.
  bool next(std::string& block);
  /// Whether there is nobody to wait for: all lines are in a file.
  bool inFile() const;

 private:
  [[noreturn]] void refuse() const;

  std::string name_;
  int file_;
  std::string rest_;  ///< What was read behind the last block: a line's begin.
};

/// Takes the first line from the text, which it goes without.
inline std::string_view takeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(line.size() + (line.size() < text.size() ? 1 : 0));
  return line;
}

}  // namespace VelaTool
