#pragma once

#include <array>
#include <span>

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
/// The most ways that one has polynomials for.
inline constexpr U8 crcMaxWays = 4;
/// The hashes of all ways at once, for less than it takes to work them out one by one. Those of
/// ways without a polynomial are 0.
VELA_EXPORT std::array<U16, crcMaxWays> crcHashes(CrcHash hash,
                                                  std::span<const U8, crcMaxBytes> key, U8 keyBits);

/// What the hashes are made of: the CRCs of byte b followed by n zero bytes, at [n][b], of all ways
/// at once, 16 bits each. A CRC is linear, so that of a key is the XOR of one entry per byte, and
/// the lookups do not wait for each other.
using CrcTables = std::array<std::array<U64, 256>, crcMaxBytes>;
VELA_EXPORT extern const CrcTables crc10Tables;  ///< Of crc10Hash().
VELA_EXPORT extern const CrcTables crc11Tables;  ///< Of crc11Hash().
VELA_EXPORT extern const CrcTables crc12Tables;  ///< Of crc12Hash().
VELA_EXPORT extern const CrcTables crc13Tables;  ///< Of crc13Hash().
/// Those of a hash. Where the hash is known to the compiler they are as well.
constexpr const CrcTables& crcTables(CrcHash hash) {
  if (hash == &crc10Hash) return crc10Tables;
  if (hash == &crc11Hash) return crc11Tables;
  return hash == &crc12Hash ? crc12Tables : crc13Tables;
}

/// A key as the number of which the byte that is hashed last is the lowest: bytes in front of it
/// are 0, and change no CRC.
struct CrcNumber {
  U64 low;   ///< Of 128 bits.
  U64 high;  ///< Likewise.
};
/// The number of a key of up to 128 bits, of which byte 0 is the lowest of `first`.
inline CrcNumber crcNumber(U64 first, U64 second, U8 keyBits) {
  const U64 low = __builtin_bswap64(second);
  const U64 high = __builtin_bswap64(first);
  const unsigned behind = 8 * (crcMaxBytes - (keyBits + 7u) / 8u);
  if (behind >= 64) return {behind == 128 ? 0 : high >> (behind - 64), 0};
  return {behind == 0 ? low : low >> behind | high << (64 - behind), high >> behind};
}
/// The hashes of all ways, 16 bits each, the first way's lowest.
inline U64 crcHashes(const CrcTables& tables, CrcNumber key) {
  U64 crcs = 0;
  for (unsigned n = 0; n < 8; ++n) crcs ^= tables[n][key.low >> n * 8 & 0xff];
  if (key.high == 0) return crcs;
  for (unsigned n = 0; n < 8; ++n) crcs ^= tables[n + 8][key.high >> n * 8 & 0xff];
  return crcs;
}

}  // namespace VelaSwitch
