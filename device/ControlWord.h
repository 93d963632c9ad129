#pragma once

#include <optional>
#include <string_view>

#include "VelaSwitchApi/RegisterBus.h"

namespace VelaDevice {

/// How a table's control word names the row that a write goes to.
struct ControlWord {
  std::string_view family;
  U8 rowBits;
  U8 commitBit;     ///< Must be set for the write to take place.
  U8 wayFirst = 0;  ///< First bit of the way.
  U8 wayBits = 0;   ///< 0 for tables without ways.
  U32 rowsPerWay = 0;
  U8 rowFirst = 0;  ///< First bit of the row.
  /// Rows of each block of a table whose blocks share it; the registers' block then counts.
  U32 rowsPerBlock = 0;

  /// The row that the word selects in a block; nothing when it asks for no write.
  std::optional<VelaSwitchApi::HwIndex> select(U32 word, U32 block) const {
    if ((word >> commitBit & 1) == 0) return std::nullopt;
    const U32 row = word >> rowFirst & ((1u << rowBits) - 1);
    const U32 way = word >> wayFirst & ((1u << wayBits) - 1);
    return block * rowsPerBlock + way * rowsPerWay + row;
  }

  /// The control word of a family's tables, or null for tables without one.
  static const ControlWord* of(std::string_view family);
};

}  // namespace VelaDevice
