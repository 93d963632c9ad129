#pragma once

#include <utility>
#include <vector>

#include "Orb/Types.h"

namespace Orb {

/// Empties a taken slot of an open-addressing table, whose slots are a power of two and say
/// taken(). The search for what is in a slot begins where the low bits of `tagOf(slot)` say. What
/// is behind the hole moves up unless that would put it ahead of its home position; so no search
/// ever has to step over the removed one.
template <class Slot, class TagOf>
void emptySlot(std::vector<Slot>& slots, U32 hole, const TagOf& tagOf) {
  const U32 mask = static_cast<U32>(slots.size()) - 1;
  for (U32 next = (hole + 1) & mask; slots[next].taken(); next = (next + 1) & mask) {
    const U32 home = tagOf(slots[next]) & mask;
    if (((next - home) & mask) < ((next - hole) & mask)) continue;
    slots[hole] = std::move(slots[next]);
    hole = next;
  }
  slots[hole] = Slot{};
}

}  // namespace Orb
