#pragma once

#include <array>
#include <compare>
#include <concepts>
#include <type_traits>
#include <utility>

#include "Orb/FixedString.h"
#include "Orb/Types.h"

/// The fields of value types: see Value.h.
namespace Orb {

namespace detail {
struct AnyField;
}

/// One field of a value type: read by calling it, written by assignment. Where hardware has fewer
/// bits for it than its type, `UsedBits` says how many: what a value has above them is cut.
template <FixedString Name, class T, unsigned UsedBits = 64>
struct Field {
  using Type = T;                                        ///< What it holds.
  static constexpr auto fixedName = Name;                ///< Its name for templates.
  static constexpr std::string_view name = Name.view();  ///< As in texts and JSON.
  static constexpr unsigned usedBits = UsedBits;         ///< 64 where hardware has room for all.

  T value{};  ///< To be changed in place; reading is by calling the field.

  constexpr Field() = default;
  /// From anything that makes a T; numbers out of its bounds throw RangeException.
  template <class U>
  requires std::constructible_from<T, U> &&
      (!std::same_as<std::remove_cvref_t<U>, detail::AnyField>)constexpr Field(U&& initial)
      : value(static_cast<T>(std::forward<U>(initial))) {}

  constexpr const T& operator()() const { return value; }  ///< What it holds.
  /// Looks into a field that is a map.
  template <class Key>
  constexpr decltype(auto) operator()(const Key& key) const {
    return value(key);
  }
  constexpr auto operator<=>(const Field&) const = default;
};

namespace detail {

template <class T>
inline constexpr bool isField = false;
template <FixedString Name, class T, unsigned UsedBits>
inline constexpr bool isField<Field<Name, T, UsedBits>> = true;

/// Stands for any field when the fields of an aggregate are counted.
struct AnyField {
  template <class T>
  requires isField<T>
  operator T() const;
};

template <class V, class... Fields>
constexpr std::size_t countFields() {
  if constexpr (requires { V{Fields{}..., AnyField{}}; }) {
    return countFields<V, Fields..., AnyField>();
  } else {
    return sizeof...(Fields);
  }
}

/// The aggregate that holds a value type's fields: itself, unless it names another.
template <class V>
struct FieldsOf {
  using Type = V;
};
template <class V>
requires std::derived_from<V, typename V::Fields>
struct FieldsOf<V> {
  using Type = typename V::Fields;
};

}  // namespace detail

template <class V>
concept Value = std::is_aggregate_v<typename detail::FieldsOf<V>::Type> && requires {
  { V::typeName } -> std::convertible_to<const char*>;
};

template <class V>
concept ScalarValue = Value<V> && requires {
  V::scalar;
};

template <class V>
concept BareTextValue = Value<V> && requires {
  V::bareText;
};

/// How many fields a value type has.
template <Value V>
inline constexpr std::size_t fieldCount = detail::countFields<typename detail::FieldsOf<V>::Type>();

/// What `visit` returns for all fields of `value` together, in declaration order.
template <class V, class Visitor>
requires Value<std::remove_cvref_t<V>>
[[gnu::always_inline]] constexpr auto withFields(V&& value, Visitor&& visit) {
  constexpr std::size_t count = fieldCount<std::remove_cvref_t<V>>;
  static_assert(count >= 1 && count <= 16, "a value type has 1 to 16 fields");
  // clang-format off
  if constexpr (count == 1) { auto& [a] = value; return visit(a); }
  else if constexpr (count == 2) { auto& [a, b] = value; return visit(a, b); }
  else if constexpr (count == 3) { auto& [a, b, c] = value; return visit(a, b, c); }
  else if constexpr (count == 4) { auto& [a, b, c, d] = value; return visit(a, b, c, d); }
  else if constexpr (count == 5) { auto& [a, b, c, d, e] = value; return visit(a, b, c, d, e); }
  else if constexpr (count == 6) { auto& [a, b, c, d, e, f] = value; return visit(a, b, c, d, e, f); }
  else if constexpr (count == 7) { auto& [a, b, c, d, e, f, g] = value; return visit(a, b, c, d, e, f, g); }
  else if constexpr (count == 8) {
    auto& [a, b, c, d, e, f, g, h] = value; return visit(a, b, c, d, e, f, g, h);
  } else if constexpr (count == 9) {
    auto& [a, b, c, d, e, f, g, h, i] = value; return visit(a, b, c, d, e, f, g, h, i);
  } else if constexpr (count == 10) {
    auto& [a, b, c, d, e, f, g, h, i, j] = value; return visit(a, b, c, d, e, f, g, h, i, j);
  } else if constexpr (count == 11) {
    auto& [a, b, c, d, e, f, g, h, i, j, k] = value; return visit(a, b, c, d, e, f, g, h, i, j, k);
  } else if constexpr (count == 12) {
    auto& [a, b, c, d, e, f, g, h, i, j, k, l] = value; return visit(a, b, c, d, e, f, g, h, i, j, k, l);
  } else if constexpr (count == 13) {
    auto& [a, b, c, d, e, f, g, h, i, j, k, l, m] = value;
    return visit(a, b, c, d, e, f, g, h, i, j, k, l, m);
  } else if constexpr (count == 14) {
    auto& [a, b, c, d, e, f, g, h, i, j, k, l, m, n] = value;
    return visit(a, b, c, d, e, f, g, h, i, j, k, l, m, n);
  } else if constexpr (count == 15) {
    auto& [a, b, c, d, e, f, g, h, i, j, k, l, m, n, o] = value;
    return visit(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o);
  } else {
    auto& [a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p] = value;
    return visit(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p);
  }
  // clang-format on
}

/// Calls `visit` with every field of `value`, in declaration order.
template <class V, class Visitor>
requires Value<std::remove_cvref_t<V>>
constexpr void forEachField(V&& value, Visitor&& visit) {
  withFields(value, [&](auto&... fields) { (visit(fields), ...); });
}

/// The types of an aggregate's fields.
template <class... Fields>
struct FieldList {};

namespace detail {
struct ListFields {
  template <class... Fields>
  constexpr FieldList<Fields...> operator()(const Fields&...) const {
    return {};
  }
};
}  // namespace detail

/// The types of a value type's fields.
template <Value V>
using FieldListOf = decltype(withFields(std::declval<const V&>(), detail::ListFields{}));

/// Where the members of an aggregate lie, one behind the other, as far apart as their alignment
/// asks, and last where they end.
template <class... Fields>
constexpr std::array<U32, sizeof...(Fields) + 1> fieldOffsets(FieldList<Fields...>) {
  std::array<U32, sizeof...(Fields) + 1> offsets{};
  std::size_t number = 0;
  std::size_t end = 0;
  const auto place = [&](std::size_t size, std::size_t alignment) {
    const std::size_t offset = (end + alignment - 1) / alignment * alignment;
    offsets[number++] = static_cast<U32>(offset);
    end = offset + size;
  };
  (place(sizeof(Fields), alignof(Fields)), ...);
  offsets[number] = static_cast<U32>(end);
  return offsets;
}

}  // namespace Orb
