#pragma once

#include <bit>

#include "VelaSwitchApi/RowCheck.h"
#include "VelaSwitchApi/RowFields.h"

/// What the compiler refuses of a family. Each mistake is an error whose one line names the family,
/// the field and the mistake, under every compiler: a use of Refused, which is never defined.
namespace VelaSwitchApi {

/// What is wrong with a family, or with one of its fields.
enum class Mistake : U8 {
  valueHasNoTypeNameOrIsNoListOfFields,
  rowFieldOverlapsAnotherOrEndsBehindTheRow,
  rowHasNoSuchField,
  rowFieldIsPackedByNobody,
  rowFieldIsNarrowerThanItsValue,
  resultFieldIsNeitherInTheRowNorHandPacked,
  handPackedIsNoFieldOfTheResult,
  notInHardwareIsNoFieldOfTheResult,
  parityFieldWithoutParityWords,
  rowFieldIsBehindTheParityWords,
  parityWordsHoldWhatIsWrittenAfterTheParity,
  sameBitsHoldAFieldThatMoves,
  staticWordHoldsAField,
  staticWordIsBehindTheRow,
  keyHasNoSuchField,
  keyFieldIsHashedWithFewerBitsThanItHas,
  keyFieldIsNeitherHashedNorInTheRow,
  rowDoesNotBeginWithTheWholeKey,
  rowFieldIsTooNarrowForAllRows,
  wayFieldIsTooNarrowForAllWays,
  controlWordIsNotBehindTheDataWords,
  traitsDoNotSayPrefixHashBitsAndWays,
  prefixHasNoPlaceForTheProcessor,
  pathHasNoPlaceForThePort,
  needsPortRegistersOrHwTables,
};

namespace detail {

#ifdef __clang__
/// Clang shows the text of an object as the numbers of its characters.
template <char... characters>
struct Characters;
template <Orb::FixedString field>
using Named = Orb::OfCharacters<Characters, field>;
#else
template <Orb::FixedString field>
struct Named;
#endif

}  // namespace detail

template <class Family, class Field, Mistake mistake>
struct Refused;

/// Refuses the family unless `good`.
template <bool good, class Family, Orb::FixedString field, Mistake mistake>
consteval void expectOf() {
  if constexpr (!good) static_cast<void>(sizeof(Refused<Family, detail::Named<field>, mistake>));
}

namespace detail {

/// Bits that the field of a value has, or 0 where that depends on the profile: masks have as many
/// as ports, and plain numbers that do not say their bits may be cut in rows that differ.
template <class F, class Field>
consteval unsigned bitsOf() {
  using T = typename Field::Type;
  if (Field::usedBits < 64) return Field::usedBits;
  if constexpr (std::same_as<T, bool>) return 1;
  if constexpr (Orb::IsRanged<T>) return std::bit_width(T::highest);
  if constexpr (requires { T::bitCount; }) return T::bitCount;
  if constexpr (std::unsigned_integral<T> && !std::same_as<T, U64>) {
    return ConstantRow<F> ? 8 * sizeof(T) : 0;
  }
  return 0;
}

/// The field of the name, where it has the fewest bits of those shapes that have it; one without
/// bits when there is none.
template <class F>
constexpr RowField fieldOf(std::string_view name) {
  RowField least;
  for (const auto& fields : allFields<F>()) {
    for (const RowField& field : fields) {
      if (name != field.name) continue;
      if (least.width == 0 || (field.width != 0 && field.width < least.width)) least = field;
    }
  }
  return least;
}

/// Whether the family says of the field of the result that packMore takes care of it.
template <class F>
constexpr bool handPacks(std::string_view name) {
  if constexpr (requires { F::handPacked; }) {
    return std::ranges::find(F::handPacked, name) != std::end(F::handPacked);
  }
  return false;
}

/// Whether it says of the field that hardware does not have it.
template <class F>
constexpr bool lacks(std::string_view name) {
  if constexpr (requires { F::notInHardware; }) return name == F::notInHardware;
  return false;
}

/// What `name` returns, for messages of the compiler.
template <auto name>
consteval auto fixedName() {
  char text[name().size() + 1]{};
  std::copy(name().begin(), name().end(), text);
  return Orb::FixedString(text);
}

/// The name of a row's field; empty for the number of none.
template <class F, std::size_t number>
consteval auto fieldName() {
  return fixedName<[] {
    const auto fields = someFields<F>();
    return number < fields.size() ? std::string_view(fields[number].name) : std::string_view();
  }>();
}

/// The number of the first field of the row that is `wrong` in some shape; the number of fields
/// when none is.
template <class F, class Wrong>
constexpr std::size_t firstThat(Wrong wrong) {
  std::size_t first = someFields<F>().size();
  for (const auto& fields : allFields<F>()) {
    std::size_t i = 0;
    while (i < first && (fields[i].width == 0 || !wrong(fields[i]))) ++i;
    first = i;
  }
  return first;
}

/// Refuses the field of the number, if there is one.
template <class F, std::size_t number, Mistake mistake>
consteval void expectNone() {
  expectOf<number == someFields<F>().size(), F, fieldName<F, number>(), mistake>();
}

}  // namespace detail

/// What keys and results are: aggregates of Orb::Field members that name themselves, or numbers
/// with bounds.
template <class T>
concept FamilyValue = Orb::Value<T> || Orb::IsRanged<T>;

/// Refuses a key or a result that is none.
template <class T>
consteval bool valueChecked() {
  expectOf<FamilyValue<T>, T, "typeName", Mistake::valueHasNoTypeNameOrIsNoListOfFields>();
  return true;
}

/// Fills in a value with `bits`, but for the fields that are `left` as they are by default.
template <class V>
void sampleIs(V& value, const RowLayout& layout, U64 bits, bool (*left)(std::string_view name)) {
  sampleIs(Orb::shapeOf<V>, &value, layout, bits);
  if constexpr (Orb::Value<V>) {
    Orb::forEachField(value, [&](auto& field) {
      if (left(field.name)) field = {};
    });
  }
}

/// Fills in a result with `bits`, so that no field of it begins like one of the key.
template <class F>
void sampleResultIs(typename F::Result& result, const RowLayout& layout, U64 bits) {
  constexpr int turn = 16;
  sampleIs(result, layout, std::rotl(bits, turn), &detail::lacks<F>);
}

/// Refuses a family without the field in its rows.
template <class F, Orb::FixedString field>
consteval void expectField() {
  expectOf<findField<F>(field.view()).has_value(), F, field, Mistake::rowHasNoSuchField>();
}

/// Refuses a prefix that leads to the same registers in all processors.
template <class F>
consteval bool processorPlaceChecked() {
  constexpr bool place = std::string_view(F::traits.prefix).find('%') != std::string_view::npos;
  expectOf<place, F, "prefix", Mistake::prefixHasNoPlaceForTheProcessor>();
  return true;
}

/// Whether a field of the row holds something of the result, or that there is one.
template <class F>
constexpr bool holdsResult(const RowField& field) {
  return field.content == RowField::varies &&
         (hasField<ShownOf<F>>(field.name) || std::string_view(field.name) == "valid");
}

namespace detail {

/// The first field that has not the same place in all shapes although it begins below `sameBits`.
template <class F>
consteval std::size_t firstMoving() {
  constexpr auto usual = someFields<F>();
  std::size_t first = usual.size();
  for (const auto& fields : allFields<F>()) {
    for (std::size_t i = 0; i < first; ++i) {
      const bool same = std::min(fields[i].first, usual[i].first) < sameBits<F>();
      const bool moves = fields[i].first != usual[i].first || fields[i].width != usual[i].width;
      if (same && moves) first = i;
    }
  }
  return first;
}

}  // namespace detail

/// Refuses parity over what is written after it, in rows whose places and constants are.
template <class F>
consteval bool placesBehindParity() {
  using namespace detail;
  constexpr std::size_t later = firstThat<F>([](const RowField& field) {
    const std::string_view name = field.name;
    const bool placed = name == "row" || name == "way" || name == "index";
    const bool constant = field.content != RowField::varies && field.content != 0;
    return (placed || constant) && field.first < F::traits.parityWords * 32u;
  });
  expectNone<F, later, Mistake::parityWordsHoldWhatIsWrittenAfterTheParity>();
  return true;
}

/// Refuses, when the family is compiled, what can be told from the row and from the fields of the
/// result that show in it.
template <class F>
consteval void expectRow() {
  using namespace detail;
  using Shown = ShownOf<F>;
  constexpr std::size_t misplaced = [] {
    std::size_t first = someFields<F>().size();
    for (const auto& fields : allFields<F>()) {
      first = std::min(first, firstMisplaced(fields, F::traits.rowWords));
    }
    return first;
  }();
  expectNone<F, misplaced, Mistake::rowFieldOverlapsAnotherOrEndsBehindTheRow>();
  constexpr std::size_t moving = firstMoving<F>();
  expectNone<F, moving, Mistake::sameBitsHoldAFieldThatMoves>();
  constexpr bool packsMore = requires { &F::packMore; };
  constexpr U8 parityWords = F::traits.parityWords;
  if constexpr (parityWords != 0) {
    expectField<F, "parity">();
    constexpr std::size_t behind = firstThat<F>([](const RowField& field) {
      return (holdsResult<F>(field) || std::string_view(field.name) == "parity") &&
             field.first + field.width > parityWords * 32u;
    });
    expectNone<F, behind, Mistake::rowFieldIsBehindTheParityWords>();
  } else {
    expectOf<packsMore || !findField<F>("parity"), F, "parity",
             Mistake::parityFieldWithoutParityWords>();
  }
  if constexpr (requires { F::handPacked; }) {
    expectOf<std::ranges::all_of(F::handPacked, hasField<Shown>), F, "handPacked",
             Mistake::handPackedIsNoFieldOfTheResult>();
  }
  if constexpr (requires { F::notInHardware; }) {
    expectOf<hasField<Shown>(F::notInHardware), F, "notInHardware",
             Mistake::notInHardwareIsNoFieldOfTheResult>();
  }
  Orb::forEachField(Shown{}, [](const auto& field) {
    using Field = std::remove_cvref_t<decltype(field)>;
    constexpr RowField at = fieldOf<F>(Field::name);
    constexpr bool byHand = handPacks<F>(Field::name) || lacks<F>(Field::name);
    expectOf<someFields<F>().empty() || at.name || byHand, F, Field::fixedName,
             Mistake::resultFieldIsNeitherInTheRowNorHandPacked>();
    expectOf<at.width == 0 || byHand || at.width >= bitsOf<F, Field>(), F, Field::fixedName,
             Mistake::rowFieldIsNarrowerThanItsValue>();
  });
}

}  // namespace VelaSwitchApi
