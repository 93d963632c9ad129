#include "agent/JsonText.h"

#include <charconv>

#include "agent/Json.h"

namespace VelaAgent {

using Orb::AnyRef;
using Orb::FieldShape;
using Orb::Kind;
using Orb::Shape;

void appendPart(std::string& line, U64 number) {
  char digits[20];
  line.append(digits, std::to_chars(digits, std::end(digits), number).ptr);
}

void appendPart(std::string& line, Quoted string) {
  bool plain = true;
  for (const char c : string.text) plain &= c >= ' ' && c < 0x7f && c != '"' && c != '\\';
  if (plain) {
    line += '"';
    line += string.text;
    line += '"';
  } else {
    line += Json(string.text).dump();
  }
}

void appendPart(std::string& line, Orb::Hex number) {
  char digits[16];
  const char* end = std::to_chars(digits, std::end(digits), number.value, 16).ptr;
  const auto count = static_cast<std::size_t>(end - digits);
  line += "\"0x";
  if (count < number.width) line.append(number.width - count, '0');
  line.append(digits, count).append("\"");
}

void appendCompact(std::string& line, std::string_view json) {
  const auto isSpace = [](char c) { return static_cast<U8>(c) <= ' '; };
  // Mostly there is none, even in strings; a loop over all of it becomes vectors.
  bool some = false;
  for (const char c : json) some |= isSpace(c);
  if (!some) {
    line += json;
    return;
  }
  bool inString = false;
  for (std::size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (c == '"') inString = !inString;
    if (inString && c == '\\') line += json[i++];
    if (inString || !isSpace(c)) line += json[i];
  }
}

namespace {

/// Words are short; one that is not goes by way of a document.
void appendWord(std::string& line, const Shape& shape, const void* value) {
  char text[64];
  Orb::FixedSink sink(text, sizeof text);
  shape.append(sink, value);
  if (sink.used() == sizeof text) {
    line += anyToJson({shape, value}).dump();
  } else {
    appendPart(line, Quoted{{text, sink.used()}});
  }
}

void appendFields(std::string& line, const Shape& shape, const void* value,
                  std::string_view without, const char*& separator) {
  for (const FieldShape& field : shape.fields) {
    if (field.shape->inlined) {
      appendFields(line, *field.shape, field.in(value), without, separator);
    } else if (field.name != without) {
      append(line, separator, Quoted{field.name}, ":");
      appendJson(line, {*field.shape, field.in(value)});
      separator = ",";
    }
  }
}

}  // namespace

void appendJson(std::string& line, AnyRef any, std::string_view without) {
  const auto [shape, value] = any;
  const bool object = shape && shape->structured() && !isVersion(*shape) &&
                      !(shape->isDefault && shape->isDefault(value));
  if (object) {
    const char* separator = "{";
    appendFields(line, *shape, value, without, separator);
    line += '}';
  } else if (shape && shape->kind == Kind::record && shape->scalar) {
    const FieldShape& field = shape->fields.front();
    appendJson(line, {*field.shape, field.in(value)});
  } else if (shape && shape->kind == Kind::flag) {
    line += shape->number(value) != 0 ? "true" : "false";
  } else if (shape && shape->kind == Kind::number) {
    appendPart(line, shape->number(value));
  } else if (shape && shape->kind == Kind::word) {
    appendWord(line, *shape, value);
  } else {
    line += anyToJson(any).dump();
  }
}

}  // namespace VelaAgent
