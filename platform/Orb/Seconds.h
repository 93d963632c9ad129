#pragma once

#include <compare>

#include "Orb/Text.h"

namespace Orb {

/// A point in time, in seconds since the agent's epoch; zero means never.
class Seconds {
 public:
  constexpr Seconds() = default;
  constexpr explicit Seconds(double value) : value_(value) {}  ///< Parts of a second count.

  constexpr double value() const { return value_; }  ///< As a plain number.
  constexpr auto operator<=>(const Seconds&) const = default;

  friend void appendText(TextSink& sink, Seconds time) { Orb::appendText(sink, time.value_); }
  friend void parseText(TextCursor& cursor, Seconds& time) { Orb::parseText(cursor, time.value_); }

 private:
  double value_ = 0;
};

}  // namespace Orb
