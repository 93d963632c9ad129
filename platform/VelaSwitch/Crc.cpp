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

/// A key as one number, its last byte lowest: what stands in front of it changes no CRC, so each
/// piece of the number has a table whatever the key's length. parts[n][b] is the CRC of six bits b
/// followed by n times six zero bits, of all ways at once: 16 bits of each. Ten pieces are taken
/// from a word, the last two are those of a key of more than 120 bits.
constexpr unsigned partBits = 6;
constexpr unsigned wordParts = 10;
constexpr U64 wordMask = (U64{1} << partBits * wordParts) - 1;
using PartTables = std::array<std::array<U64, 1 << partBits>, 2 * wordParts + 2>;

template <std::size_t ways>
constexpr PartTables makeParts(const Ways<ways>& tables) {
  PartTables parts{};
  for (unsigned n = 0; n < parts.size(); ++n) {
    for (unsigned bit = 0; bit < partBits; ++bit) {
      const unsigned place = n * partBits + bit;
      if (place >= 8 * crcMaxBytes) continue;
      U64 crc = 0;
      for (std::size_t way = 0; way < ways; ++way) {
        crc |= U64{(*tables[way])[place / 8][1u << place % 8]} << way * 16;
      }
      for (std::size_t bits = 0; bits < parts[n].size(); ++bits) {
        if ((bits >> bit & 1) != 0) parts[n][bits] ^= crc;
      }
    }
  }
  return parts;
}

constexpr PartTables parts10 = makeParts(ways10);
constexpr PartTables parts11 = makeParts(ways11);
constexpr PartTables parts12 = makeParts(ways12);
constexpr PartTables parts13 = makeParts(ways13);

const PartTables& partsOf(CrcHash hash) {
  if (hash == crc10Hash) return parts10;
  if (hash == crc11Hash) return parts11;
  return hash == crc12Hash ? parts12 : parts13;
}

}  // namespace

static_assert(std::endian::native == std::endian::little, "keys and hashes are taken in words");

std::array<U16, crcMaxWays> crcHashes(CrcHash hash, std::span<const U8, crcMaxBytes> key,
                                      U8 keyBits) {
  const unsigned bytes = (keyBits + 7u) / 8u;
  ORB_ASSERT(bytes <= crcMaxBytes);
  std::array<U64, 2> words;
  std::memcpy(words.data(), key.data(), sizeof words);
  // The number's lower half and what is above it.
  U64 low = __builtin_bswap64(words[1]);
  U64 high = __builtin_bswap64(words[0]);
  const unsigned behind = 8 * (crcMaxBytes - bytes);
  if (behind >= 64) {
    low = behind == 128 ? 0 : high >> (behind - 64);
    high = 0;
  } else if (behind != 0) {
    low = low >> behind | high << (64 - behind);
    high >>= behind;
  }
  const PartTables& parts = partsOf(hash);
  const auto* part = parts.data();
  U64 crc = 0;
  U64 word = low & wordMask;
  for (unsigned n = 0; n < wordParts; ++n, ++part, word >>= partBits) crc ^= (*part)[word & 63];
  word = (high << 4 | low >> 60) & wordMask;
  for (; word != 0; word >>= partBits, ++part) crc ^= (*part)[word & 63];
  if (const U64 top = high >> 56; top != 0) crc ^= parts[20][top & 63] ^ parts[21][top >> 6];
  return std::bit_cast<std::array<U16, crcMaxWays>>(crc);
}

U32 crc10Hash(const U8* key, U8 way, U8 keyBits) { return hash(ways10, key, way, keyBits); }
U32 crc11Hash(const U8* key, U8 way, U8 keyBits) { return hash(ways11, key, way, keyBits); }
U32 crc12Hash(const U8* key, U8 way, U8 keyBits) { return hash(ways12, key, way, keyBits); }
U32 crc13Hash(const U8* key, U8 way, U8 keyBits) { return hash(ways13, key, way, keyBits); }

}  // namespace VelaSwitch
