#pragma once

#include <cstring>
#include <vector>

#include "Orb/Assert.h"

/// Keys that are hashed as one number of up to 64 bits, left-aligned in as many whole bytes as it
/// needs, the most significant byte first.
namespace VelaSwitchTable {

inline U8 packLeftAligned(U64 number, U8 bits, U8* buffer, U8 bufSize) {
  const U64 aligned = number << (64 - bits);
  const U8 bytes = static_cast<U8>((bits + 7) / 8);
  ORB_ASSERT(bufSize >= bytes);
  std::memset(buffer, 0, bufSize);
  for (U8 i = 0; i < bytes; ++i) buffer[i] = static_cast<U8>(aligned >> (56 - 8 * i));
  return bits;
}

/// Where the `count` lowest bits of such a number stand in the buffer, the lowest first; bit n is
/// bit n % 8 of byte n / 8.
inline std::vector<U8> lowestOfLeftAligned(U8 count, U8 bits) {
  std::vector<U8> places;
  for (U8 i = 0; i < count; ++i) {
    const unsigned fromTop = bits - 1u - i;
    places.push_back(static_cast<U8>(fromTop / 8 * 8 + 7 - fromTop % 8));
  }
  return places;
}

}  // namespace VelaSwitchTable
