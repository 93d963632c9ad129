#include "Lines.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "agent/EventReader.h"

namespace VelaTool {

using VelaAgent::EventReader;

namespace {

constexpr std::size_t blockSize = 1 << 17;

}  // namespace

Lines::Lines(const std::string& name)
    : name_(name), file_(name == "-" ? STDIN_FILENO : ::open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (file_ < 0) refuse();
}

Lines::~Lines() {
  if (file_ > STDERR_FILENO) ::close(file_);
}

void Lines::refuse() const { throw VelaAgent::InputException("cannot read " + name_); }

bool Lines::inFile() const {
  struct stat status {};
  return ::fstat(file_, &status) == 0 && S_ISREG(status.st_mode);
}

bool Lines::next(std::string& block) {
  block.assign(rest_);
  rest_.clear();
  for (;;) {
    const std::size_t size = block.size();
    block.resize(size + blockSize);
    ssize_t count = 0;
    do {
      count = ::read(file_, block.data() + size, blockSize);
    } while (count < 0 && errno == EINTR);
    if (count < 0) refuse();
    block.resize(size + static_cast<std::size_t>(count));
    if (count == 0) break;
    const std::size_t newline = std::string_view(block).substr(size).rfind('\n');
    if (newline == std::string_view::npos) continue;
    rest_.assign(block, size + newline + 1);
    block.resize(size + newline + 1);
    break;
  }
  block.reserve(block.size() + EventReader::padding);
  return !block.empty();
}

}  // namespace VelaTool
