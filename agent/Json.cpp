#include "agent/Json.h"

#include <algorithm>

#include "VelaSwitch/Profile.h"
#include "VelaSwitch/Types.h"
#include "agent/Limits.h"

namespace VelaAgent {

using Orb::AnyRef;
using Orb::FieldShape;
using Orb::Kind;
using Orb::Shape;

std::string quoted(const Json& json) {
  return quoted(json.dump(-1, ' ', false, Json::error_handler_t::replace));
}

namespace {

/// Where a byte is, which counts from 1: the column, and of several lines which.
std::string placeText(const std::string& text, std::size_t byte) {
  // What ends too early does so behind its last word.
  const std::size_t end = text.find_last_not_of(" \t\r\n") + 1;
  if (end == 0) return "it is empty";
  const std::size_t at = std::min(byte - 1, end);
  const std::size_t begin = at == 0 ? 0 : text.rfind('\n', at - 1) + 1;
  const std::string line = text.substr(begin, text.find('\n', begin) - begin);
  std::string place = Orb::text("column ", at - begin + 1, " of ", quoted(line));
  if (text.find('\n') >= end) return place;
  return Orb::text("line ", 1 + std::count(text.data(), text.data() + begin, '\n'), ", ", place);
}

}  // namespace

Json jsonFromText(const std::string& text) {
  // Values are read, written and compared by recursion.
  constexpr int deepest = 100;
  int depth = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') inString = !inString;
    if (inString && c == '\\') ++i;
    if (inString) continue;
    if (c == '[' || c == '{') ++depth;
    if (c == ']' || c == '}') --depth;
    if (depth > deepest) throw InputException("it is nested too deep");
  }
  try {
    return Json::parse(text);
  } catch (const Json::parse_error& error) {
    throw InputException(placeText(text, error.byte));
  } catch (const Json::exception&) {
    throw InputException("a number is too large in " + quoted(text));
  }
}

U64 numberFromJson(const Json& json, U64 max) {
  if (json.is_string()) {
    const std::string& text = json.get_ref<const std::string&>();
    // What is too long for a message is no number either.
    const std::string shortText = quoted(text);
    Orb::TextCursor cursor(shortText);
    const U64 value = Orb::parseNumber(cursor, max);
    if (!cursor.rest().empty()) throw InputException(quoted(json) + " is not a number");
    return value;
  }
  if (!json.is_number_integer()) throw InputException("expected a number, not " + quoted(json));
  if (!json.is_number_unsigned() && json < 0) throw ValueException(quoted(json), "it is below 0");
  const U64 value = json.get<U64>();
  if (value > max) {
    throw ValueException(quoted(json), "allowed are 0 to " + std::to_string(max));
  }
  return value;
}

bool isVersion(const Shape& shape) {
  return shape.fields.size() == 2 && shape.fields[0].name == "major" &&
         shape.fields[1].name == "minor";
}

namespace {

void fieldsToJson(const Shape& shape, const void* value, Json::object_t& json) {
  for (const FieldShape& field : shape.fields) {
    if (field.shape->inlined) {
      fieldsToJson(*field.shape, field.in(value), json);
    } else {
      json.emplace_back(std::string(field.name), anyToJson({*field.shape, field.in(value)}));
    }
  }
}

Json recordToJson(const Shape& shape, const void* value) {
  if (isVersion(shape)) {
    Json json = Json::array();
    for (const FieldShape& field : shape.fields) {
      json.push_back(anyToJson({*field.shape, field.in(value)}));
    }
    return json;
  }
  if (shape.scalar) {
    const FieldShape& field = shape.fields.front();
    return anyToJson({*field.shape, field.in(value)});
  }
  if (shape.isDefault && shape.isDefault(value)) return nullptr;
  return structToJson({shape, value});
}

Json elementsToJson(const Shape& shape, const void* value) {
  Json json = Json::array();
  for (std::size_t i = 0; i < shape.count(value); ++i) {
    json.push_back(anyToJson({*shape.element, shape.at(value, i)}));
  }
  return json;
}

Json mapToJson(const Shape& shape, const void* value) {
  Json json = Json::object();
  shape.forEach(value, [&](U64 key, const void* element) {
    json[std::to_string(key)] = anyToJson({*shape.element, element});
  });
  return json;
}

Json setToJson(const Shape& shape, const void* value) {
  Json json = Json::array();
  shape.forEach(value, [&](U64 number, const void* in) {
    if (*static_cast<const bool*>(in)) json.push_back(number);
  });
  return json;
}

Json wordToJson(const Shape& shape, const void* value) {
  Orb::StringSink sink;
  shape.append(sink, value);
  return sink.take();
}

}  // namespace

Json structToJson(AnyRef value) {
  Json json = Json::object();
  fieldsToJson(*value.shape, value.value, json.get_ref<Json::object_t&>());
  return json;
}

