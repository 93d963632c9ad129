#pragma once

#include <bit>
#include <cstring>

#include "Orb/Assert.h"
#include "Orb/Types.h"

/// Bits of a row image. Stream bit n is bit n % 8 of byte n / 8, and so bit n % 32 of word n / 32:
/// on the little-endian hosts that this runs on, both views are the same memory.
///
///   byte        0                 1                 2
///   bit    7 6 5 4 3 2 1 0   7 6 5 4 3 2 1 0   7 6 5 ...
///   stream 7 6 5 4 3 2 1 0  15 ...         8  23 ...

static_assert(std::endian::native == std::endian::little, "rows and keys are taken in words");

namespace detail {

/// Takes the bits of `mask` over from `value`, both counted from the byte on, in one access.
template <class Word>
void bitStreamMerge(U8* byte, U64 value, U64 mask) {
  Word word;
  std::memcpy(&word, byte, sizeof word);
  word = static_cast<Word>((word & ~mask) | (value & mask));
  std::memcpy(byte, &word, sizeof word);
}

/// A field that begins in the byte and ends in the byte `last` behind it. Two accesses that may
/// overlap cover the field without touching a byte outside it.
template <class Word>
void bitStreamMergeEnds(U8* byte, unsigned last, U64 value, U64 mask) {
  const unsigned tail = last + 1 - static_cast<unsigned>(sizeof(Word));
  bitStreamMerge<Word>(byte, value, mask);
  bitStreamMerge<Word>(byte + tail, value >> (tail * 8), mask >> (tail * 8));
}

}  // namespace detail

/// Writes the low `len` bits of `value` into bits `startBit` … `startBit + len - 1`; no other bit
/// of the buffer changes. `len` is below 64.
inline void bitStreamSet(U8* buffer, U16 startBit, U8 len, U64 value) {
  ORB_ASSERT(len < 64);
  if (len == 0) return;
  U8* byte = buffer + startBit / 8;
  const unsigned offset = startBit % 8;
  const unsigned last = (offset + len - 1) / 8;
  const U64 mask = (U64{1} << len) - 1;
  if (last == 0) {
    detail::bitStreamMerge<U8>(byte, value << offset, mask << offset);
  } else if (last < 4) {
    detail::bitStreamMergeEnds<U16>(byte, last, value << offset, mask << offset);
  } else if (last < 8) {
    detail::bitStreamMergeEnds<U32>(byte, last, value << offset, mask << offset);
  } else {
    detail::bitStreamMerge<U64>(byte, value << offset, mask << offset);
    detail::bitStreamMerge<U8>(byte + 8, value >> (64 - offset), mask >> (64 - offset));
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
