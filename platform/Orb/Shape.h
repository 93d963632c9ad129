#pragma once

#include <functional>
#include <span>
#include <string_view>

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
  void* (*copy)(const void* value);
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

/// Puts a one, or what is nearest within bounds, into every number of a value, flags and words
/// among them. Collections and arrays of records stay as they are.
VELA_EXPORT void sampleIs(const Shape& shape, void* value);

}  // namespace Orb