Json anyToJson(AnyRef any) {
  constexpr unsigned maskDigits = 12;
  if (!any) return nullptr;
  const auto& [shape, value] = any;
  switch (shape->kind) {
    case Kind::flag:
      return shape->number(value) != 0;
    case Kind::number:
      return shape->number(value);
    case Kind::mask:
      return hexText(shape->number(value), maskDigits);
    case Kind::real:
    case Kind::seconds:
      return shape->real(value);
    case Kind::string:
    case Kind::word:
      return wordToJson(*shape, value);
    case Kind::optional:
      if (shape->count(value) == 0) return nullptr;
      return anyToJson({*shape->element, shape->at(value, 0)});
    case Kind::list:
    case Kind::array:
      return elementsToJson(*shape, value);
    case Kind::map:
      return mapToJson(*shape, value);
    case Kind::set:
      return setToJson(*shape, value);
    case Kind::record:
      return recordToJson(*shape, value);
  }
  return nullptr;
}

namespace {

[[noreturn]] void refuseFor(const Json& json, const char* expected) {
  throw InputException(std::string("expected ") + expected + ", not " + quoted(json));
}

void flagFromJson(const Json& json, const Shape& shape, void* value) {
  if (!json.is_boolean() && json != 0 && json != 1) refuseFor(json, "true or false");
  shape.numberIs(value, json.is_boolean() ? json.get<bool>() : json == 1);
}

void realFromJson(const Json& json, const Shape& shape, void* value) {
  if (!json.is_number()) refuseFor(json, shape.kind == Kind::seconds ? "seconds" : "a number");
  shape.realIs(value, json.get<double>());
}

/// A number that is within its type's bounds.
U64 boundedFromJson(const Json& json, const Shape& shape) {
  if (!shape.rangeText) return numberFromJson(json, shape.highest);
  // A negative number is below every range: let the type say so in its own words.
  const bool negative = json.is_number_integer() && !json.is_number_unsigned() && json < 0;
  const U64 number = negative ? ~U64{0} : numberFromJson(json, ~U64{0});
  if (number >= shape.lowest && number <= shape.highest) return number;
  throw ValueException(quoted(json), Orb::text("allowed are ", shape.lowest, " to ", shape.highest,
                                               " (", shape.rangeText, ")"));
}

/// Addresses and prefixes are texts; an address may also be a number.
void wordFromJson(const Json& json, const Shape& shape, void* value) {
  if (json.is_string() && !json.get_ref<const std::string&>().starts_with("0x")) {
    const std::string text = quoted(json.get_ref<const std::string&>());
    Orb::TextCursor cursor(text);
    shape.parse(cursor, value);
    return cursor.end();
  }
  if (!shape.wordOfNumber) refuseFor(json, "a text");
  shape.wordOfNumber(value, static_cast<U32>(numberFromJson(json, ~U32{0})));
}

void optionalFromJson(const Json& json, const Shape& shape, void* value) {
  shape.reset(value);
  if (!json.is_null()) anyFromJson(json, *shape.element, shape.grow(value));
}

void listFromJson(const Json& json, const Shape& shape, void* value) {
  if (!json.is_array()) refuseFor(json, "a list");
  shape.reset(value);
  for (const Json& element : json) anyFromJson(element, *shape.element, shape.grow(value));
}

void arrayFromJson(const Json& json, const Shape& shape, void* value) {
  const std::size_t count = shape.count(value);
  if (!json.is_array() || json.size() > count) {
    refuseFor(json, ("a list of at most " + std::to_string(count)).c_str());
  }
  shape.reset(value);
  for (std::size_t i = 0; i < json.size(); ++i) {
    anyFromJson(json[i], *shape.element, const_cast<void*>(shape.at(value, i)));
  }
}

void mapFromJson(const Json& json, const Shape& shape, void* value) {
  if (!json.is_object()) refuseFor(json, "{\"pipe\": value}");
  for (const auto& item : json.items()) {
    shape.insert(value, [&](void* element) {
      anyFromJson(item.value(), *shape.element, element);
      return numberFromJson(Json(item.key()), ~U64{0});
    });
  }
}

void setFromJson(const Json& json, const Shape& shape, void* value) {
  if (!json.is_array()) refuseFor(json, "a list of ports");
  shape.reset(value);
  for (const Json& element : json) {
    shape.insert(value, [&](void* number) {
      anyFromJson(element, *shape.element, number);
      return shape.element->number(number);
    });
  }
}

/// Reads what the object has of the fields; returns how many that is.
std::size_t fieldsFromJson(const Json::object_t& json, const Shape& shape, void* value) {
  std::size_t read = 0;
  for (const FieldShape& field : shape.fields) {
    if (field.shape->inlined) {
      read += fieldsFromJson(json, *field.shape, field.in(value));
      continue;
    }
    const auto at = std::find_if(json.begin(), json.end(),
                                 [&](const auto& m) { return m.first == field.name; });
    if (at == json.end()) continue;
    ++read;
    try {
      anyFromJson(at->second, *field.shape, field.in(value));
    } catch (const ValueException& error) {
      throw InputException(std::string(field.name) + " " + error.what());
    } catch (const std::exception& error) {
      throw InputException(std::string(field.name) + ": " + error.what());
    }
  }
  return read;
}

void addNames(const Shape& shape, std::vector<std::string>& names) {
  for (const FieldShape& field : shape.fields) {
    if (field.shape->inlined) {
      addNames(*field.shape, names);
    } else {
      names.emplace_back(field.name);
    }
  }
}

void structFromJson(const Json& json, const Shape& shape, void* value) {
  if (!json.is_object()) refuseFor(json, "an object");
  if (fieldsFromJson(json.get_ref<const Json::object_t&>(), shape, value) == json.size()) return;
  std::vector<std::string> known;
  addNames(shape, known);
  std::sort(known.begin(), known.end());
  for (const auto& [name, unused] : json.items()) {
    if (std::binary_search(known.begin(), known.end(), name)) continue;
    throw InputException("unknown field " + quoted(Json(name)) + suggestion(name, known));
  }
}

void scalarFromJson(const Json& json, const FieldShape& field, void* value) {
  try {
    anyFromJson(json, *field.shape, field.in(value));
  } catch (const ValueException& error) {
    throw InputException(std::string(field.name) + " " + error.what());
  }
}

void recordFromJson(const Json& json, const Shape& shape, void* value) {
  if (isVersion(shape)) {
    if (!json.is_array() || json.size() != 2) refuseFor(json, "[major, minor]");
    for (std::size_t i = 0; i < json.size(); ++i) {
      anyFromJson(json[i], *shape.fields[i].shape, shape.fields[i].in(value));
    }
  } else if (shape.scalar) {
    scalarFromJson(json, shape.fields.front(), value);
  } else if (shape.isDefault && json.is_null()) {
    shape.reset(value);
  } else {
    structFromJson(json, shape, value);
  }
}

}  // namespace

