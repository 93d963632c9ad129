#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "Orb/Types.h"

namespace Orb {

/// A text that can be a template argument.
template <std::size_t N>
struct VELA_EXPORT FixedString {
  char chars[N]{};  ///< Ends in a 0.

  /// From a literal.
  consteval FixedString(const char (&text)[N]) { std::copy_n(text, N, chars); }
  constexpr std::string_view view() const { return {chars, N - 1}; }  ///< Without the 0.
};

}  // namespace Orb
