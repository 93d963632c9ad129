#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Orb/Types.h"

/// What is said of inputs that are not what they should be.
namespace VelaAgent {

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

/// Text for a message, cut to what a line can take.
std::string quoted(const std::string& whole);

/// What a name was probably meant to be: " (did you mean …?)" with the nearest of the names, or
/// nothing when none is near.
std::string suggestion(std::string_view name, const std::vector<std::string>& names);

/// "0x" and at least `digits` hexadecimal digits.
std::string hexText(U64 value, unsigned digits);

}  // namespace VelaAgent
