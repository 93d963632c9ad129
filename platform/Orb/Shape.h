#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "Orb/FieldList.h"
#include "Orb/Range.h"
#include "Orb/Seconds.h"
#include "Orb/Text.h"

/// What values are made of, as data: a table of fields for each value type, made from its field
/// list at compile time. Whoever turns values into something else (text, JSON, another language)
/// walks these tables and is compiled once, not for each type.
namespace Orb {

enum class Kind : U8 {
  flag,      ///< A bool.
  number,    ///< Unsigned, perhaps with bounds.
  mask,      ///< 64 bits, one for each of something.
  real,      ///< A floating-point number.
  seconds,   ///< A point in time.
  string,    ///< A text of any kind.
  word,      ///< What has a text form of its own: an address, one of several names.
  optional,  ///< A value or none.
  list,      ///< Any number of values.
  array,     ///< A fixed number of values.
  map,       ///< Values by number.
  set,       ///< Numbers.
  record,    ///< A value type.
};

struct Shape;

/// A field of a value type.
struct FieldShape {
  std::string_view name;
  const Shape* shape;
  U32 offset;
  unsigned usedBits;  ///< As the field says.

  const void* in(const void* value) const { return static_cast<const char*>(value) + offset; }
  void* in(void* value) const { return static_cast<char*>(value) + offset; }
};

/// How values of a type are read and written where only their address is known. What a kind has no
/// use for is null.
struct Shape {
  using Element = std::function<void(U64 key, const void* value)>;
  /// Fills in a value and returns its key.
  using NewElement = std::function<U64(void* value)>;

  Kind kind;

  void* (*make)();  ///< A default value on the heap.
  void (*destroy)(void* value);
  void (*reset)(void* value);  ///< Back to the default.

  /// Flags, numbers and masks. A number out of bounds must not be written.
  U64 (*number)(const void* value);
  void (*numberIs)(void* value, U64 number);
  U64 lowest, highest;
  U64 none;               ///< The default, which may stand for none.
  const char* rangeText;  ///< The complaint of a number with bounds; null for others.

  double (*real)(const void* value);
  void (*realIs)(void* value, double real);

  /// The text form, and reading it; of words and of all else but arrays and records.
  void (*append)(TextSink& sink, const void* value);
  void (*parse)(TextCursor& cursor, void* value);
  void (*wordOfNumber)(void* value, U32 number);  ///< Of words that are numbers at heart.

  /// What optional values, lists, arrays and maps hold, and what sets are of.
  const Shape* element;
  /// Optional values (of one element at most), lists and arrays.
  std::size_t (*count)(const void* value);
  const void* (*at)(const void* value, std::size_t index);
  void* (*grow)(void* value);  ///< One more element at the end; not for arrays.
  /// Maps and sets; an element of a set is whether the number is in it.
  void (*forEach)(const void* value, const Element& visit);
  void (*insert)(void* value, const NewElement& element);

  std::span<const FieldShape> fields;
  const char* typeName;
  const char* noTextReason;              ///< Why the text form cannot be read; null when it can.
  bool (*isDefault)(const void* value);  ///< Of `nullable` ones.
  bool scalar, bareText, inlined;        ///< See Value.h.

  /// Whether this is the shape of T.
  template <class T>
  bool is() const;
  /// Whether this is a value type with a form for all its fields together.
  bool structured() const { return kind == Kind::record && !scalar; }
  /// Whether all of it has a text form, and one that can be read.
  constexpr bool hasText() const;
  constexpr bool readsText() const;
};

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

/// The members of an aggregate lie one behind the other, as far apart as their alignment asks.
template <class... Fields>
constexpr std::array<FieldShape, sizeof...(Fields)> fieldShapes(FieldList<Fields...>) {
  U32 end = 0;
  const auto place = [&](std::size_t size, std::size_t alignment) {
    const auto offset = static_cast<U32>((end + alignment - 1) / alignment * alignment);
    end = offset + static_cast<U32>(size);
    return offset;
  };
  return {FieldShape{Fields::name, &Orb::shapeOf<typename Fields::Type>,
                     place(sizeof(Fields), alignof(Fields)), Fields::usedBits}...};
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

constexpr bool Shape::hasText() const {
  if (kind == Kind::array) return element->hasText();
  if (kind != Kind::record) return append != nullptr;
  for (const FieldShape& field : fields) {
    if (!field.shape->hasText()) return false;
  }
  return true;
}

constexpr bool Shape::readsText() const {
  if (kind == Kind::array) return element->readsText();
  if (kind != Kind::record) return parse != nullptr;
  if (noTextReason) return true;
  for (const FieldShape& field : fields) {
    if (!field.shape->readsText()) return false;
  }
  return true;
}

/// The text forms of all kinds.
VELA_EXPORT void appendText(TextSink& sink, const Shape& shape, const void* value);
VELA_EXPORT void parseText(TextCursor& cursor, const Shape& shape, void* value);

/// A value of some type, named by its shape; or none. Belongs to others.
struct AnyRef {
  const Shape* shape = nullptr;
  const void* value = nullptr;

  AnyRef() = default;
  AnyRef(const Shape& itsShape, const void* itsValue) : shape(&itsShape), value(itsValue) {}
  template <class T>
  requires Value<T> || IsRanged<T> AnyRef(const T& it) : AnyRef(shapeOf<T>, &it) {}
  explicit operator bool() const { return shape != nullptr; }
  /// The value, which must be a T.
  template <class T>
  const T& as() const {
    return *static_cast<const T*>(value);
  }
};

/// The same with a value of its own.
class AnyValue {
 public:
  AnyValue() = default;
  /// A default value.
  explicit AnyValue(const Shape& shape) : shape_(&shape), value_(shape.make(), shape.destroy) {}
  template <class T>
  static AnyValue of(const T& value) {
    AnyValue copy(shapeOf<T>);
    *static_cast<T*>(copy.value()) = value;
    return copy;
  }

  explicit operator bool() const { return shape_ != nullptr; }
  const Shape& shape() const { return *shape_; }
  void* value() { return value_.get(); }
  operator AnyRef() const { return shape_ ? AnyRef(*shape_, value_.get()) : AnyRef(); }
  template <class T>
  const T& as() const {
    return *static_cast<const T*>(value_.get());
  }

 private:
  const Shape* shape_ = nullptr;
  std::unique_ptr<void, void (*)(void*)> value_{nullptr, nullptr};
};

}  // namespace Orb
