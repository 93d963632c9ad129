#pragma once

#include <concepts>

#include "Orb/Types.h"

namespace Orb {

/// Mixes one more word into a hash. Multiplying spreads low bits upward, the fold brings them
/// back down, so that the low bits alone can index a table.
constexpr U64 hashMix(U64 hash, U64 word) {
  const U64 product = (hash ^ word) * 0x9E3779B97F4A7C15u;
  return product ^ (product >> 32);
}

template <class T>
requires std::integral<T> || std::is_enum_v<T>
constexpr U64 hashOf(T value) { return hashMix(0x243F6A8885A308D3u, static_cast<U64>(value)); }

}  // namespace Orb