void anyFromJson(const Json& json, const Shape& shape, void* value) {
  switch (shape.kind) {
    case Kind::flag:
      return flagFromJson(json, shape, value);
    case Kind::number:
    case Kind::mask:
      return shape.numberIs(value, boundedFromJson(json, shape));
    case Kind::real:
    case Kind::seconds:
      return realFromJson(json, shape, value);
    case Kind::string:
      if (!json.is_string()) refuseFor(json, "a text");
      *static_cast<std::string*>(value) = json.get_ref<const std::string&>();
      return;
    case Kind::word:
      return wordFromJson(json, shape, value);
    case Kind::optional:
      return optionalFromJson(json, shape, value);
    case Kind::list:
      return listFromJson(json, shape, value);
    case Kind::array:
      return arrayFromJson(json, shape, value);
    case Kind::map:
      return mapFromJson(json, shape, value);
    case Kind::set:
      return setFromJson(json, shape, value);
    case Kind::record:
      return recordFromJson(json, shape, value);
  }
}

namespace {

/// Calls `refuse(number)` with a number; what is none is for others to complain of.
template <class Refuse>
void ifNumber(const Json& json, const Refuse& refuse) {
  U64 number = 0;
  try {
    number = numberFromJson(json, ~U64{0});
  } catch (const std::exception&) {
    return;
  }
  refuse(number);
}

void refuseAbsent(const FieldShape& field, const Json& json,
                  const VelaSwitch::ProfileInfo& profile) {
  const auto port = [&](U64 number) { refuseAbsentPort(field.name, number, profile); };
  if (field.name == "vrf") {
    ifNumber(json, [&](U64 number) { refuseAbsentVrf(field.name, number, profile); });
  } else if (field.shape->is<VelaSwitch::ChipPortId>()) {
    ifNumber(json, port);
  } else if (field.shape->kind == Kind::set) {
    for (const Json& each : json) ifNumber(each, port);
  } else if (field.shape->kind == Kind::map) {
    for (const auto& item : json.items()) {
      ifNumber(item.key(), [&](U64 number) { refuseAbsentPipe(field.name, number, profile); });
    }
  }
}

}  // namespace

void anyFromJson(const Json& json, const VelaSwitch::ProfileInfo& profile, const Shape& shape,
                 void* value) {
  for (const FieldShape& field : shape.fields) {
    if (shape.scalar) {
      refuseAbsent(field, json, profile);
    } else if (json.is_object() && json.contains(field.name)) {
      refuseAbsent(field, json[field.name], profile);
    }
  }
  anyFromJson(json, shape, value);
}

}  // namespace VelaAgent
