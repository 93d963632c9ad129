#pragma once

#include <string>
#include <string_view>

#include "Orb/Any.h"

/// JSON that is written part by part and not by way of a document, for lines of which there are as
/// many as there are events or entries. What comes of it is what Json::dump() makes.
namespace VelaAgent {

/// A text that becomes a JSON string.
struct Quoted {
  std::string_view text;
};

// Parts: JSON as it is, and what becomes JSON.
inline void appendPart(std::string& line, std::string_view json) { line += json; }
void appendPart(std::string& line, U64 number);
void appendPart(std::string& line, Quoted string);
/// A number as hexText() has it, as a JSON string.
void appendPart(std::string& line, Orb::Hex number);

template <class... Parts>
void append(std::string& line, const Parts&... parts) {
  (appendPart(line, parts), ...);
}

/// JSON without the space between its parts.
void appendCompact(std::string& line, std::string_view json);

/// A value as anyToJson() has it, without one of its fields where that is named.
void appendJson(std::string& line, Orb::AnyRef any, std::string_view without = {});

}  // namespace VelaAgent
