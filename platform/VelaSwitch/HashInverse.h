#pragma once

#include <array>
#include <vector>

#include "Orb/Types.h"
#include "VelaSwitch/Crc.h"

namespace VelaSwitch {

/// Computes back the key bits that a hash table need not store, because the row stands for them.
///
/// The hashes are linear, so the row of a key is the row of the key's stored bits XOR the row of
/// its implied ones. That part is a square system over the implied bits; it is inverted once.
class VELA_EXPORT HashInverse {
 public:
  using Hash = U32 (*)(const U8* key, U8 way, U8 keyBits);  ///< One of those of Crc.h.

  HashInverse() = default;
  /// `implied` names the implied bits of a key of `keyBits` bits, as many as the hash has and the
  /// lowest first; bit n is bit n % 8 of byte n / 8. Bits that the hash cannot tell apart are a
  /// fatal assertion.
  HashInverse(Hash hash, U8 ways, U8 keyBits, const std::vector<U8>& implied);

  /// The implied bits of the key that lies in the row. `stored` is the key with those bits 0.
  U32 implied(U8 way, U32 row, const U8* stored) const;

 private:
  /// Longest hash, in bits.
  static constexpr U8 maxBits = 16;

  Hash hash_ = nullptr;
  U8 keyBits_ = 0;
  /// By way: for each bit of the row, the implied bits that flip that bit of the row alone.
  std::vector<std::array<U16, maxBits>> flips_;
};

}  // namespace VelaSwitch
