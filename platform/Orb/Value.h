#pragma once

#include <array>
#include <compare>
#include <concepts>
#include <type_traits>
#include <utility>

#include "Orb/FixedString.h"
#include "Orb/Hash.h"
#include "Orb/Range.h"
#include "Orb/Text.h"

/// Value types. A value type is an aggregate of Field members and names itself:
///
///   struct Flow {
///     static constexpr const char* typeName = "VelaSwitch::Flow";
///     Orb::Field<"source", Ipnet::IpAddr> source;
///     Orb::Field<"port", U16> port;
///     auto operator<=>(const Flow&) const = default;
///   };
///
/// The member list is the only list: equality and order compare it, and hash, text form, reading
/// from text and JSON walk it. A type with one field may add `static constexpr bool scalar = true`:
/// its JSON is that field alone; and `bareText`: its text form is. A type that needs constructors
/// of its own derives from the aggregate of its fields, which it names `Fields`.
namespace Orb {

namespace detail {
struct AnyField;
}

/// One field of a value type: read by calling it, written by assignment. Where hardware has fewer
/// bits for it than its type, `UsedBits` says how many: what a value has above them is cut.
template <FixedString Name, class T, unsigned UsedBits = 64>
struct Field {
  using Type = T;
  static constexpr auto fixedName = Name;
  static constexpr std::string_view name = Name.view();
  static constexpr unsigned usedBits = UsedBits;

  T value{};

  constexpr Field() = default;
  template <class U>
  requires std::constructible_from<T, U> &&
      (!std::same_as<std::remove_cvref_t<U>, detail::AnyField>)constexpr Field(U&& initial)
      : value(static_cast<T>(std::forward<U>(initial))) {}

