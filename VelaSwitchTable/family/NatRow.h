#pragma once

#include "VelaSwitch/Crc.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitchTable/family/HashFamily.h"

/// What the rows of both NAT match families have in common.
namespace VelaSwitchTable {

/// The traits of both, but for what is a family's own.
constexpr HashFamilyTraits natTraits(HashFamilyTraits own) {
  own.placement = HashPlacement::everyPipeline;
  own.prefix = "ingress/processor_l4[%d]/";
  own.rowWords = 6;
  own.keyStart = 5;
  own.rowImpliesKey = true;
  own.hitTableOffset = own.table.number;
  own.staticWord = 4;
  own.parityWords = 4;
  own.tracesKeys = true;
  return own;
}

/// F is the family.
template <class F, Orb::FixedString Unit, class Result>
struct NatFamily : Family<Unit, VelaSwitch::NatMatchKey, Result> {
  using Key = VelaSwitch::NatMatchKey;

  static constexpr U8 classes = 4;  ///< Of protocols that can be encoded.
  static constexpr std::array handPacked{"proto"};
  static void sample(const VelaTableHashHelper&, U64, Key&, Result& result) {
    result.proto = result.proto() % classes;
  }
  /// The row's valid bit is a field of the result, so only a row that is all zero is empty.
  static bool isEntry(const RowReaderOf<F>& row, CuckooLocation) {
    return std::any_of(row.words(), row.words() + F::traits.parityWords,
                       [](U32 word) { return word != 0; });
  }
  static void packMore(const VelaTableHashHelper&, const Key& key, const Result& result, bool valid,
                       CuckooLocation, RowWriterOf<F>& row) {
    if (!valid) return;
    const U8 proto = result.proto();
    if (proto >= classes) F::trace(6, "setHwBuffer", " unexpected proto=", proto);
    row.template set<"proto0">(proto < classes ? proto : 0);
    row.template set<"proto1">(proto < classes ? proto >> 1 : 0);
    row.template set<"wholeAddress">(F::hashedAddress(key).number());
  }
  static void unpackMore(const VelaTableHashHelper&, const RowReaderOf<F>& row, Result& result) {
    result.proto =
        static_cast<U8>(row.template get<"proto0">() | row.template get<"proto1">() << 1);
  }
};

}  // namespace VelaSwitchTable
