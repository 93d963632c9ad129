#include "device/Memory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace VelaDevice {

Memory::Memory() { map(MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1); }

Memory::Memory(const std::string& file) {
  open(file, O_RDWR | O_CREAT, LOCK_EX);
  try {
    // Copying may have left holes.
    reserve(0, size_);
    map(MAP_SHARED, file_);
  } catch (...) {
    ::close(file_);
    throw;
  }
}

Memory Memory::copyOf(const std::string& file) {
  Memory copy;
  copy.open(file, O_RDONLY, LOCK_SH);
  const int from = std::exchange(copy.file_, -1);
  const std::size_t size = std::exchange(copy.size_, 0);
  copy.sizeIs(size);
  std::size_t done = 0;
  for (ssize_t got = 1; done < size && got > 0; done += static_cast<std::size_t>(got)) {
    got = ::read(from, copy.bytes_ + done, size - done);
    if (got < 0) break;
  }
  ::close(from);
  if (done < size) throw std::runtime_error("cannot read " + file);
  return copy;
}

/// Has the disk keep room for these bytes of the file: memory has no other way to say that the disk
/// is full than to kill who writes to it.
void Memory::reserve(std::size_t from, std::size_t to) const {
  int error = 0;
  do {
    if (from < to)
      error = posix_fallocate(file_, static_cast<off_t>(from), static_cast<off_t>(to - from));
  } while (error == EINTR);
  if (error == 0) return;
  throw std::runtime_error(path_ + ": no room for a switch of " + std::to_string(to) +
                           " bytes: " + std::strerror(error));
}

/// Opens the file, locks it, and takes its length.
void Memory::open(const std::string& file, int flags, int lock) {
  path_ = file;
  file_ = ::open(file.c_str(), flags | O_CLOEXEC, 0666);
  if (file_ < 0) throw std::runtime_error("cannot open " + file);
  struct stat status {};
  std::string failure;
  if (fstat(file_, &status) != 0 || !S_ISREG(status.st_mode)) {
    failure = file + " is not a file";
  } else if (flock(file_, lock | LOCK_NB) != 0) {
    failure = file + " is in use";
  } else if (static_cast<std::size_t>(status.st_size) > maxSize) {
    failure = file + " is too long";
  }
  if (!failure.empty()) {
    ::close(std::exchange(file_, -1));
    throw std::runtime_error(failure);
  }
  size_ = static_cast<std::size_t>(status.st_size);
}

Memory::~Memory() {
  if (bytes_) munmap(bytes_, maxSize);
  if (file_ >= 0) close(file_);
}

Memory::Memory(const Memory& other) : Memory() {
  sizeIs(other.size_);
  std::memcpy(bytes_, other.bytes_, size_);
}

Memory& Memory::operator=(const Memory& other) {
  if (this != &other) *this = Memory(other);
  return *this;
}

Memory::Memory(Memory&& other) noexcept
    : bytes_(std::exchange(other.bytes_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      file_(std::exchange(other.file_, -1)),
      path_(std::move(other.path_)) {}

Memory& Memory::operator=(Memory&& other) noexcept {
  std::swap(bytes_, other.bytes_);
  std::swap(size_, other.size_);
  std::swap(file_, other.file_);
  std::swap(path_, other.path_);
  return *this;
}

/// All that there may ever be is mapped at once, so that growing moves nothing.
void Memory::map(int flags, int file) {
  void* mapped = mmap(nullptr, maxSize, PROT_READ | PROT_WRITE, flags, file, 0);
  if (mapped == MAP_FAILED) throw std::runtime_error("no memory for a switch");
  bytes_ = static_cast<U8*>(mapped);
}

void Memory::sizeIs(std::size_t size) {
  if (size <= size_) return;
  if (size > maxSize) throw std::runtime_error("the switch has too many rows");
  if (file_ >= 0) reserve(size_, size);
  size_ = size;
}

void Memory::sync() const {
  if (file_ >= 0 && msync(bytes_, size_, MS_SYNC) != 0) {
    throw std::runtime_error("cannot bring the saved switch to disk");
  }
}

}  // namespace VelaDevice
