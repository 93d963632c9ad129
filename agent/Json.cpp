#include "agent/Json.h"

namespace VelaAgent {

U64 numberFromJson(const Json& json, U64 max) {
  if (json.is_string()) {
    const std::string& text = json.get_ref<const std::string&>();
    Orb::TextCursor cursor(text);
    const U64 value = Orb::parseNumber(cursor, max);
    if (!cursor.rest().empty()) throw InputException("\"" + text + "\" is not a number");
    return value;
  }
  if (!json.is_number_integer()) throw InputException("expected a number, not " + json.dump());
  if (!json.is_number_unsigned() && json < 0) throw InputException(json.dump() + " is below 0");
  const U64 value = json.get<U64>();
  if (value > max) throw InputException(json.dump() + " is above " + std::to_string(max));
  return value;
}

std::string hexText(U64 value, unsigned digits) { return Orb::text("0x", Orb::Hex{value, digits}); }

}  // namespace VelaAgent
