#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "Orb/FixedString.h"
#include "Orb/Value.h"
#include "VelaSwitch/Profile.h"
#include "VelaSwitchApi/RowLayout.h"

/// Rows described once. F, which describes some, has the handle `trace` and lists the fields, as a
/// constant
///
///   static constexpr RowField fields[] = {{"vlanId", 0, 12}, …, {"one", 145, 1, 1}};
///
/// or, where their places differ, as a function of what they depend on, with the same names in the
/// same order whatever that is, and lists the `shapes` in which the compiler is to check them, one
/// at least with the control word where it is in any:
///
///   static constexpr auto fields(const Shape& shape) {
///     return std::to_array<RowField>({{"portMask", 0, shape.ports}, …});
///   }
///
/// Where the fields in front of some bit have the same places in all shapes, F may say so, and the
/// compiler folds them:
///
///   static constexpr U32 sameBits = 128;
///
/// Fields are addressed by name, row.set<"parity">(1), and those that have the name of a field of a
/// value hold it; names are matched when F is compiled.
namespace VelaSwitchApi {

namespace detail {

template <class F>
concept ConstantRow = requires {
  F::fields[0];
};

/// The shapes in which rows of F are checked when it is compiled.
template <class F, class Shape>
consteval auto shapesOf() {
  if constexpr (requires { F::shapes; }) {
    return std::to_array(F::shapes);
  } else if constexpr (requires { Shape::usual(); }) {
    return Shape::usual();
  } else {
    return std::array{Shape{}};
  }
}

/// The bit below which fields have the same places in all rows of F.
template <class F>
consteval U32 sameBits() {
  if constexpr (ConstantRow<F>) {
    return ~U32{0};
  } else if constexpr (requires { F::sameBits; }) {
    return F::sameBits;
  } else {
    return 0;
  }
}

template <class F, class Fields, class Shape>
consteval auto fieldsByShape(Fields (*fields)(const Shape&)) {
  constexpr auto shapes = shapesOf<F, Shape>();
  std::array<Fields, shapes.size()> all{};
  for (std::size_t i = 0; i < shapes.size(); ++i) all[i] = fields(shapes[i]);
  return all;
}

/// The fields by number in each of those shapes.
template <class F>
consteval auto allFields() {
  if constexpr (ConstantRow<F>) {
    return std::to_array({std::to_array(F::fields)});
  } else {
    return fieldsByShape<F>(&F::fields);
  }
}

/// The fields in the first of them.
template <class F>
consteval auto someFields() {
  return allFields<F>()[0];
}

/// What RowWriter::setPlace() writes to rows of so many words, where the compiler knows it; else
/// without a mask.
template <class F>
consteval RowLayout::Control knownControl(U8 words) {
  if constexpr (ConstantRow<F>) return RowLayout::controlOf(F::fields, words);
  return {};
}

/// Its first word, where that is the same in all those shapes.
template <class F>
consteval std::optional<U8> knownControlWord(U8 words) {
  std::optional<U8> word;
  for (const auto& fields : allFields<F>()) {
    const RowLayout::Control control = RowLayout::controlOf(fields, words);
    if (control.mask == 0 || word.value_or(control.word) != control.word) return std::nullopt;
    word = control.word;
  }
  return word;
}

/// In which words entries have fields at places that are not the same in all rows.
template <class F, std::size_t words>
consteval std::array<bool, words> variableWords() {
  std::array<bool, words> variable{};
  for (const auto& fields : allFields<F>()) {
    for (const RowField& field : fields) {
      const std::string_view name = field.name;
      if (field.content != RowField::varies || name == "row" || name == "way") continue;
      for (std::size_t bit = std::max<std::size_t>(field.first, sameBits<F>());
           bit < std::min<std::size_t>(field.first + field.width, 32 * words); ++bit) {
        variable[bit / 32] = true;
      }
    }
  }
  return variable;
}

}  // namespace detail

/// The number of the field of the name in the row, or nothing.
template <class F>
constexpr std::optional<std::size_t> findField(std::string_view name) {
  const auto fields = detail::someFields<F>();
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (name == fields[i].name) return i;
  }
  return std::nullopt;
}

/// Whether the field of the number has the same place in all rows of F.
template <class F, std::size_t number>
constexpr bool samePlace = detail::someFields<F>()[number].first < detail::sameBits<F>();

