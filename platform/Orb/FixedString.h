#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

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

namespace detail {

template <template <char...> class Of, FixedString text, class Indexes>
struct OfCharacters;
template <template <char...> class Of, FixedString text, std::size_t... indexes>
struct OfCharacters<Of, text, std::index_sequence<indexes...>> {
  using Type = Of<text.chars[indexes]...>;
};

}  // namespace detail

/// The instance of a template for the characters of the text.
template <template <char...> class Of, FixedString text>
using OfCharacters =
    typename detail::OfCharacters<Of, text, std::make_index_sequence<text.view().size()>>::Type;

}  // namespace Orb
