#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VelaTool {

/// The lines of a file, or of standard input: read in large blocks and handed out where they lie.
class Lines {
 public:
  /// Throws InputException when the file cannot be read.
  explicit Lines(const std::string& name);
  ~Lines();
  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;

  /// The next line, which stays where it is until the next call and has EventReader::padding bytes
  /// behind it; nothing at the end.
  std::optional<std::string_view> next();
  /// Whether a whole line is there already, so that those handed out before stay where they are.
  bool ready() const;

 private:
  bool readMore();
  [[noreturn]] void refuse() const;

  std::string name_;
  int file_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;  ///< What was read and not handed out.
  std::size_t end_ = 0;
};

}  // namespace VelaTool
