#pragma once

#include <algorithm>
#include <functional>

#include "VelaSwitch/Profile.h"
#include "agent/Json.h"

/// What a switch has no room for in the values that it is told. Numbers and port masks that are too
/// big are cut, which is worth a warning; a single port, pipe or VRF that is not there is refused,
/// since there is nothing that it could be cut to.
namespace VelaAgent {

/// How many bits hardware has for a field of the name, which may be a mask of ports; 64 where
/// nothing but the field's type says.
using FieldBits = std::function<unsigned(std::string_view field, bool portMask)>;

/// Throws InputException unless `number` is below `count`: "vrf 9: this switch has VRFs 0 to 7".
void refuseBeyond(std::string_view field, U64 number, U64 count, const char* things);
void refuseAbsentPort(std::string_view field, U64 port, const VelaSwitch::ProfileInfo& profile);
void refuseAbsentPipe(std::string_view field, U64 pipe, const VelaSwitch::ProfileInfo& profile);
void refuseAbsentVrf(std::string_view field, U64 vrf, const VelaSwitch::ProfileInfo& profile);

namespace detail {

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

template <class Content>
void refuseAbsent(std::string_view field, const Json& json,
                  const VelaSwitch::ProfileInfo& profile) {
  const auto port = [&](U64 number) { refuseAbsentPort(field, number, profile); };
  if (field == "vrf") {
    return ifNumber(json, [&](U64 number) { refuseAbsentVrf(field, number, profile); });
  }
  if constexpr (std::same_as<Content, VelaSwitch::ChipPortId>) {
    ifNumber(json, port);
  } else if constexpr (std::same_as<Content, VelaSwitch::ChipPortMap>) {
    for (const Json& each : json) ifNumber(each, port);
  } else if constexpr (isPipeMap<Content>) {
    for (const auto& [pipe, value] : json.items()) {
      ifNumber(pipe, [&](U64 number) { refuseAbsentPipe(field, number, profile); });
    }
  }
}

}  // namespace detail

/// A value that is meant for a switch: a port, pipe or VRF that it does not have is refused.
template <class T>
T fromJson(const Json& json, const VelaSwitch::ProfileInfo& profile) {
  if constexpr (Orb::Value<T>) {
    Orb::forEachField(T{}, [&](const auto& field) {
      using Content = std::remove_cvref_t<decltype(field())>;
      if constexpr (Orb::ScalarValue<T>) {
        detail::refuseAbsent<Content>(field.name, json, profile);
      } else if (const auto at = json.find(std::string(field.name)); at != json.end()) {
        detail::refuseAbsent<Content>(field.name, *at, profile);
      }
    });
  }
  return fromJson<T>(json);
}

namespace detail {

/// Masks are of ports, and read as hexadecimal.
template <class T>
inline constexpr bool isMask = std::same_as<T, U64> || std::same_as<T, VelaSwitch::IngressPortMask>;
template <class T>
concept Number = isMask<T> || std::unsigned_integral<T> || Orb::IsRanged<T>;

template <Number T>
U64 numberOf(const T& value) {
  if constexpr (std::same_as<T, VelaSwitch::IngressPortMask>) {
    return value.bits();
  } else if constexpr (Orb::IsRanged<T>) {
    return value.value();
  } else {
    return value;
  }
}

template <Number T>
void cutNumber(std::string_view name, const T& value, unsigned bits,
               std::vector<std::string>& cuts) {
  if (bits >= 64) return;
  const U64 number = numberOf(value);
  const U64 cut = number & ((U64{1} << bits) - 1);
  if (cut == number) return;
  // A number that stands for none is not cut: hardware has it in as many bits as there are.
  if constexpr (Orb::IsRanged<T>) {
    if (value == T{}) return;
  }
  const auto text = [](U64 n) { return isMask<T> ? hexText(n, 0) : std::to_string(n); };
  cuts.push_back(Orb::text(name, " ", text(number), " to ", text(cut)));
}

}  // namespace detail

/// Adds what hardware cuts of the value, such as "natRewriteId 5000 to 904", field by field.
template <class T>
void cutFields(const T& value, const FieldBits& bitsOf, std::vector<std::string>& cuts) {
  Orb::forEachField(value, [&](const auto& field) {
    using Field = std::remove_cvref_t<decltype(field)>;
    using Content = typename Field::Type;
    const auto bits = [&] {
      return std::min(Field::usedBits, bitsOf(Field::name, detail::isMask<Content>));
    };
    if constexpr (detail::isArray<Content>) {
      if constexpr (Orb::Value<typename Content::value_type>) {
        for (const auto& element : field()) cutFields(element, bitsOf, cuts);
      }
    } else if constexpr (Orb::Value<Content>) {
      cutFields(field(), bitsOf, cuts);
    } else if constexpr (detail::isPipeMap<Content>) {
      field().forEach([&](VelaSwitch::PipeId pipe, const auto& each) {
        detail::cutNumber(Orb::text(Field::name, "[", pipe, "]"), each, bits(), cuts);
      });
    } else if constexpr (detail::Number<Content>) {
      detail::cutNumber(Field::name, field(), bits(), cuts);
    }
  });
}

}  // namespace VelaAgent
