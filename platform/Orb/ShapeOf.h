#pragma once

#include <optional>
#include <vector>

#include "Orb/FieldList.h"
#include "Orb/Range.h"
#include "Orb/Seconds.h"
#include "Orb/Shape.h"

/// The shapes of types, made at compile time.
namespace Orb {

namespace detail {

template <class T>
const T& as(const void* value) {
  return *static_cast<const T*>(value);
}
template <class T>
T& as(void* value) {
  return *static_cast<T*>(value);
}

template <class T>
concept BitMask = std::same_as<T, U64> || requires(const T mask) {
  { mask.bits() } -> std::same_as<U64>;
  T(U64{});
};
template <class T>
concept Optional = std::same_as<T, std::optional<typename T::value_type>>;
template <class T>
concept List = std::same_as<T, std::vector<typename T::value_type>>;
template <class T>
concept MapByNumber = requires {
  typename T::Mapped;
  typename T::Key;
};
template <class T>
concept SetOfNumbers = requires {
  typename T::Member;
};
template <class T>
inline constexpr bool isArray = false;
template <class T, std::size_t count>
inline constexpr bool isArray<std::array<T, count>> = true;

/// The operations of Shape for one type.
template <class T>
struct ShapeOf {
  static void* make() { return new T{}; }
  static void* copy(const void* value) { return new T(*static_cast<const T*>(value)); }
  static void destroy(void* value) { delete static_cast<T*>(value); }
  static void reset(void* value) { as<T>(value) = T{}; }
  static bool isDefault(const void* value) { return as<T>(value) == T{}; }

  static U64 numberOf(const T& value) {
    if constexpr (IsRanged<T>) {
      return value.value();
    } else if constexpr (requires { value.bits(); }) {
      return value.bits();
    } else {
      return value;
    }
  }
  static U64 number(const void* value) { return numberOf(as<T>(value)); }
  static void numberIs(void* value, U64 number) { as<T>(value) = static_cast<T>(number); }

  static double real(const void* value) {
    if constexpr (std::same_as<T, Seconds>) {
      return as<T>(value).value();
    } else {
      return as<T>(value);
    }
  }
  static void realIs(void* value, double real) { as<T>(value) = static_cast<T>(real); }

  static void append(TextSink& sink, const void* value) { appendText(sink, as<T>(value)); }
  static void parse(TextCursor& cursor, void* value) { parseText(cursor, as<T>(value)); }
  static void wordOfNumber(void* value, U32 number) { as<T>(value) = T(number); }