/// The number of a field that must be there.
template <class F, Orb::FixedString Name>
consteval std::size_t fieldNumber() {
  constexpr auto number = findField<F>(Name.view());
  static_assert(number.has_value(), "the row has no field of this name");
  return number.value_or(0);
}

/// Whether a value type has a field of the name.
template <class V>
constexpr bool hasField(std::string_view name) {
  bool has = false;
  Orb::forEachField(V{}, [&](const auto& field) { has = has || field.name == name; });
  return has;
}

/// The layout of the rows.
template <class F, class... Shape>
RowLayout rowLayout(U8 words, const Shape&... shape) {
  if constexpr (detail::ConstantRow<F>) {
    return {{std::begin(F::fields), std::end(F::fields)}, words};
  } else {
    const auto fields = F::fields(shape...);
    constexpr auto usual = detail::someFields<F>();
    for (std::size_t i = 0; i < fields.size(); ++i) {
      const bool same = std::min(fields[i].first, usual[i].first) < detail::sameBits<F>();
      ORB_ASSERT(!same || (fields[i].first == usual[i].first && fields[i].width == usual[i].width));
    }
    return {{fields.begin(), fields.end()}, words};
  }
}

/// What the places of a row's fields may depend on.
struct RowShape {
  U32 ports = 48;
  bool cpu = false;    ///< The CPU's table, not a pipeline's.
  bool other = false;  ///< The second of a family's two formats: F::otherFormat(profile).
  U8 tableIdx = 0;     ///< Which instance of a hash family.

  /// Those in which rows are checked when a family is compiled, unless it lists its own.
  static constexpr auto usual() {
    constexpr U32 most = VelaSwitch::ProfileInfo::maxPorts;
    return std::to_array<RowShape>(
        {{}, {1}, {most}, {1, true}, {most, true}, {most, false, true}, {most, false, false, 1}});
  }
};

/// The shape of a family's rows in a profile, completed from what is known of the table.
template <class F>
RowShape rowShape(const VelaSwitch::ProfileInfo& profile, RowShape shape = {}) {
  shape.ports = profile.ports();
  if constexpr (requires { F::otherFormat(profile); }) shape.other = F::otherFormat(profile);
  return shape;
}

/// What of an entry is announced and shows in rows: the result, unless the family's entries hold
/// more.
template <class Family>
const auto& announced(const typename Family::Result& result) {
  if constexpr (requires { Family::announced(result); }) {
    return Family::announced(result);
  } else {
    return result;
  }
}

/// The part of a family's results that shows in rows.
template <class F>
using ShownOf = std::remove_cvref_t<decltype(announced<F>(std::declval<typename F::Result>()))>;

/// Writes the fields of a row.
template <class F>
class RowWriterOf : public RowWriter {
 public:
  RowWriterOf(const RowLayout& layout, void* image, const char* function)
      : RowWriter(layout, static_cast<U8*>(image), F::trace, function) {}
  /// The same where it is known whether it is `traced`.
  RowWriterOf(const RowLayout& layout, void* image, const char* function, bool traced)
      : RowWriter(layout, static_cast<U8*>(image), F::trace, function, traced) {}

