#pragma once

#include "Orb/Types.h"

namespace VelaSwitch {

/// The XOR of all bits: 1 when an odd number of them is set.
constexpr U32 parity32Bit(U32 word) { return static_cast<U32>(__builtin_parity(word)); }

/// The same over so many words together.
constexpr U32 parityU32Array(const U32* words, U32 count) {
  U32 folded = 0;
  for (U32 i = 0; i < count; ++i) folded ^= words[i];
  return parity32Bit(folded);
}

}  // namespace VelaSwitch
