#pragma once

#include <compare>
#include <stdexcept>
#include <string>

#include "Orb/Hash.h"
#include "Orb/Text.h"
#include "Orb/Types.h"

namespace Orb {

/// A value outside its type's range. The text names the type and its bounds; where the value came
/// from a text or an event, the attribute's name stands in front.
class VELA_EXPORT RangeException : public std::runtime_error {
 public:
  /// With the type's `rangeText`.
  explicit RangeException(const char* rangeText) : runtime_error(rangeText) {}
  /// `attribute` is put in front of what the other says.
  RangeException(const std::string& attribute, const RangeException& cause)
      : runtime_error(attribute + ": " + cause.what()) {}
};

/// A number with bounds. `Self` derives from this and adds its named values, and `rangeText`, the
/// text of the exception that a value below `Min` or above `Max` meets. Most are declared by
/// VELA_RANGED.
template <class Self, class Representation, U64 Min, U64 Max, U64 Default = Min>
class Ranged {
 public:
  static constexpr bool isRanged = true;
  static constexpr U64 lowest = Min;   ///< The least value allowed.
  static constexpr U64 highest = Max;  ///< The greatest.

  constexpr Ranged() = default;
  /// Throws RangeException for a value out of bounds.
  constexpr explicit Ranged(U64 value) : value_(static_cast<Representation>(value)) {
    if (value < Min || value > Max) throw RangeException(Self::rangeText);
  }

  constexpr Representation value() const { return value_; }  ///< As a plain number.
  constexpr auto operator<=>(const Ranged&) const = default;

  friend constexpr Representation hashWord(const Self& ranged) { return ranged.value(); }
  friend void appendText(TextSink& sink, const Self& ranged) {
    Orb::appendText(sink, ranged.value());
  }
  friend void parseText(TextCursor& cursor, Self& ranged) {
    ranged = Self(parseNumber(cursor, ~U64{0}));
  }

 private:
  Representation value_ = Default;
};

template <class T>
concept IsRanged = T::isRanged;

}  // namespace Orb

/// The text of a range whose bounds are the named values `Low` and `High` of `Type`.
#define VELA_RANGE_TEXT(Type, Low, High) \
  Type "::value < " Type "::" Low " or > " Type "::" High " not allowed"

/// Declares the class `Name` of a number with bounds, in namespace `Space`: the named values
/// `Low` and `High` are the bounds, `standard` is the value that one has unless told.
#define VELA_RANGED(Space, Name, Representation, Low, low, High, high, standard)              \
  class Name : public ::Orb::Ranged<Name, Representation, low, high, standard> {              \
   public:                                                                                    \
    using Ranged::Ranged;                                                                     \
    static constexpr const char* rangeText = VELA_RANGE_TEXT(#Space "::" #Name, #Low, #High); \
    static constexpr Representation Low = low;                                                \
    static constexpr Representation High = high;                                              \
  }
