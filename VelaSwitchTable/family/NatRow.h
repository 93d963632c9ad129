#pragma once

#include <numeric>

#include "Trace/Trace.h"
#include "VelaSwitch/Parity.h"
#include "VelaSwitch/Types.h"
#include "VelaSwitchApi/RowLayout.h"

/// What the rows of both NAT match families have in common.
namespace VelaSwitchTable {

/// The fields of either; one that a family lacks has width 0 in its layout.
enum class NatRow : U8 {
  compare,
  srcIp,
  dstIp,
  sport,
  dport,
  keyProto,
  valid,
  proto0,
  proto1,
  natType,
  natRewriteId,
  useAcl,
  parity,
  trapToCpu,
  rewriteIndex,
  l3LagIndex,
  row,
  zeros,
  way,
  zero,
  one,
  selector,
  wholeAddress,
};

inline constexpr U8 natParityWords = 4;
/// Bits in front of the packed key that are always 0.
inline constexpr U8 natKeyStart = 5;
inline constexpr U8 natProtoClasses = 4;

/// Whether no entry is in the row: its valid bit is a field of the result, so only one that is all
/// zero is empty.
inline bool natRowEmpty(const VelaSwitchApi::RowReader& row) {
  return std::all_of(row.words(), row.words() + natParityWords, [](U32 word) { return word == 0; });
}

/// The low address bits behind the key's start, which the row implies.
inline std::vector<U8> natImpliedBits(U8 count) {
  std::vector<U8> bits(count);
  std::iota(bits.begin(), bits.end(), natKeyStart);
  return bits;
}

/// Packs the fields of the result that both families have, and the parity of all that is packed.
template <class Result>
void packNatResult(const Result& result, const Trace::Handle& trace,
                   VelaSwitchApi::RowWriter& row) {
  if (result.proto() >= natProtoClasses) {
    trace(6, "setHwBuffer", " unexpected proto=", result.proto());
  }
  const U8 proto = result.proto() < natProtoClasses ? result.proto() : U8{0};
  row.set(NatRow::valid, result.valid());
  row.set(NatRow::proto0, proto & 1u);
  row.set(NatRow::proto1, proto >> 1);
  row.set(NatRow::natRewriteId, result.natRewriteId());
  row.set(NatRow::parity, 0);
  row.set(NatRow::trapToCpu, result.trapToCpu());
  row.set(NatRow::rewriteIndex, result.rewriteIndex());
  row.set(NatRow::l3LagIndex, result.l3LagIndex().value());
  row.set(NatRow::parity, VelaSwitch::parityU32Array(row.words(), natParityWords));
}

/// The way and row of an entry; `selector` tells tables of one control word apart.
inline void packNatStatic(CuckooLocation location, U32 selector, VelaSwitchApi::RowWriter& row) {
  row.set(NatRow::row, location.row);
  row.set(NatRow::zeros, 0);
  row.set(NatRow::way, location.way);
  row.set(NatRow::zero, 0);
  row.set(NatRow::one, 1);
  row.set(NatRow::selector, selector);
}

template <class Result>
Result unpackNatResult(const VelaSwitchApi::RowReader& row) {
  Result result;
  result.valid = row.flag(NatRow::valid);
  result.proto = static_cast<U8>(row.get(NatRow::proto0) | row.get(NatRow::proto1) << 1);
  result.natRewriteId = static_cast<U16>(row.get(NatRow::natRewriteId));
  result.trapToCpu = row.flag(NatRow::trapToCpu);
  result.rewriteIndex = static_cast<U8>(row.get(NatRow::rewriteIndex));
  result.l3LagIndex = VelaSwitch::L3LagIndex(row.get(NatRow::l3LagIndex));
  return result;
}

}  // namespace VelaSwitchTable
