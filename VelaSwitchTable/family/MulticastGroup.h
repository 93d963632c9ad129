#pragma once

#include "VelaSwitch/Keys.h"

/// How the multicast tables see a group address: its upper four bits are the same for every group,
/// so hardware neither hashes nor stores them.
namespace VelaSwitchTable {

inline constexpr U8 groupBits = 28;

inline U32 groupNumber(const VelaSwitch::MrouteKey& key) {
  return key.group().number() & ((1u << groupBits) - 1);
}

/// The upper four bits of a group read back: those of the whole address where that is still held,
/// else those that group addresses have.
inline U32 groupPrefix(U64 wholeGroup) {
  constexpr U32 usual = 0xE0000000;
  return wholeGroup == 0 ? usual : static_cast<U32>(wholeGroup >> groupBits << groupBits);
}

}  // namespace VelaSwitchTable
