#pragma once

#include "HashBase/HashTables.h"
#include "VelaSwitchApi/FamilyChecks.h"

/// What the compiler refuses of a hash family.
namespace VelaSwitchTable {

namespace detail {

using VelaSwitchApi::expectOf;
using VelaSwitchApi::Mistake;
using VelaSwitchApi::RowField;
using VelaSwitchApi::detail::expectNone;
using VelaSwitchApi::detail::fieldOf;
using VelaSwitchApi::detail::firstThat;

/// Bits of the listed key with which the field of the name is hashed; of all fields for no name.
template <class F>
constexpr unsigned hashedBits(std::string_view name = {}) {
  unsigned bits = 0;
  for (const auto& part : F::keyFields) {
    if (name.empty() || (part.name && name == part.name)) bits += part.width;
  }
  return bits;
}

/// Bits of a listed key that rows hold.
template <class F>
constexpr unsigned storedBits() {
  return hashedBits<F>() - (F::traits.rowImpliesKey ? F::traits.hashBits : 0u);
}

/// Bits of the field "compare" of a family's rows; 0 when they have none.
template <class F>
consteval U8 compareBits() {
  return static_cast<U8>(fieldOf<F>("compare").width);
}

/// Bits of the packed key that rows hold, where the compiler knows them whatever the shape; else 0.
template <class F>
consteval U8 knownStoredBits() {
  constexpr bool constant = VelaSwitchApi::detail::ConstantRow<F>;
  if constexpr (constant && compareBits<F>() != 0) return compareBits<F>();
  const RowField key = fieldOf<F>("key");
  const RowField valid = fieldOf<F>("valid");
  const bool same = std::max(key.first, valid.first) < VelaSwitchApi::detail::sameBits<F>();
  if (key.width == 0 || F::traits.rowImpliesKey || !same) return 0;
  return static_cast<U8>(valid.width == 0 ? key.width : std::min(key.width, valid.first));
}

/// Whether a field of the key need not come back from rows.
template <class F>
constexpr bool notCompared(std::string_view name) {
  if constexpr (requires { F::unusedKeyField; }) return name == F::unusedKeyField;
  if constexpr (requires { F::notCompared; }) return name == F::notCompared;
  return false;
}

/// Each field of a listed key is hashed with all its bits, or stands elsewhere in the row; and what
/// of it rows hold has fields at their beginning.
template <class F>
consteval void expectKey() {
  constexpr auto unknown = [] {
    std::string_view name;
    for (const auto& part : F::keyFields) {
      if (part.name && !VelaSwitchApi::hasField<typename F::Key>(part.name)) name = part.name;
    }
    return name;
  };
  expectOf<unknown().empty(), F, VelaSwitchApi::detail::fixedName<unknown>(),
           Mistake::keyHasNoSuchField>();
  Orb::forEachField(typename F::Key{}, [](const auto& field) {
    using Field = std::remove_cvref_t<decltype(field)>;
    constexpr unsigned bits = hashedBits<F>(Field::name);
    constexpr unsigned held = bits != 0 ? bits : fieldOf<F>(Field::name).width;
    expectOf<held != 0 || notCompared<F>(Field::name), F, Field::fixedName,
             Mistake::keyFieldIsNeitherHashedNorInTheRow>();
    constexpr bool completed = requires { &F::completeKey; };
    expectOf<held == 0 || completed || held >= VelaSwitchApi::detail::bitsOf<F, Field>(), F,
             Field::fixedName, Mistake::keyFieldIsHashedWithFewerBitsThanItHas>();
  });
  constexpr auto all = VelaSwitchApi::detail::allFields<F>();
  constexpr bool covered = std::ranges::all_of(all, [](const auto& fields) {
    unsigned bits = 0;
    for (const RowField& field : fields) {
      if (field.first + field.width <= storedBits<F>()) bits += field.width;
    }
    return bits == storedBits<F>();
  });
  expectOf<covered, F, VelaSwitchApi::detail::fieldName<F, 0>(),
           Mistake::rowDoesNotBeginWithTheWholeKey>();
}

/// The fields that name a row's place, and what commits it.
template <class F>
consteval void expectControlWord() {
  VelaSwitchApi::expectField<F, "row">();
  VelaSwitchApi::expectField<F, "one">();
  constexpr RowField row = fieldOf<F>("row");
  expectOf<row.width >= F::traits.hashBits, F, "row", Mistake::rowFieldIsTooNarrowForAllRows>();
  expectOf<fieldOf<F>("way").width >= std::bit_width(F::traits.ways - 1u), F, "way",
           Mistake::wayFieldIsTooNarrowForAllWays>();
  expectOf < requires { &F::dataWords; }
  || row.first / 32 == F::traits.dataWords, F, "row",
      Mistake::controlWordIsNotBehindTheDataWords > ();
  if constexpr (F::traits.staticWord >= 0) {
    expectOf <
        F::traits
            .staticWord<F::traits.rowWords, F, "staticWord", Mistake::staticWordIsBehindTheRow>();
    constexpr std::size_t held = firstThat<F>([](const RowField& field) {
      const std::string_view name = field.name;
      const U32 word = F::traits.staticWord;
      return field.content == RowField::varies && name != "row" && name != "way" &&
             field.first / 32 <= word && word <= (field.first + field.width - 1) / 32;
    });
    expectNone<F, held, Mistake::staticWordHoldsAField>();
  }
}

}  // namespace detail

/// Refuses, when the family is compiled, what no hash family can be.
template <class F>
consteval bool hashFamilyChecked() {
  using namespace detail;
  expectOf<F::traits.prefix && F::traits.hashBits != 0 && F::traits.ways != 0, F, "traits",
           Mistake::traitsDoNotSayPrefixHashBitsAndWays>();
  if constexpr (F::traits.placement != HashPlacement::once) {
    VelaSwitchApi::processorPlaceChecked<F>();
  }
  VelaSwitchApi::expectRow<F>();
  VelaSwitchApi::placesBehindParity<F>();
  if constexpr (!requires { &F::isEntry; }) VelaSwitchApi::expectField<F, "valid">();
  expectControlWord<F>();
  if constexpr (requires { F::keyFields; }) {
    expectKey<F>();
    if constexpr (!requires { &F::packMore; }) {
      constexpr std::size_t unpacked = firstThat<F>([](const RowField& field) {
        const std::string_view name = field.name;
        const bool placed = name == "row" || name == "way" || name == "parity";
        return field.content == RowField::varies && !placed &&
               !VelaSwitchApi::holdsResult<F>(field) &&
               !VelaSwitchApi::hasField<typename F::Key>(name) &&
               field.first + field.width > storedBits<F>();
      });
      expectNone<F, unpacked, Mistake::rowFieldIsPackedByNobody>();
    }
  }
  return true;
}

}  // namespace VelaSwitchTable
