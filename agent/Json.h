#pragma once

#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>

#include "Orb/Seconds.h"
#include "Orb/Value.h"
#include "VelaSwitch/ChipPortMap.h"
#include "VelaSwitch/PipeMap.h"
#include "VelaSwitch/PortMask.h"
#include "VelaSwitchApi/SwTable.h"

/// JSON forms of value types, made from their field lists. Reading refuses unknown fields and
/// values out of range, naming the field; a field that is missing keeps its default. The fields of
/// a value type marked `inlined` stand among those of the value that holds it; of one marked
/// `nullable`, null is the default.
namespace VelaAgent {

using Json = nlohmann::ordered_json;

/// An input that is not what it should be; the text says why in one line.
class InputException : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// A value that its field cannot have: what it is, and why not.
class ValueException : public InputException {
 public:
  ValueException(const std::string& value, const std::string& why)
      : InputException(value + ": " + why) {}
};

/// JSON from its text. Throws InputException for what is none, or is nested beyond all use.
Json jsonFromText(const std::string& text);

/// Text for a message: JSON as it was written, cut to what a line can take.
std::string quoted(const Json& json);
std::string quoted(const std::string& text);

/// What a name was probably meant to be: " (did you mean …?)" with the nearest of the names, or
/// nothing when none is near.
std::string suggestion(std::string_view name, const std::vector<std::string>& names);

/// A number, or a text with a number ("0x" for hexadecimal), of at most `max`.
U64 numberFromJson(const Json& json, U64 max);
/// "0x" and at least `digits` hexadecimal digits.
std::string hexText(U64 value, unsigned digits);

template <class T>
Json toJson(const T& value);
template <class T>
void fromJson(const Json& json, T& value);

namespace detail {

template <class T>
inline constexpr bool isPipeMap = false;
template <class T>
inline constexpr bool isPipeMap<VelaSwitch::PipeMap<T>> = true;

template <class T>
inline constexpr bool isVector = false;
template <class T>
inline constexpr bool isVector<std::vector<T>> = true;

template <class T>
inline constexpr bool isArray = false;
template <class T, std::size_t count>
inline constexpr bool isArray<std::array<T, count>> = true;

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

template <class T>
concept Inlined = requires {
  T::inlined;
};
template <class T>
concept Nullable = requires {
  T::nullable;
};

template <class T>
concept Version = Orb::Value<T> && requires(T v) {
  v.major;
  v.minor;
};

template <class T>
void fieldsToJson(const T& value, Json& json) {
  Orb::forEachField(value, [&](const auto& field) {
    if constexpr (Inlined<std::remove_cvref_t<decltype(field())>>) {
      fieldsToJson(field(), json);
    } else {
      json[std::string(field.name)] = toJson(field());
    }
  });
}

template <class T>
Json structToJson(const T& value) {
  Json json = Json::object();
  fieldsToJson(value, json);
  return json;
}

template <class T>
void fieldsFromJson(const Json& json, T& value, std::set<std::string>& known) {
  Orb::forEachField(value, [&](auto& field) {
    if constexpr (Inlined<std::remove_cvref_t<decltype(field())>>) {
      return fieldsFromJson(json, field.value, known);
    }
    const std::string name(field.name);
    known.insert(name);
    const auto at = json.find(name);
    if (at == json.end()) return;
    try {
      fromJson(*at, field.value);
    } catch (const ValueException& error) {
      throw InputException(name + " " + error.what());
    } catch (const std::exception& error) {
      throw InputException(name + ": " + error.what());
    }
  });
}

template <class T>
T rangedFromJson(const Json& json) {
  // A negative number is below every range: let the type say so in its own words.
  const bool negative = json.is_number_integer() && !json.is_number_unsigned() && json < 0;
  const U64 number = negative ? ~U64{0} : numberFromJson(json, ~U64{0});
  try {
    return T(number);
  } catch (const Orb::RangeException& error) {
    throw ValueException(quoted(json), Orb::text("allowed are ", T::lowest, " to ", T::highest,
                                                 " (", error.what(), ")"));
  }
}

template <class T>
void structFromJson(const Json& json, T& value) {
  if (!json.is_object()) throw InputException("expected an object, not " + quoted(json));
  std::set<std::string> known;
  fieldsFromJson(json, value, known);
  for (const auto& [name, unused] : json.items()) {
    if (known.contains(name)) continue;
    throw InputException("unknown field " + quoted(Json(name)) +
                         suggestion(name, {known.begin(), known.end()}));
  }
}

template <class T>
void pipeMapFromJson(const Json& json, VelaSwitch::PipeMap<T>& map) {
  if (!json.is_object()) throw InputException("expected {\"pipe\": value}, not " + quoted(json));
  for (const auto& [pipe, entry] : json.items()) {
    T value{};
    fromJson(entry, value);
    map.is(VelaSwitch::PipeId(numberFromJson(Json(pipe), ~U64{0})), value);
  }
}

}  // namespace detail

template <class T>
Json toJson(const T& value) {
  if constexpr (std::same_as<T, bool> || std::same_as<T, std::string>) {
    return value;
  } else if constexpr (std::same_as<T, U64>) {
    return hexText(value, 12);
  } else if constexpr (std::floating_point<T>) {
    return value;
  } else if constexpr (std::integral<T>) {
    return value;
  } else if constexpr (std::same_as<T, VelaSwitch::IngressPortMask>) {
    return hexText(value.bits(), 12);
  } else if constexpr (std::same_as<T, Orb::Seconds>) {
    return value.value();
  } else if constexpr (Orb::IsRanged<T>) {
    return value.value();
  } else if constexpr (std::same_as<T, VelaSwitch::ChipPortMap>) {
    Json json = Json::array();
    value.forEach([&](VelaSwitch::ChipPortId port, bool member) {
      if (member) json.push_back(port.value());
    });
    return json;
  } else if constexpr (detail::isPipeMap<T>) {
    Json json = Json::object();
    value.forEach([&](VelaSwitch::PipeId pipe, const auto& entry) {
      json[std::to_string(pipe.value())] = toJson(entry);
    });
    return json;
  } else if constexpr (detail::isOptional<T>) {
    return value ? toJson(*value) : Json(nullptr);
  } else if constexpr (detail::isVector<T> || detail::isArray<T>) {
    Json json = Json::array();
    for (const auto& element : value) json.push_back(toJson(element));
    return json;
  } else if constexpr (detail::Version<T>) {
    return Json::array({value.major(), value.minor()});
  } else if constexpr (Orb::ScalarValue<T>) {
    Json json;
    Orb::forEachField(value, [&](const auto& field) { json = toJson(field()); });
    return json;
  } else if constexpr (Orb::Value<T>) {
    if constexpr (detail::Nullable<T>) {
      if (value == T{}) return nullptr;
    }
    return detail::structToJson(value);
  } else {
    return Orb::text(value);
  }
}

template <class T>
void fromJson(const Json& json, T& value) {
  if constexpr (std::same_as<T, bool>) {
    if (!json.is_boolean() && json != 0 && json != 1) {
      throw InputException("expected true or false, not " + quoted(json));
    }
    value = json.is_boolean() ? json.get<bool>() : json == 1;
  } else if constexpr (std::same_as<T, std::string>) {
    if (!json.is_string()) throw InputException("expected a text, not " + quoted(json));
    value = json.get<std::string>();
  } else if constexpr (std::floating_point<T>) {
    if (!json.is_number()) throw InputException("expected a number, not " + quoted(json));
    value = json.get<T>();
  } else if constexpr (std::integral<T>) {
    value = static_cast<T>(numberFromJson(json, static_cast<T>(~T{0})));
  } else if constexpr (std::same_as<T, VelaSwitch::IngressPortMask>) {
    value = VelaSwitch::IngressPortMask(numberFromJson(json, ~U64{0}));
  } else if constexpr (std::same_as<T, Orb::Seconds>) {
    if (!json.is_number()) throw InputException("expected seconds, not " + quoted(json));
    value = Orb::Seconds(json.get<double>());
  } else if constexpr (Orb::IsRanged<T>) {
    value = detail::rangedFromJson<T>(json);
  } else if constexpr (std::same_as<T, VelaSwitch::ChipPortMap>) {
    if (!json.is_array()) throw InputException("expected a list of ports, not " + quoted(json));
    value = {};
    for (const Json& port : json) {
      VelaSwitch::ChipPortId id;
      fromJson(port, id);
      value.is(id, true);
    }
  } else if constexpr (detail::isPipeMap<T>) {
    detail::pipeMapFromJson(json, value);
  } else if constexpr (detail::isOptional<T>) {
    value.reset();
    if (!json.is_null()) fromJson(json, value.emplace());
  } else if constexpr (detail::isVector<T>) {
    if (!json.is_array()) throw InputException("expected a list, not " + quoted(json));
    value.clear();
    for (const Json& element : json) fromJson(element, value.emplace_back());
  } else if constexpr (detail::isArray<T>) {
    if (!json.is_array() || json.size() > value.size()) {
      throw InputException("expected a list of at most " + std::to_string(value.size()) + ", not " +
                           quoted(json));
    }
    value = T{};
    for (std::size_t i = 0; i < json.size(); ++i) fromJson(json[i], value[i]);

  } else if constexpr (detail::Version<T>) {
    if (!json.is_array() || json.size() != 2) {
      throw InputException("expected [major, minor], not " + quoted(json));
    }
    fromJson(json[0], value.major.value);
    fromJson(json[1], value.minor.value);
  } else if constexpr (Orb::ScalarValue<T>) {
    Orb::forEachField(value, [&](auto& field) {
      try {
        fromJson(json, field.value);
      } catch (const ValueException& error) {
        throw InputException(std::string(field.name) + " " + error.what());
      }
    });
  } else if constexpr (Orb::Value<T>) {
    if constexpr (detail::Nullable<T>) {
      if (json.is_null()) {
        value = T{};
        return;
      }
    }
    detail::structFromJson(json, value);
  } else {
    // Addresses and prefixes are texts; an address may also be a number.
    if (json.is_string() && !json.get_ref<const std::string&>().starts_with("0x")) {
      value = Orb::fromText<T>(quoted(json.get_ref<const std::string&>()));
    } else if constexpr (std::constructible_from<T, U32>) {
      value = T(static_cast<U32>(numberFromJson(json, ~U32{0})));
    } else {
      throw InputException("expected a text, not " + quoted(json));
    }
  }
}

template <class T>
T fromJson(const Json& json) {
  T value{};
  fromJson(json, value);
  return value;
}

}  // namespace VelaAgent
