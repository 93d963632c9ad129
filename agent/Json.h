#pragma once

#include <nlohmann/json.hpp>

#include "Orb/Any.h"
#include "agent/Input.h"
#include "agent/JsonForward.h"

namespace VelaSwitch {
class ProfileInfo;
}

/// JSON forms of values, made from their shapes. Reading refuses unknown fields and values out of
/// range, naming the field; a field that is missing keeps its default. The fields of a value type
/// marked `inlined` stand among those of the value that holds it; of one marked `nullable`, null is
/// the default.
namespace VelaAgent {

/// JSON from its text. Throws InputException for what is none, or is nested beyond all use.
Json jsonFromText(const std::string& text);

/// JSON for a message: as it was written, cut to what a line can take.
std::string quoted(const Json& json);

/// A number, or a text with a number ("0x" for hexadecimal), of at most `max`.
U64 numberFromJson(const Json& json, U64 max);

/// Whether values of the shape are versions, which are lists of their two numbers.
bool isVersion(const Orb::Shape& shape);

/// Null stands for no value.
Json anyToJson(Orb::AnyRef any);
/// The same, with the name of the field where there is only one.
Json structToJson(Orb::AnyRef value);
void anyFromJson(const Json& json, const Orb::Shape& shape, void* value);
/// A value that is meant for a switch: a port, pipe or VRF that it does not have is refused.
void anyFromJson(const Json& json, const VelaSwitch::ProfileInfo& profile, const Orb::Shape& shape,
                 void* value);

template <class T>
Json toJson(const T& value) {
  return anyToJson({Orb::shapeOf<T>, &value});
}

template <class T>
void fromJson(const Json& json, T& value) {
  anyFromJson(json, Orb::shapeOf<T>, &value);
}
template <class T>
T fromJson(const Json& json) {
  T value{};
  fromJson(json, value);
  return value;
}

}  // namespace VelaAgent
