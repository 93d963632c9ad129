#include "VelaSwitch/Crc.h"

#include "Orb/Assert.h"

namespace VelaSwitch {
namespace {

/// A CRC is linear: that of a byte is the XOR of those of its bits, which is how the tables are
/// filled. The CRC of a bit is that of the bit below with a zero bit behind it.
template <class Crcs, std::size_t ways>
constexpr CrcTables<Crcs> makeTables(unsigned width, std::array<U16, ways> polynomials) {
  static_assert(ways * sizeof(U16) <= sizeof(Crcs));
  CrcTables<Crcs> tables{};
  const U32 mask = (1u << width) - 1;
  std::array<U16, ways> crcs = polynomials;
  for (unsigned place = 0; place < 8 * crcMaxBytes; ++place) {
    Crcs all = 0;
    for (std::size_t way = 0; way < ways; ++way) {
      const U32 crc = crcs[way];
      all |= Crcs{crc} << way * 16;
      const U32 carry = (crc >> (width - 1)) * polynomials[way];
      crcs[way] = static_cast<U16>((crc << 1 ^ carry) & mask);
    }
    auto& table = tables[crcLast + place / 8];
    const unsigned bit = 1u << place % 8;
    for (unsigned bits = 0; bits < bit; ++bits) table[bit + bits] = table[bits] ^ all;
  }
  return tables;
}

template <std::size_t ways, class Crcs>
U32 hash(const CrcTables<Crcs>& tables, const U8* key, U8 way, U8 keyBits) {
  ORB_ASSERT(way < ways);
  const unsigned bytes = (keyBits + 7u) / 8u;
  ORB_ASSERT(bytes <= crcMaxBytes);
  Crcs crcs = 0;
  for (unsigned i = 0; i < bytes; ++i) crcs ^= tables[crcLast + bytes - 1 - i][key[i]];
  return static_cast<U16>(crcs >> way * 16);
}

}  // namespace

constinit const CrcTables<U64> crc10Tables = makeTables<U64, 4>(10, {0x06f, 0x0f3, 0x197, 0x1e5});
constinit const CrcTables<U32> crc11Tables = makeTables<U32, 2>(11, {0x065, 0x1d9});
constinit const CrcTables<U64> crc12Tables = makeTables<U64, 3>(12, {0x0eb, 0x161, 0x34d});
constinit const CrcTables<U64> crc13Tables = makeTables<U64, 3>(13, {0x0bb, 0x13b, 0x197});

U32 crc10Hash(const U8* key, U8 way, U8 keyBits) { return hash<4>(crc10Tables, key, way, keyBits); }
U32 crc11Hash(const U8* key, U8 way, U8 keyBits) { return hash<2>(crc11Tables, key, way, keyBits); }
U32 crc12Hash(const U8* key, U8 way, U8 keyBits) { return hash<3>(crc12Tables, key, way, keyBits); }
U32 crc13Hash(const U8* key, U8 way, U8 keyBits) { return hash<3>(crc13Tables, key, way, keyBits); }

}  // namespace VelaSwitch
