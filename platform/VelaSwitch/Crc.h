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

}  // namespace VelaSwitch