  using RowWriter::set;
  template <Orb::FixedString Name>
  void set(U64 value) {
    setField<fieldNumber<F, Name>()>(value);
  }
  /// Where every row has the same places, the compiler knows them.
  template <std::size_t number>
  void setField(U64 value) {
    if constexpr (samePlace<F, number>) {
      static constexpr RowField field = detail::someFields<F>()[number];
      static constexpr RowLayout::Place at(field);
      static_assert(at.mask != 0, "a field of this width is not set at once");
      setAt(at, value);
      if (traced()) [[unlikely]]
        traceField(this->tracing(), field, value & at.mask);
    } else {
      set(number, value);
    }
  }
  using RowWriter::setParity;
  /// The same where the number of words is known.
  template <std::size_t count>
  void setParity() {
    if constexpr (constexpr auto number = fieldNumber<F, "parity">(); samePlace<F, number>) {
      static constexpr RowLayout::Place at(detail::someFields<F>()[number]);
      parityIs(at, folded(std::make_index_sequence<count>()));
    } else {
      setParity(count);
    }
  }
  /// Puts a row that was packed in words of its own into an image of as many, with its place. The
  /// compiler keeps words in registers; stored in parts as large as they are read, nobody who reads
  /// one has to wait until the stores of its pieces are done.
  template <std::size_t count>
  static void store(const std::array<U32, count>& words, const RowLayout& layout, U64 row, U64 way,
                    U8* image) {
    static constexpr RowLayout::Control known = detail::knownControl<F>(count);
    static constexpr auto knownWord = detail::knownControlWord<F>(count);
    static constexpr std::array<bool, count> variable = detail::variableWords<F, count>();
    const RowLayout::Control& control = known.mask != 0 ? known : layout.control();
    const std::size_t controlWord = knownWord.value_or(control.word);
    const auto word = [&words](std::size_t at) {
      U32 value = words[at];
      // At a place that the compiler does not know, it was written to memory by itself, and has to
      // be read so.
      if (variable[at]) asm("" : "+r"(value));
      return U64{value};
    };
    const auto two = [&](std::size_t at) {
      const U64 both = at + 1 < count ? word(at) | word(at + 1) << 32 : word(at);
      return at == controlWord ? control.in(both, row, way) : both;
    };
    std::size_t at = 0;
    if constexpr (count >= 4) {
      using Four [[gnu::vector_size(16)]] = U64;
      const Four four{two(0), two(2)};
      std::memcpy(image, &four, sizeof four);
      at = 4;
    }
    for (; at + 1 < count; at += 2) {
      const U64 both = two(at);
      std::memcpy(image + at * sizeof(U32), &both, sizeof both);
    }
    if (at < count) {
      const auto last = static_cast<U32>(two(at));
      std::memcpy(image + at * sizeof(U32), &last, sizeof last);
    }
    if (!knownWord && control.mask == 0) RowWriterOf(layout, image, "", false).setPlace(row, way);
  }
  /// Whether store() knows the places of the layout.
  template <std::size_t count>
  static bool stores(const RowLayout& layout) {
    constexpr auto known = detail::knownControlWord<F>(count);
    return !known || (layout.control().mask != 0 && layout.control().word == *known);
  }
  /// Writes the fields that have the names of the value's.
  template <class V>
  void setNamed(const V& value) {
    setNamedBut<"">(value);
  }
  template <Orb::FixedString Name, class V>
  void setNamedBut(const V& value) {
    Orb::forEachField(value, [&](const auto& field) {
      using Orb::hashWord;
      using Field = std::remove_cvref_t<decltype(field)>;
      constexpr auto number = findField<F>(Field::name);
      if constexpr (number && Field::name != Name.view()) setField<*number>(hashWord(field()));
    });
  }

 private:
  /// Not a loop, which would keep the words in memory.
  template <std::size_t... i>
  U32 folded(std::index_sequence<i...>) {
    return (this->words()[i] ^ ...);
  }
};

/// A value from its bits in a row. A type whose values are fewer than its bits has a version that
/// throws Orb::RangeException.
template <class T>
void fromRowBits(T& value, U64 bits) {
  using Orb::hashWord;
  if constexpr (Orb::IsRanged<T> || std::same_as<T, bool>) {
    value = T(bits);
  } else if constexpr (std::is_class_v<T> && sizeof(T) <= sizeof(U32)) {
    value = T(static_cast<U32>(bits));
  } else {
    value = T(static_cast<decltype(hashWord(value))>(bits));
  }
}

/// Reads the fields of a row.
template <class F>
class RowReaderOf : public RowReader {
 public:
  using RowReader::RowReader;

  using RowReader::flag;
  using RowReader::get;
  template <Orb::FixedString Name>
  U64 get() const {
    return get(fieldNumber<F, Name>());
  }
  template <Orb::FixedString Name>
  bool flag() const {
    return get<Name>() != 0;
  }
  /// Whether the bits of the first `words` words are even in number.
  bool paritySound(U8 words) const { return VelaSwitch::parityU32Array(this->words(), words) == 0; }
  /// Reads the fields that have the names of the value's.
  template <class V>
  void getNamed(V& value) const {
    Orb::forEachField(value, [&](auto& field) {
      constexpr auto number = findField<F>(std::remove_cvref_t<decltype(field)>::name);
      if constexpr (number) fromRowBits(field.value, get(*number));
    });
  }
};

}  // namespace VelaSwitchApi
