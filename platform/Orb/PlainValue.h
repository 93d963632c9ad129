#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <type_traits>
#include <utility>

#include "Orb/FieldList.h"

/// Value types whose fields are plain numbers, taken as words: what is asked of one most, whether
/// it is equal to another and what its hash is, takes fewer steps than there are fields.
namespace Orb {

namespace detail {

/// An unsigned number of so many bytes; void where there is none.
template <std::size_t size>
using NumberOf = std::conditional_t<
    size == 1, U8,
    std::conditional_t<
        size == 2, U16,
        std::conditional_t<size == 4, U32, std::conditional_t<size == 8, U64, void>>>>;

/// Where the fields of a value type lie, in bytes.
template <class... Fields>
struct FieldPlaces {
  /// No field lies in two words then.
  static constexpr bool plain =
      ((std::is_trivially_copyable_v<Fields> && std::has_unique_object_representations_v<Fields> &&
        !std::is_void_v<NumberOf<sizeof(Fields)>> &&
        std::alignment_of_v<Fields> == sizeof(Fields)) &&
       ...);
  static constexpr auto places = fieldOffsets(FieldList<Fields...>());
  static constexpr std::size_t words = (places.back() + 7) / 8;
  /// The bits that are a field's.
  static constexpr std::array<U64, words> used = [] {
    std::array<U64, words> masks{};
    std::size_t number = 0;
    const auto add = [&](std::size_t size) {
      const std::size_t at = places[number++];
      masks[at / 8] |= ~U64{0} >> (64 - 8 * size) << at % 8 * 8;
    };
    (add(sizeof(Fields)), ...);
    return masks;
  }();
};
template <class... Fields>
FieldPlaces<Fields...> fieldPlaces(FieldList<Fields...>);
template <class V>
using PlacesOf = decltype(fieldPlaces(FieldListOf<V>()));

}  // namespace detail

/// A value type whose fields are numbers of 1, 2, 4 or 8 bytes, all of whose bits count.
template <class V>
concept PlainValue = Value<V> && std::is_standard_layout_v<V> && detail::PlacesOf<V>::plain &&
                         sizeof(V) -
                         detail::PlacesOf<V>::places.back() <
                     alignof(V);

/// Enough for the fields, which lie in them as they do in memory.
template <PlainValue V>
using ValueWords = std::array<U64, detail::PlacesOf<V>::words>;

/// The words of a value that lies in memory.
template <PlainValue V>
[[gnu::always_inline]] inline ValueWords<V> storedWords(const V& value) {
  // Sizes are known one by one, so that each is one access.
  const auto word = [&]<std::size_t i>(std::integral_constant<std::size_t, i>) {
    U64 bits = 0;
    std::memcpy(&bits, reinterpret_cast<const char*>(&value) + i * 8,
                std::min<std::size_t>(8, sizeof value - i * 8));
    return bits & detail::PlacesOf<V>::used[i];
  };
  return [&]<std::size_t... i>(std::index_sequence<i...>) {
    return ValueWords<V>{word(std::integral_constant<std::size_t, i>())...};
  }
  (std::make_index_sequence<detail::PlacesOf<V>::words>());
}
/// The same of one that was just made, field by field: whose bytes, written one by one, memory does
/// not have as words yet.
template <PlainValue V>
[[gnu::always_inline]] inline ValueWords<V> gatheredWords(const V& value) {
  ValueWords<V> words{};
  std::size_t number = 0;
  const auto add = [&](const auto& field) __attribute__((always_inline)) {
    const std::size_t at = detail::PlacesOf<V>::places[number++];
    const auto bits = std::bit_cast<detail::NumberOf<sizeof field>>(field);
    words[at / 8] |= U64{bits} << at % 8 * 8;
  };
  withFields(
      value, [&](const auto&... fields) __attribute__((always_inline)) {
        (add(fields), ...);
        return 0;
      });
  return words;
}
/// Whether two values of a type with such words are equal.
template <std::size_t count>
[[gnu::always_inline]] inline bool sameWords(const std::array<U64, count>& one,
                                             const std::array<U64, count>& other) {
  return [&]<std::size_t... i>(std::index_sequence<i...>) {
    return ((one[i] ^ other[i]) | ...) == 0;
  }
  (std::make_index_sequence<count>());
}

}  // namespace Orb
