#include "Orb/Shape.h"

#include "Orb/Range.h"

namespace Orb {
namespace {

constexpr std::string_view recordBegin = "Value('";
constexpr std::string_view fieldsBegin = "', ** {";
constexpr std::string_view fieldBegin = "'", nextField = ", '", fieldEnd = "': ";
constexpr std::string_view recordEnd = "})";

/// A record's text form, which is written and read alike: `mark(text)` for what it always has,
/// `each(field)` for its fields.
template <class Mark, class Each>
void walkRecord(const Shape& shape, const Mark& mark, const Each& each) {
  mark(recordBegin);
  mark(shape.typeName);
  mark(fieldsBegin);
  std::string_view separator = fieldBegin;
  for (const FieldShape& field : shape.fields) {
    mark(separator);
    mark(field.name);
    mark(fieldEnd);
    each(field);
    separator = nextField;
  }
  mark(recordEnd);
}

void appendRecord(TextSink& sink, const Shape& shape, const void* value) {
  walkRecord(
      shape, [&](std::string_view text) { sink.append(text); },
      [&](const FieldShape& field) { appendText(sink, *field.shape, field.in(value)); });
}

void parseField(TextCursor& cursor, const FieldShape& field, void* value) {
  try {
    parseText(cursor, *field.shape, field.in(value));
  } catch (const RangeException& error) {
    throw RangeException(std::string(field.name), error);
  }
}

void parseRecord(TextCursor& cursor, const Shape& shape, void* value) {
  walkRecord(
      shape, [&](std::string_view text) { cursor.expect(text); },
      [&](const FieldShape& field) { parseField(cursor, field, value); });
}

/// Calls `each` with the address of every element of an array.
template <class Each>
void withElements(const Shape& shape, const void* value, const Each& each) {
  for (std::size_t i = 0; i < shape.count(value); ++i) each(shape.at(value, i), i);
}

std::string_view elementBegin(std::size_t index) { return index == 0 ? "[" : ", "; }

}  // namespace

void appendText(TextSink& sink, const Shape& shape, const void* value) {
  if (shape.kind == Kind::record) {
    if (!shape.bareText) return appendRecord(sink, shape, value);
    const FieldShape& field = shape.fields.front();
    return appendText(sink, *field.shape, field.in(value));
  }
  if (shape.kind != Kind::array) return shape.append(sink, value);
  withElements(shape, value, [&](const void* element, std::size_t index) {
    sink.append(elementBegin(index));
    appendText(sink, *shape.element, element);
  });
  sink.append("]");
}

void parseText(TextCursor& cursor, const Shape& shape, void* value) {
  if (shape.kind == Kind::record) {
    if (shape.noTextReason) throw TextException(shape.noTextReason);
    if (!shape.bareText) return parseRecord(cursor, shape, value);
    return parseField(cursor, shape.fields.front(), value);
  }
  if (shape.kind != Kind::array) return shape.parse(cursor, value);
  withElements(shape, value, [&](const void* element, std::size_t index) {
    cursor.expect(elementBegin(index));
    parseText(cursor, *shape.element, const_cast<void*>(element));
  });
  cursor.expect("]");
}

void appendFields(TextSink& sink, const Shape& record, const void* value) {
  for (const FieldShape& field : record.fields) {
    if (&field != &record.fields.front()) sink.append(" ");
    sink.append(field.name);
    sink.append(":");
    appendText(sink, *field.shape, field.in(value));
  }
}

}  // namespace Orb