  static std::size_t count(const void* value) {
    if constexpr (Optional<T>) {
      return as<T>(value).has_value() ? 1 : 0;
    } else {
      return as<T>(value).size();
    }
  }
  static const void* at(const void* value, std::size_t index) {
    if constexpr (Optional<T>) {
      return &*as<T>(value);
    } else {
      return &as<T>(value)[index];
    }
  }
  static void* grow(void* value) {
    if constexpr (Optional<T>) {
      return &as<T>(value).emplace();
    } else {
      return &as<T>(value).emplace_back();
    }
  }
  static void forEach(const void* value, const Shape::Element& visit) {
    as<T>(value).forEach([&](auto key, const auto& each) { visit(key.value(), &each); });
  }
  static void insert(void* value, const Shape::NewElement& element) {
    if constexpr (SetOfNumbers<T>) {
      typename T::Member member;
      element(&member);
      as<T>(value).is(member, true);
    } else {
      typename T::Mapped mapped{};
      const U64 key = element(&mapped);
      as<T>(value).is(typename T::Key(key), mapped);
    }
  }
};

template <class T>
constexpr Shape shapeOf();

}  // namespace detail

/// The shape of a type.
template <class T>
VELA_EXPORT inline constexpr Shape shapeOf = detail::shapeOf<T>();

template <class T>
bool Shape::is() const {
  return this == &shapeOf<T>;
}

namespace detail {

template <class... Fields>
constexpr std::array<FieldShape, sizeof...(Fields)> fieldShapes(FieldList<Fields...> fields) {
  constexpr auto offsets = fieldOffsets(decltype(fields)());
  std::size_t number = 0;
  return {FieldShape{Fields::name, &Orb::shapeOf<typename Fields::Type>, offsets[number++],
                     Fields::usedBits}...};
}

template <Value V>
inline constexpr auto fieldsOf = fieldShapes(FieldListOf<V>{});

template <class T>
constexpr void describeNumber(Shape& shape) {
  using Of = ShapeOf<T>;
  shape.kind = std::same_as<T, bool> ? Kind::flag : BitMask<T> ? Kind::mask : Kind::number;
  shape.number = Of::number;
  shape.numberIs = Of::numberIs;
  if constexpr (IsRanged<T>) {
    shape.lowest = T::lowest;
    shape.highest = T::highest;
    shape.none = T{}.value();
    shape.rangeText = T::rangeText;
  } else {
    shape.highest = BitMask<T> ? ~U64{0} : ~U64{0} >> (64 - 8 * sizeof(T));
  }
}

template <class T, Kind kind>
constexpr void describeElements(Shape& shape) {
  using Of = ShapeOf<T>;
  shape.kind = kind;
  shape.element = &Orb::shapeOf<typename T::value_type>;
  shape.count = Of::count;
  shape.at = Of::at;
  if constexpr (kind != Kind::array) shape.grow = Of::grow;
}

template <Value V>
constexpr void describeRecord(Shape& shape) {
  static_assert(!std::is_polymorphic_v<V>, "fields are found by their place");
  shape.kind = Kind::record;
  shape.fields = fieldsOf<V>;
  shape.typeName = V::typeName;
  shape.scalar = ScalarValue<V>;
  shape.bareText = BareTextValue<V>;
  if constexpr (requires { V::noTextReason; }) shape.noTextReason = V::noTextReason;
  if constexpr (requires { V::nullable; }) shape.isDefault = ShapeOf<V>::isDefault;
  shape.inlined = requires { V::inlined; };
}

template <class T>
constexpr void describeText(Shape& shape) {
  using Of = ShapeOf<T>;
  if constexpr (requires(TextSink & sink, const T& value) { appendText(sink, value); }) {
    shape.append = Of::append;
  }
  if constexpr (requires(TextCursor & cursor, T & value) { parseText(cursor, value); }) {
    shape.parse = Of::parse;
  }
}

/// What has no parts, or is told as one.
template <class T>
constexpr void describeLeaf(Shape& shape) {
  using Of = ShapeOf<T>;
  if constexpr (std::unsigned_integral<T> || BitMask<T> || IsRanged<T>) {
    describeNumber<T>(shape);
  } else if constexpr (std::floating_point<T> || std::same_as<T, Seconds>) {
    shape.kind = std::same_as<T, Seconds> ? Kind::seconds : Kind::real;
    shape.real = Of::real;
    shape.realIs = Of::realIs;
  } else if constexpr (std::same_as<T, std::string>) {
    shape.kind = Kind::string;
  } else {
    shape.kind = Kind::word;
    if constexpr (std::constructible_from<T, U32>) shape.wordOfNumber = Of::wordOfNumber;
  }
  describeText<T>(shape);
}

template <class T>
constexpr Shape shapeOf() {
  using Of = ShapeOf<T>;
  Shape shape{};
  shape.make = Of::make;
  shape.copy = Of::copy;
  shape.destroy = Of::destroy;
  shape.reset = Of::reset;
  if constexpr (Value<T>) {
    describeRecord<T>(shape);
  } else if constexpr (isArray<T>) {
    describeElements<T, Kind::array>(shape);
  } else if constexpr (List<T>) {
    describeElements<T, Kind::list>(shape);
  } else if constexpr (Optional<T>) {
    describeElements<T, Kind::optional>(shape);
  } else if constexpr (SetOfNumbers<T> || MapByNumber<T>) {
    shape.kind = SetOfNumbers<T> ? Kind::set : Kind::map;
    if constexpr (SetOfNumbers<T>) {
      shape.element = &Orb::shapeOf<typename T::Member>;
    } else {
      shape.element = &Orb::shapeOf<typename T::Mapped>;
    }
    shape.forEach = Of::forEach;
    shape.insert = Of::insert;
    describeText<T>(shape);
  } else {
    describeLeaf<T>(shape);
  }
  return shape;
}

}  // namespace detail

}  // namespace Orb
