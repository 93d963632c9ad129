#include "Orb/Shape.h"

#include "Orb/Range.h"

namespace Orb {
namespace {

constexpr std::string_view recordBegin = "Value('";
constexpr std::string_view fieldsBegin = "', ** {";
constexpr std::string_view fieldBegin = "'", nextField = ", '", fieldEnd = "': ";
constexpr std::string_view recordEnd = "})";

void appendRecord(TextSink& sink, const Shape& shape, const void* value) {
  sink.append(recordBegin);
  sink.append(shape.typeName);
  sink.append(fieldsBegin);
  std::string_view separator = fieldBegin;
  for (const FieldShape& field : shape.fields) {
    sink.append(separator);
    sink.append(field.name);
    sink.append(fieldEnd);
    appendText(sink, *field.shape, field.in(value));
    separator = nextField;
  }
  sink.append(recordEnd);
}

void parseField(TextCursor& cursor, const FieldShape& field, void* value) {
  try {
    parseText(cursor, *field.shape, field.in(value));
  } catch (const RangeException& error) {
    throw RangeException(std::string(field.name), error);
  }
}

void parseRecord(TextCursor& cursor, const Shape& shape, void* value) {
  cursor.expect(recordBegin);
  cursor.expect(shape.typeName);
  cursor.expect(fieldsBegin);
  std::string_view separator = fieldBegin;
  for (const FieldShape& field : shape.fields) {
    cursor.expect(separator);
    cursor.expect(field.name);
    cursor.expect(fieldEnd);
    parseField(cursor, field, value);
    separator = nextField;
  }
  cursor.expect(recordEnd);
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

}  // namespace Orb
