#include "Lines.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "agent/EventReader.h"

namespace VelaTool {

using VelaAgent::EventReader;

namespace {

constexpr std::size_t blockSize = 1 << 18;

}  // namespace

Lines::Lines(const std::string& name)
    : name_(name), file_(name == "-" ? STDIN_FILENO : ::open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (file_ < 0) refuse();
}

Lines::~Lines() {
  if (file_ > STDERR_FILENO) ::close(file_);
}

void Lines::refuse() const { throw VelaAgent::InputException("cannot read " + name_); }

bool Lines::ready() const {
  // Nothing was read yet, perhaps, and then there is no buffer to look into.
  return begin_ != end_ && std::memchr(buffer_.data() + begin_, '\n', end_ - begin_) != nullptr;
}

std::optional<std::string_view> Lines::next() {
  std::size_t searched = 0;
  for (;;) {
    const char* text = buffer_.data() + begin_;
    const std::size_t size = end_ - begin_;
    const void* newline =
        size == searched ? nullptr : std::memchr(text + searched, '\n', size - searched);
    if (newline) {
      const auto length = static_cast<std::size_t>(static_cast<const char*>(newline) - text);
      begin_ += length + 1;
      return std::string_view(text, length);
    }
    searched = size;
    if (readMore()) continue;
    if (size == 0) return std::nullopt;
    begin_ = end_;
    return std::string_view(buffer_.data() + end_ - size, size);
  }
}

/// Reads behind what is there, with room behind that. False at the end.
bool Lines::readMore() {
  std::copy(buffer_.data() + begin_, buffer_.data() + end_, buffer_.data());
  end_ -= begin_;
  begin_ = 0;
  if (end_ + blockSize + EventReader::padding > buffer_.size()) {
    buffer_.resize(2 * end_ + blockSize + EventReader::padding);
  }
  ssize_t count = 0;
  do {
    count = ::read(file_, buffer_.data() + end_, buffer_.size() - end_ - EventReader::padding);
  } while (count < 0 && errno == EINTR);
  if (count < 0) refuse();
  end_ += static_cast<std::size_t>(count);
  return count > 0;
}

}  // namespace VelaTool
