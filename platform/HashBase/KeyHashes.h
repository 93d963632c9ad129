#pragma once

#include <concepts>

#include "HashBase/HashTables.h"
#include "VelaSwitch/Crc.h"

/// How the packed keys of hash families are hashed.
namespace VelaSwitchTable {

/// Lays a packed key into a buffer; returns its length in bits.
template <class F>
U8 fillKeyBuffer(const VelaSwitchApi::KeyBits& key, U8* buffer, U8 bufSize) {
  if constexpr (requires { F::checkKeyBuffer(bufSize); }) {
    F::checkKeyBuffer(bufSize);
  } else {
    ORB_ASSERT(bufSize * 8 >= F::traits.keyStart + key.bits());
  }
  if constexpr (F::traits.leftAligned) {
    key.copyLeftAligned(buffer, bufSize);
  } else {
    key.copyTo(buffer, bufSize, F::traits.keyStart);
  }
  return key.bits();
}

namespace detail {

/// The packed key as its CRC takes it: the bytes that fillKeyBuffer() lays out.
template <class F>
auto crcKey(const VelaSwitchApi::KeyBits& key) {
  const U64 low = key.words()[0];
  const U64 high = key.words()[1];
  if constexpr (F::traits.leftAligned) {
    return low << (-key.bits() & 7);
  } else {
    constexpr unsigned start = F::traits.keyStart;
    const U64 carried = start == 0 ? 0 : low >> (64 - start) % 64;
    const auto bytes = static_cast<U8>((key.bits() + 7u) / 8u);
    return VelaSwitch::CrcKey{low << start, high << start | carried, bytes};
  }
}

/// The hashes of a packed key, 16 bits for each way, the first way's lowest.
template <class F>
U64 hashesOf(const VelaSwitchApi::KeyBits& key) {
  constexpr U64 ways = ~U64{0} >> (64 - 16 * F::traits.ways);
  if constexpr (std::same_as<decltype(F::hash), const VelaSwitch::CrcHash>) {
    return VelaSwitch::crcHashes(VelaSwitch::crcTables<F::hash>(), crcKey<F>(key)) & ways;
  } else {
    if constexpr (requires { F::crc(key.bits()); }) {
      if (const auto* tables = F::crc(key.bits())) {
        return VelaSwitch::crcHashes(*tables, crcKey<F>(key)) & ways;
      }
    }
    U8 buffer[VelaSwitchApi::KeyBits::maxBytes];
    const U8 bits = fillKeyBuffer<F>(key, buffer, sizeof buffer);
    U64 hashes = 0;
    for (U8 way = 0; way < F::traits.ways; ++way) {
      hashes |= U64{static_cast<U16>(F::hash(buffer, way, bits))} << way * 16;
    }
    return hashes;
  }
}

}  // namespace detail

}  // namespace VelaSwitchTable
