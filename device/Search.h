#pragma once

#include "device/Bits.h"
#include "device/DataPath.h"

namespace VelaDevice {

/// Asks the row of each way that the key can lie in; the first one that `match` accepts holds it.
template <std::size_t ways, class Match>
std::optional<U32> DataPath::search(std::string_view family, const SimulatedSwitch::Table* table,
                                    const U32 (&polynomials)[ways], U32 hashWidth, const Bits& key,
                                    const Match& match) {
  U32 way = 0;
  for (const U32 polynomial : polynomials) {
    if (!table) break;
    const U32 index = (way++ << hashWidth) + shiftRegister(hashWidth, polynomial, key);
    const U32* words = table->row(index);
    if (!words || !match(Bits(words, 4))) continue;
    note(family, table, index);
    return index;
  }
  note(family, table, std::nullopt, "no row holds the key");
  return std::nullopt;
}

}  // namespace VelaDevice
