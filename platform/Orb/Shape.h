#pragma once

#include <functional>
#include <span>
#include <string_view>

#include "Orb/Text.h"

/// What values are made of, as data: a table of fields for each value type, made from its field
/// list at compile time. Whoever turns values into something else (text, JSON, another language)
/// walks these tables and is compiled once, not for each type.
namespace Orb {

/// What can be done with a value.
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
  std::string_view name;  ///< As in texts and JSON.
  const Shape* shape;     ///< Of what the field holds.
  U32 offset;             ///< Bytes from the beginning of the value.
  unsigned usedBits;      ///< As the field says.

  /// The field of a value.
  const void* in(const void* value) const { return static_cast<const char*>(value) + offset; }
  /// Likewise, to be changed.
  void* in(void* value) const { return static_cast<char*>(value) + offset; }
};

/// How values of a type are read and written where only their address is known. What a kind has no
/// use for is null.
struct Shape {
  /// Hears of an element; keys of sets and maps are numbers.
  using Element = std::function<void(U64 key, const void* value)>;
  /// Fills in a value and returns its key.
  using NewElement = std::function<U64(void* value)>;

  Kind kind;  ///< Decides which of the others are of use.

  void* (*make)();                   ///< A default value on the heap.
  void* (*copy)(const void* value);  ///< A copy on the heap.
  void (*destroy)(void* value);      ///< Of what make() or copy() gave.
  void (*reset)(void* value);        ///< Back to the default.

  /// Flags, numbers and masks. A number out of bounds must not be written.
  U64 (*number)(const void* value);
  void (*numberIs)(void* value, U64 number);  ///< Within `lowest` and `highest`.
  ///@{ Bounds of a number, both included.
  U64 lowest, highest;
  ///@}
  U64 none;               ///< The default, which may stand for none.
  const char* rangeText;  ///< The complaint of a number with bounds; null for others.

  double (*real)(const void* value);         ///< Floating-point numbers and times.
  void (*realIs)(void* value, double real);  ///< Cut to the type's precision.

  /// The text form, and reading it; of words and of all else but arrays and records.
  void (*append)(TextSink& sink, const void* value);
  void (*parse)(TextCursor& cursor, void* value);  ///< Throws TextException or RangeException.
  void (*wordOfNumber)(void* value, U32 number);   ///< Of words that are numbers at heart.

  /// What optional values, lists, arrays and maps hold, and what sets are of.
  const Shape* element;
  /// Optional values (of one element at most), lists and arrays.
  std::size_t (*count)(const void* value);
  /// The element of the number, which is below the count.
  const void* (*at)(const void* value, std::size_t index);
  void* (*grow)(void* value);  ///< One more element at the end; not for arrays.
  /// Maps and sets; an element of a set is whether the number is in it.
  void (*forEach)(const void* value, const Element& visit);
  /// Adds an element; one of the same key is replaced.
  void (*insert)(void* value, const NewElement& element);

  std::span<const FieldShape> fields;    ///< Of records, in the order of declaration.
  const char* typeName;                  ///< Of records, with its namespace.
  const char* noTextReason;              ///< Why the text form cannot be read; null when it can.
  bool (*isDefault)(const void* value);  ///< Of `nullable` ones.
  ///@{ See Value.h.
  bool scalar, bareText, inlined;
  ///@}

  /// Whether this is the shape of T.
  template <class T>
  bool is() const;
  /// Whether this is a value type with a form for all its fields together.
  bool structured() const { return kind == Kind::record && !scalar; }
  /// Whether all of it has a text form, and one that can be read.
  constexpr bool hasText() const;
  constexpr bool readsText() const;  ///< And one that can be read.
};

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
/// "name:value" for each field of a record, with blanks between them.
VELA_EXPORT void appendFields(TextSink& sink, const Shape& record, const void* value);

}  // namespace Orb
