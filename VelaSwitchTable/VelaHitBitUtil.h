#pragma once

#include <string>

#include "VelaSwitchApi/HwTable.h"

namespace VelaSwitchTable {

/// Where the hit bits of a hash table lie.
///
/// @param prefix     register prefix of the table
/// @param rows       rows of the table, all ways together
/// @param bitsPerRead  hit bits that one read returns, half of them in each of two data registers
/// @param hitTableOffset  the hit table's offset in its processor; with 0 no bits are registered
VELA_EXPORT Orb::PtrConst<VelaSwitchApi::HitBitReadInfoWrapper> getHitBitMapping(
    const std::string& prefix, U32 rows, U32 bitsPerRead, U32 hitTableOffset);

}  // namespace VelaSwitchTable
