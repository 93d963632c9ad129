#include "VelaSwitch/Crc.h"

#include <bit>
#include <cstring>

#include "Orb/Assert.h"

namespace VelaSwitch {
namespace {

/// A CRC is linear: that of a byte is the XOR of those of its bits, which is how the tables are
/// filled. The CRC of a bit is that of the bit below with a zero bit behind it.
template <std::size_t ways>
constexpr CrcTables makeTables(unsigned width, std::array<U16, ways> polynomials) {
  CrcTables tables{};
  const U32 mask = (1u << width) - 1;
  std::array<U16, ways> crcs = polynomials;
  for (unsigned place = 0; place < 8 * crcMaxBytes; ++place) {
    U64 all = 0;
    for (std::size_t way = 0; way < ways; ++way) {
      const U32 crc = crcs[way];
      all |= U64{crc} << way * 16;
      const U32 carry = (crc >> (width - 1)) * polynomials[way];
      crcs[way] = static_cast<U16>((crc << 1 ^ carry) & mask);
    }
    auto& table = tables[place / 8];
    const unsigned bit = 1u << place % 8;
    for (unsigned bits = 0; bits < bit; ++bits) table[bit + bits] = table[bits] ^ all;
  }
  return tables;
}

template <std::size_t ways>
U32 hash(const CrcTables& tables, const U8* key, U8 way, U8 keyBits) {
  ORB_ASSERT(way < ways);
  const unsigned bytes = (keyBits + 7u) / 8u;
  ORB_ASSERT(bytes <= crcMaxBytes);
  U64 crcs = 0;
  for (unsigned i = 0; i < bytes; ++i) crcs ^= tables[bytes - 1 - i][key[i]];
  return static_cast<U16>(crcs >> way * 16);
}

}  // namespace

static_assert(std::endian::native == std::endian::little, "keys are taken in words");

constinit const CrcTables crc10Tables = makeTables<4>(10, {0x06f, 0x0f3, 0x197, 0x1e5});
constinit const CrcTables crc11Tables = makeTables<2>(11, {0x065, 0x1d9});
constinit const CrcTables crc12Tables = makeTables<3>(12, {0x0eb, 0x161, 0x34d});
constinit const CrcTables crc13Tables = makeTables<3>(13, {0x0bb, 0x13b, 0x197});

std::array<U16, crcMaxWays> crcHashes(CrcHash hash, std::span<const U8, crcMaxBytes> key,
                                      U8 keyBits) {
  ORB_ASSERT((keyBits + 7u) / 8u <= crcMaxBytes);
  std::array<U64, 2> words;
  std::memcpy(words.data(), key.data(), sizeof words);
  return std::bit_cast<std::array<U16, crcMaxWays>>(
      crcHashes(crcTables(hash), crcNumber(words[0], words[1], keyBits)));
}

U32 crc10Hash(const U8* key, U8 way, U8 keyBits) { return hash<4>(crc10Tables, key, way, keyBits); }
U32 crc11Hash(const U8* key, U8 way, U8 keyBits) { return hash<2>(crc11Tables, key, way, keyBits); }
U32 crc12Hash(const U8* key, U8 way, U8 keyBits) { return hash<3>(crc12Tables, key, way, keyBits); }
U32 crc13Hash(const U8* key, U8 way, U8 keyBits) { return hash<3>(crc13Tables, key, way, keyBits); }

}  // namespace VelaSwitch
