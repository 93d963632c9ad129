#pragma once

#include "Orb/Value.h"
#include "VelaSwitch/Types.h"

namespace VelaSwitch {

/// Where a routed packet leaves and what is rewritten in it.
struct NexthopIndexes {
  static constexpr const char* typeName = "VelaSwitch::NexthopIndexes";
  /// Within another value the two fields are spelled as that value's own.
  static constexpr bool inlined = true;
  static constexpr U8 fieldBits = 6;                ///< Bits that hardware has for each index.
  Orb::Field<"l3LagIndex", L3LagIndex> l3LagIndex;  ///< The ports; 57 for no next hop.
  Orb::Field<"rewriteIndex", U8, 6> rewriteIndex;   ///< Which rewrite of the egress side.
  auto operator<=>(const NexthopIndexes&) const = default;

  /// Whether there is a next hop at all.
  bool valid() const { return l3LagIndex().value() != L3LagIndex::null; }
  /// `l3LagIndex` in bits 0 to 5, `rewriteIndex` in bits 6 to 11.
  U32 raw() const {
    return l3LagIndex().value() | (U32{rewriteIndex()} & ((1u << fieldBits) - 1)) << fieldBits;
  }
  /// The inverse. Bits from 12 on are not looked at.
  static NexthopIndexes fromRaw(U32 raw) {
    constexpr U32 mask = (1u << fieldBits) - 1;
    return {L3LagIndex(raw & mask), static_cast<U8>(raw >> fieldBits & mask)};
  }
};

}  // namespace VelaSwitch
