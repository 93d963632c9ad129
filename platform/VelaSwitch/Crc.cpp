#include "VelaSwitch/Crc.h"

#include <bit>
#include <cstring>

#include "Orb/Assert.h"

namespace VelaSwitch {
namespace {

/// table[n][b] is the CRC of byte b followed by n zero bytes. A CRC is linear, so the CRC of a key
/// is the XOR of one entry per byte, and the lookups do not wait for each other.
using Table = std::array<std::array<U16, 256>, crcMaxBytes>;

constexpr Table makeTable(unsigned width, U32 polynomial) {
  Table table{};
  const U32 mask = (1u << width) - 1;
  for (U32 byte = 0; byte < 256; ++byte) {
    U32 crc = byte << (width - 8);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc << 1 ^ ((crc >> (width - 1) & 1) != 0 ? polynomial : 0)) & mask;
    }
    table[0][byte] = static_cast<U16>(crc);
  }
  for (std::size_t n = 1; n < table.size(); ++n) {
    for (U32 byte = 0; byte < 256; ++byte) {
      const U32 crc = table[n - 1][byte];
      table[n][byte] = static_cast<U16>((table[0][crc >> (width - 8)] ^ crc << 8) & mask);
    }
  }
  return table;
}

template <unsigned width, U16 polynomial>
constexpr Table table = makeTable(width, polynomial);

template <std::size_t ways>
using Ways = std::array<const Table*, ways>;

constexpr Ways<4> ways10{&table<10, 0x06f>, &table<10, 0x0f3>, &table<10, 0x197>,
                         &table<10, 0x1e5>};
constexpr Ways<2> ways11{&table<11, 0x065>, &table<11, 0x1d9>};
constexpr Ways<3> ways12{&table<12, 0x0eb>, &table<12, 0x161>, &table<12, 0x34d>};
constexpr Ways<3> ways13{&table<13, 0x0bb>, &table<13, 0x13b>, &table<13, 0x197>};

template <std::size_t ways>
U32 hash(const Ways<ways>& tables, const U8* key, U8 way, U8 keyBits) {
  ORB_ASSERT(way < ways);
  const unsigned bytes = (keyBits + 7u) / 8u;
  ORB_ASSERT(bytes <= crcMaxBytes);
  const Table& table = *tables[way];
  U32 crc = 0;
  for (unsigned i = 0; i < bytes; ++i) crc ^= table[bytes - 1 - i][key[i]];
  return crc;
}

/// table[n][b] is the CRC of four bits b followed by n times four zero bits, of all ways at once:
/// 16 bits of each. Small enough to stay in the cache beside the rows.
using NibbleTable = std::array<std::array<U64, 16>, 2 * crcMaxBytes>;

template <std::size_t ways>
constexpr NibbleTable makeNibbles(const Ways<ways>& tables) {
  NibbleTable nibbles{};
  for (std::size_t n = 0; n < nibbles.size(); ++n) {
    for (std::size_t bits = 0; bits < 16; ++bits) {
      for (std::size_t way = 0; way < ways; ++way) {
        nibbles[n][bits] |= U64{(*tables[way])[n / 2][bits << n % 2 * 4]} << way * 16;
      }
    }
  }
  return nibbles;
}

constexpr NibbleTable nibbles10 = makeNibbles(ways10);
constexpr NibbleTable nibbles11 = makeNibbles(ways11);
constexpr NibbleTable nibbles12 = makeNibbles(ways12);
constexpr NibbleTable nibbles13 = makeNibbles(ways13);

const NibbleTable& nibblesOf(CrcHash hash) {
  if (hash == crc10Hash) return nibbles10;
  if (hash == crc11Hash) return nibbles11;
  return hash == crc12Hash ? nibbles12 : nibbles13;
}

}  // namespace

static_assert(std::endian::native == std::endian::little, "keys and hashes are taken in words");

std::array<U16, crcMaxWays> crcHashes(CrcHash hash, const U8* key, U8 keyBits) {
  const unsigned bytes = (keyBits + 7u) / 8u;
  ORB_ASSERT(bytes <= crcMaxBytes);
  const auto* table = &nibblesOf(hash)[2 * bytes];
  U64 crc = 0;
  const auto add = [&](unsigned byte) {
    table -= 2;
    crc ^= table[0][byte & 15] ^ table[1][byte >> 4 & 15];
  };
  unsigned i = 0;
  for (; i + 4 <= bytes; i += 4) {
    U32 four;
    std::memcpy(&four, key + i, sizeof four);
    add(four);
    add(four >> 8);
    add(four >> 16);
    add(four >> 24);
  }
  for (; i < bytes; ++i) add(key[i]);
  return std::bit_cast<std::array<U16, crcMaxWays>>(crc);
}

U32 crc10Hash(const U8* key, U8 way, U8 keyBits) { return hash(ways10, key, way, keyBits); }
U32 crc11Hash(const U8* key, U8 way, U8 keyBits) { return hash(ways11, key, way, keyBits); }
U32 crc12Hash(const U8* key, U8 way, U8 keyBits) { return hash(ways12, key, way, keyBits); }
U32 crc13Hash(const U8* key, U8 way, U8 keyBits) { return hash(ways13, key, way, keyBits); }

}  // namespace VelaSwitch
