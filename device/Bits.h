#pragma once

#include <algorithm>
#include <cstring>

#include "Orb/Types.h"

namespace VelaDevice {

/// A bit string that is written and read from its first bit on.
class Bits {
 public:
  Bits() = default;
  Bits(const U32* words, U32 count) {
    std::memcpy(bytes_, words, std::min<std::size_t>(count * 4, sizeof bytes_));
  }

  void append(U64 value, unsigned width) {
    for (unsigned i = 0; i < width; ++i, ++at_) {
      if ((value >> i & 1) != 0) bytes_[at_ / 8] |= static_cast<U8>(1 << at_ % 8);
    }
  }
  /// Writes a number from its highest bit on, filling each byte from its highest bit.
  void appendNumber(U64 value, unsigned width) {
    for (unsigned i = width; i-- > 0; ++at_) {
      if ((value >> i & 1) != 0) bytes_[at_ / 8] |= static_cast<U8>(0x80 >> at_ % 8);
    }
  }
  U64 next(unsigned width) {
    U64 value = 0;
    for (unsigned i = 0; i < width; ++i, ++at_) {
      value |= U64{static_cast<U8>(bytes_[at_ / 8] >> at_ % 8 & 1)} << i;
    }
    return value;
  }
  bool flag() { return next(1) != 0; }
  void skip(unsigned width) { at_ += width; }
  void seek(unsigned bit) { at_ = bit; }
  unsigned length() const { return at_; }
  const U8* bytes() const { return bytes_; }

 private:
  U8 bytes_[32]{};
  unsigned at_ = 0;
};

/// The hash unit: a shift register fed with the key's bytes, each from its highest bit.
inline U32 shiftRegister(unsigned width, U32 polynomial, const Bits& key) {
  U32 state = 0;
  for (unsigned byte = 0; byte < (key.length() + 7) / 8; ++byte) {
    for (int bit = 7; bit >= 0; --bit) {
      const U32 feedback = (state >> (width - 1) ^ key.bytes()[byte] >> bit) & 1;
      state = (state << 1 & ((1u << width) - 1)) ^ (feedback != 0 ? polynomial : 0);
    }
  }
  return state;
}

}  // namespace VelaDevice
