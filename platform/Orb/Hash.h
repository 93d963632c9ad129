#pragma once

#include <concepts>
#include <type_traits>

#include "Orb/Types.h"

namespace Orb {

/// Mixes one more word into a hash. Multiplying spreads low bits upward, the fold brings them
/// back down, so that the low bits alone can index a table.
constexpr U64 hashMix(U64 hash, U64 word) {
  const U64 product = (hash ^ word) * 0x9E3779B97F4A7C15u;
  return product ^ (product >> 32);
}

using U128 [[gnu::mode(TI)]] = unsigned;  ///< A product of two words.

/// Mixes two more words into a hash, for what one takes: each bit of the product depends on both,
/// and the fold makes each bit of the hash depend on all of them.
constexpr U64 hashMix(U64 hash, U64 one, U64 other) {
  const U128 product = static_cast<U128>(hash ^ one) * (other ^ 0x9E3779B97F4A7C15u);
  // A factor of 0 must not make all others alike.
  return static_cast<U64>(product) ^ static_cast<U64>(product >> 64) ^ (one + other);
}

inline constexpr U64 hashSeed = 0x243F6A8885A308D3u;  ///< What hashes start from; digits of pi.

/// A type that is a number at heart says so by hashWord(value); several of them share one mixing
/// step when they are fields of a value type.
template <class T>
requires std::integral<T> || std::is_enum_v<T>
constexpr auto hashWord(T value) {
  if constexpr (std::is_enum_v<T>) {
    return static_cast<std::make_unsigned_t<std::underlying_type_t<T>>>(value);
  } else if constexpr (std::same_as<T, bool>) {
    return static_cast<U8>(value);
  } else {
    return static_cast<std::make_unsigned_t<T>>(value);
  }
}

template <class T>
concept HashWord = requires(const T& value) {
  { hashWord(value) } -> std::unsigned_integral;
};

/// The hash of what is a number at heart.
template <HashWord T>
constexpr U64 hashOf(const T& value) {
  return hashMix(hashSeed, hashWord(value));
}

}  // namespace Orb
