#pragma once

#include <algorithm>

#include "Orb/Assert.h"
#include "Orb/Types.h"

/// Bits of a row image. Stream bit n is bit n % 8 of byte n / 8, and so bit n % 32 of word n / 32:
/// on the little-endian hosts that this runs on, both views are the same memory.
///
///   byte        0                 1                 2
///   bit    7 6 5 4 3 2 1 0   7 6 5 4 3 2 1 0   7 6 5 ...
///   stream 7 6 5 4 3 2 1 0  15 ...         8  23 ...

/// Writes the low `len` bits of `value` into bits `startBit` … `startBit + len - 1`; no other bit
/// of the buffer changes. `len` is below 64.
inline void bitStreamSet(U8* buffer, U16 startBit, U8 len, U64 value) {
  ORB_ASSERT(len < 64);
  U8* byte = buffer + startBit / 8;
  unsigned offset = startBit % 8;
  for (unsigned left = len; left > 0; ++byte) {
    const unsigned count = std::min(8 - offset, left);
    const unsigned mask = ((1u << count) - 1) << offset;
    *byte = static_cast<U8>((*byte & ~mask) | ((static_cast<unsigned>(value) << offset) & mask));
    value >>= count;
    left -= count;
    offset = 0;
  }
}

/// Bits `startBit` … `endBit`, both included, with `startBit` as bit 0 of the result. They lie in
/// no more than three words, and are no more than 64.
inline U64 bitStreamGet(U32* words, U32 startBit, U32 endBit) {
  const U32 first = startBit / 32;
  const U32 span = endBit / 32 - first;
  const U32 offset = startBit % 32;
  const U32 len = endBit + 1 - startBit;
  ORB_ASSERT_TEXT(span <= 2, "0");
  U64 bits = words[first] >> offset;
  if (span >= 1) bits |= U64{words[first + 1]} << (32 - offset);
  // With three words the middle one ends above bit 32, so the shift stays below 64.
  if (span == 2) bits |= U64{words[first + 2]} << 1 << (63 - offset);
  return len >= 64 ? bits : bits & ((U64{1} << len) - 1);
}
