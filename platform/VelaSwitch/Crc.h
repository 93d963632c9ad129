#pragma once

#include <array>

#include "Orb/Types.h"

/// The hashes that the switch computes over packed keys: unreflected CRCs with initial value 0 and
/// no final XOR. The way selects the generator polynomial, so that keys which collide in one way
/// are independent in the others.
namespace VelaSwitch {

/// Longest key that is hashed, in bytes.
inline constexpr U8 crcMaxBytes = 16;

/// Each hashes the first ceil(keyBits / 8) bytes of `key`, byte 0 first and each byte from its most
/// significant bit; bits beyond `keyBits` must be 0. The result is below 2 to the power of the
/// width in the name. A way without a polynomial is a fatal assertion.
VELA_EXPORT U32 crc10Hash(const U8* key, U8 way, U8 keyBits);
/// The same with a result of 11 bits.
VELA_EXPORT U32 crc11Hash(const U8* key, U8 way, U8 keyBits);
/// The same with a result of 12 bits.
VELA_EXPORT U32 crc12Hash(const U8* key, U8 way, U8 keyBits);
/// The same with a result of 13 bits.
VELA_EXPORT U32 crc13Hash(const U8* key, U8 way, U8 keyBits);

/// One of those.
using CrcHash = U32 (*)(const U8* key, U8 way, U8 keyBits);

inline constexpr U8 crcLast = 8;  ///< The table of a key's last byte.
/// What the hashes are made of: the CRCs of byte b followed by n zero bytes, at [crcLast + n][b],
/// of all ways at once, 16 bits each. A CRC is linear, so that of a key is the XOR of one entry per
/// byte, and the lookups do not wait for each other. Those in front of crcLast are 0, for what lies
/// behind a key in its words.
template <class Crcs>
using CrcTables = std::array<std::array<Crcs, 256>, crcLast + crcMaxBytes>;

VELA_EXPORT extern const CrcTables<U64> crc10Tables;  ///< Of crc10Hash().
VELA_EXPORT extern const CrcTables<U32> crc11Tables;  ///< Of crc11Hash(), which has two ways.
VELA_EXPORT extern const CrcTables<U64> crc12Tables;  ///< Of crc12Hash().
VELA_EXPORT extern const CrcTables<U64> crc13Tables;  ///< Of crc13Hash().

/// Those of one of the hashes above, which the compiler knows.
template <CrcHash hash>
constexpr const auto& crcTables() {
  static_assert(hash == &crc10Hash || hash == &crc11Hash || hash == &crc12Hash ||
                hash == &crc13Hash);
  if constexpr (hash == &crc10Hash) {
    return crc10Tables;
  } else if constexpr (hash == &crc11Hash) {
    return crc11Tables;
  } else if constexpr (hash == &crc12Hash) {
    return crc12Tables;
  } else {
    return crc13Tables;
  }
}

/// A key as two words, each with its first byte as the lowest; what is behind it does not count.
struct CrcKey {
  U64 first;   ///< Bytes 0 to 7.
  U64 second;  ///< Bytes 8 to 15.
  U8 bytes;    ///< At most crcMaxBytes; the hashes of none are 0.
};
/// The hashes of all ways, 16 bits each, the first way's lowest.
template <class Crcs>
[[gnu::always_inline]] inline U64 crcHashes(const CrcTables<Crcs>& tables, const CrcKey& key) {
  Crcs crcs = 0;
  const auto* ofFirst = &tables[crcLast + key.bytes - 1u];
  const auto add = [&](U64 word, unsigned first, unsigned end) __attribute__((always_inline)) {
    for (unsigned i = first; i < end; ++i) crcs ^= (*(ofFirst - i))[word >> i % 8 * 8 & 0xff];
  };
  add(key.first, 0, 8);
  if (key.bytes > 8) add(key.second, 8, 12);
  if (key.bytes > 12) add(key.second, 12, 16);
  return crcs;
}
/// Those of a key that is a number, of which the byte that is hashed last is the lowest.
template <class Crcs>
[[gnu::always_inline]] inline U64 crcHashes(const CrcTables<Crcs>& tables, U64 key) {
  Crcs crcs = 0;
  for (unsigned n = 0; n < 8; ++n) crcs ^= tables[crcLast + n][key >> n * 8 & 0xff];
  return crcs;
}

}  // namespace VelaSwitch
