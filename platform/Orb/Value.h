#pragma once

#include "Orb/FieldList.h"
#include "Orb/Hash.h"
#include "Orb/PlainValue.h"
#include "Orb/ShapeOf.h"

/// Value types. A value type is an aggregate of Field members and names itself:
///
///   struct Flow {
///     static constexpr const char* typeName = "VelaSwitch::Flow";
///     Orb::Field<"source", Ipnet::IpAddr> source;
///     Orb::Field<"port", U16> port;
///     auto operator<=>(const Flow&) const = default;
///   };
///
/// The member list is the only list: equality and order compare it, hash walks it, and the type's
/// Shape has it as a table, which text form, reading from text and JSON walk. A type with one field
/// may add `static constexpr bool scalar = true`: its JSON is that field alone; and `bareText`: its
/// text form is. With `inlined`, a type's fields stand in JSON among those of the value that holds
/// it; with `nullable`, null stands for its default. A type that needs constructors of its own
/// derives from the aggregate of its fields, which it names `Fields`.
namespace Orb {

template <Value V>
U64 hashOf(const V& value);

/// The hash of all elements, in order.
template <class T, std::size_t count>
U64 hashOf(const std::array<T, count>& values) {
  U64 hash = hashSeed;
  for (const T& value : values) hash = hashMix(hash, hashOf(value));
  return hash;
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
template <PlainValue V>
[[gnu::always_inline]] inline U64 hashOf(const V& value) {
  const ValueWords<V> words = storedWords(value);
  U64 hash = hashSeed;
#pragma GCC unroll 8
  for (std::size_t i = 0; i < words.size(); i += 2) {
    hash = hashMix(hash, words[i], i + 1 < words.size() ? words[i + 1] : 0);
  }
  return hash;
}

/// A hash of all fields for those who want several that have nothing to do with each other.
template <Value V>
U32 seededHash(const V& value, U32 seed) {
  return static_cast<U32>(hashMix(hashMix(hashSeed, seed), hashOf(value)));
}

template <Value V>
void appendText(TextSink& sink, const V& value) {
  static_assert(shapeOf<V>.hasText(), "a field has no text form");
  appendText(sink, shapeOf<V>, &value);
}

/// "name:value" for each field, with blanks between them.
template <Value V>
std::string fieldsText(const V& value) {
  StringSink sink;
  appendFields(sink, shapeOf<V>, &value);
  return sink.take();
}

/// A fixed number of values: "[a, b, c]".
template <class T, std::size_t count>
void appendText(TextSink& sink, const std::array<T, count>& values) {
  appendText(sink, shapeOf<std::array<T, count>>, &values);
}

/// Reads the text form. A value out of range is reported with the name of its field in front. A
/// value type that holds a collection says in V::noTextReason why it cannot be read.
template <Value V>
void parseText(TextCursor& cursor, V& value) {
  static_assert(shapeOf<V>.readsText(), "a field cannot be read from text");
  parseText(cursor, shapeOf<V>, &value);
}

}  // namespace Orb
