#pragma once

#include <optional>
#include <string_view>

#include "VelaSwitchApi/RegisterBus.h"

namespace VelaDevice {

/// How a table's control word names the row that a write goes to.
struct ControlWord {
  std::string_view family;
  U8 rowBits;    ///< The row stands in the lowest bits.
  U8 wayFirst;   ///< First bit of the way.
  U8 wayBits;    ///< 0 for tables without ways.
  U8 commitBit;  ///< Must be set for the write to take place.
  U32 rowsPerWay;

  /// The row that the word selects; nothing when it asks for no write.
  std::optional<VelaSwitchApi::HwIndex> select(U32 word) const {
    if ((word >> commitBit & 1) == 0) return std::nullopt;
    const U32 row = word & ((1u << rowBits) - 1);
    const U32 way = word >> wayFirst & ((1u << wayBits) - 1);
    return way * rowsPerWay + row;
  }

  /// The control word of a family's tables, or null for tables without one.
  static const ControlWord* of(std::string_view family);
};

}  // namespace VelaDevice
