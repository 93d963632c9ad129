#pragma once

#include <cstddef>
#include <string>

#include "Orb/Types.h"

namespace VelaDevice {

/// The memory of a switch: bytes, zero at first, that grow at their end and never move. They are
/// apart from the process that drives the switch, as a real switch is: a process that is forked
/// works on the same memory, and what is kept in a file outlives a process that is killed at any
/// moment.
class VELA_EXPORT Memory {
 public:
  /// 256 MiB, several times the largest switch.
  static constexpr std::size_t maxSize = std::size_t{1} << 28;

  /// Memory that goes with the last process that has it.
  Memory();
  /// Memory in a file, which is made if it is not there, and has its room on the disk. Throws
  /// std::runtime_error when the file cannot be had, or another process has it.
  explicit Memory(const std::string& file);
  /// Memory of the first kind with what a file holds; the file stays as it is. Throws
  /// std::runtime_error when it cannot be read, or another process changes it.
  static Memory copyOf(const std::string& file);
  ~Memory();
  /// Copies are memory of the first kind.
  Memory(const Memory& other);
  Memory& operator=(const Memory& other);      ///< Likewise.
  Memory(Memory&& other) noexcept;             ///< Takes the bytes over, with their file.
  Memory& operator=(Memory&& other) noexcept;  ///< Likewise.

  U8* bytes() const { return bytes_; }  ///< They stay where they are as long as the memory is.
  std::size_t size() const { return size_; }  ///< In bytes.
  /// Makes it at least this long. Throws std::runtime_error beyond maxSize or when the disk is
  /// full.
  void sizeIs(std::size_t size);
  /// Waits until the file's disk has all bytes. Throws std::runtime_error when that fails.
  void sync() const;

 private:
  void open(const std::string& file, int flags, int lock);
  void map(int flags, int file);
  void reserve(std::size_t from, std::size_t to) const;

  U8* bytes_ = nullptr;
  std::size_t size_ = 0;
  int file_ = -1;
  std::string path_;  ///< Of the file.
};

}  // namespace VelaDevice