  constexpr const T& operator()() const { return value; }
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

template <Value V>
inline constexpr std::size_t fieldCount = detail::countFields<typename detail::FieldsOf<V>::Type>();

/// Calls `visit` with every field of `value`, in declaration order.
template <class V, class Visitor>
requires Value<std::remove_cvref_t<V>>
constexpr void forEachField(V&& value, Visitor&& visit) {
  constexpr std::size_t count = fieldCount<std::remove_cvref_t<V>>;
  static_assert(count >= 1 && count <= 16, "a value type has 1 to 16 fields");
  const auto each = [&](auto&... fields) { (visit(fields), ...); };
  // clang-format off
  if constexpr (count == 1) { auto& [a] = value; each(a); }
  else if constexpr (count == 2) { auto& [a, b] = value; each(a, b); }
  else if constexpr (count == 3) { auto& [a, b, c] = value; each(a, b, c); }
  else if constexpr (count == 4) { auto& [a, b, c, d] = value; each(a, b, c, d); }
  else if constexpr (count == 5) { auto& [a, b, c, d, e] = value; each(a, b, c, d, e); }
  else if constexpr (count == 6) { auto& [a, b, c, d, e, f] = value; each(a, b, c, d, e, f); }
  else if constexpr (count == 7) { auto& [a, b, c, d, e, f, g] = value; each(a, b, c, d, e, f, g); }
  else if constexpr (count == 8) {
    auto& [a, b, c, d, e, f, g, h] = value; each(a, b, c, d, e, f, g, h);
  } else if constexpr (count == 9) {
    auto& [a, b, c, d, e, f, g, h, i] = value; each(a, b, c, d, e, f, g, h, i);
  } else if constexpr (count == 10) {
    auto& [a, b, c, d, e, f, g, h, i, j] = value; each(a, b, c, d, e, f, g, h, i, j);
  } else if constexpr (count == 11) {
    auto& [a, b, c, d, e, f, g, h, i, j, k] = value; each(a, b, c, d, e, f, g, h, i, j, k);
  } else if constexpr (count == 12) {
    auto& [a, b, c, d, e, f, g, h, i, j, k, l] = value; each(a, b, c, d, e, f, g, h, i, j, k, l);
  } else if constexpr (count == 13) {
    auto& [a, b, c, d, e, f, g, h, i, j, k, l, m] = value;
    each(a, b, c, d, e, f, g, h, i, j, k, l, m);
  } else if constexpr (count == 14) {
    auto& [a, b, c, d, e, f, g, h, i, j, k, l, m, n] = value;
    each(a, b, c, d, e, f, g, h, i, j, k, l, m, n);
  } else if constexpr (count == 15) {
    auto& [a, b, c, d, e, f, g, h, i, j, k, l, m, n, o] = value;
    each(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o);
  } else {
    auto& [a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p] = value;
    each(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p);
  }
  // clang-format on
}

template <Value V>
U64 hashOf(const V& value);
template <Value V>
void appendText(TextSink& sink, const V& value);
template <Value V>
void parseText(TextCursor& cursor, V& value);

/// A fixed number of values; the text form is "[a, b, c]".
template <class T, std::size_t count>
U64 hashOf(const std::array<T, count>& values) {
  U64 hash = hashSeed;
  for (const T& value : values) hash = hashMix(hash, hashOf(value));
  return hash;
}
template <class T, std::size_t count>
void appendText(TextSink& sink, const std::array<T, count>& values) {
  std::string_view separator = "[";
  for (const T& value : values) {
    sink.append(separator);
    appendText(sink, value);
    separator = ", ";
  }
  sink.append("]");
}
template <class T, std::size_t count>
void parseText(TextCursor& cursor, std::array<T, count>& values) {
  std::string_view separator = "[";
  for (T& value : values) {
    cursor.expect(separator);
    parseText(cursor, value);
    separator = ", ";
  }
  cursor.expect("]");
}

/// Small fields are gathered into one word before they are mixed in.
template <Value V>
U64 hashOf(const V& value) {
  U64 hash = hashSeed;
  U64 word = 0;
  unsigned used = 0;
  forEachField(value, [&](const auto& field) {
    using T = std::remove_cvref_t<decltype(field())>;
    if constexpr (HashWord<T>) {
      const auto bits = hashWord(field());
      constexpr unsigned width = sizeof bits * 8;
      if (used + width > 64) {
        hash = hashMix(hash, word);
        word = 0;
        used = 0;
      }
      word |= U64{bits} << used;
      used += width;
    } else {
      hash = hashMix(hash, hashOf(field()));
    }
  });
  return hashMix(hash, word);
}

/// A hash of all fields for those who want several that have nothing to do with each other.
template <Value V>
U32 seededHash(const V& value, U32 seed) {
  return static_cast<U32>(hashMix(hashMix(hashSeed, seed), hashOf(value)));
}

template <Value V>
void appendText(TextSink& sink, const V& value) {
  if constexpr (BareTextValue<V>) {
    forEachField(value, [&](const auto& field) { appendText(sink, field()); });
  } else {
    sink.append("Value('");
    sink.append(V::typeName);
    sink.append("', ** {");
    std::string_view separator = "'";
    forEachField(value, [&](const auto& field) {
      sink.append(separator);
      sink.append(field.name);
      sink.append("': ");
      appendText(sink, field());
      separator = ", '";
    });
    sink.append("})");
  }
}

/// A value type that holds a collection says in V::noTextReason why it cannot be read from text.
template <Value V>
requires requires { V::noTextReason; }
void parseText(TextCursor&, V&) { throw TextException(V::noTextReason); }

/// Reads the text form. A value out of range is reported with the name of its field in front.
template <Value V>
void parseText(TextCursor& cursor, V& value) {
  const auto parseField = [&](auto& field) {
    try {
      parseText(cursor, field.value);
    } catch (const RangeException& error) {
      throw RangeException(std::string(field.name), error);
    }
  };
  if constexpr (BareTextValue<V>) {
    forEachField(value, parseField);
  } else {
    cursor.expect("Value('");
    cursor.expect(V::typeName);
    cursor.expect("', ** {");
    std::string_view separator = "'";
    forEachField(value, [&](auto& field) {
      cursor.expect(separator);
      cursor.expect(field.name);
      cursor.expect("': ");
      parseField(field);
      separator = ", '";
    });
    cursor.expect("})");
  }
}

}  // namespace Orb
