#include "VelaSwitch/HashInverse.h"

#include <bit>
#include <utility>

#include "Orb/Assert.h"

namespace VelaSwitch {

HashInverse::HashInverse(Hash hash, U8 ways, U8 keyBits, const std::vector<U8>& implied)
    : hash_(hash), keyBits_(keyBits) {
  const auto bits = static_cast<U8>(implied.size());
  ORB_ASSERT(bits <= maxBits);
  for (U8 way = 0; way < ways; ++way) {
    // Each pair is a set of implied bits and the row bits that they flip. The pairs are combined
    // until each flips one row bit.
    std::vector<std::pair<U32, U32>> pairs;
    for (U8 i = 0; i < bits; ++i) {
      U8 key[crcMaxBytes]{};
      key[implied[i] / 8] = static_cast<U8>(1u << implied[i] % 8);
      pairs.emplace_back(1u << i, hash(key, way, keyBits));
    }
    std::array<U16, maxBits>& flips = flips_.emplace_back();
    for (U8 bit = 0; bit < bits; ++bit) {
      const U32 mask = 1u << bit;
      U8 pivot = bit;
      while (pivot < bits && (pairs[pivot].second & mask) == 0) ++pivot;
      ORB_ASSERT_TEXT(pivot < bits, "the hash cannot tell the implied key bits apart");
      std::swap(pairs[bit], pairs[pivot]);
      for (U8 other = 0; other < bits; ++other) {
        if (other == bit || (pairs[other].second & mask) == 0) continue;
        pairs[other].first ^= pairs[bit].first;
        pairs[other].second ^= pairs[bit].second;
      }
    }
    for (U8 bit = 0; bit < bits; ++bit) flips[bit] = static_cast<U16>(pairs[bit].first);
  }
}

U32 HashInverse::implied(U8 way, U32 row, const U8* stored) const {
  U32 bits = 0;
  for (U32 rest = row ^ hash_(stored, way, keyBits_); rest != 0; rest &= rest - 1) {
    bits ^= flips_[way][static_cast<std::size_t>(std::countr_zero(rest))];
  }
  return bits;
}

}  // namespace VelaSwitch
