#pragma once

#include <compare>
#include <type_traits>

#include "Orb/Hash.h"
#include "Orb/Text.h"

namespace Orb {

/// The text form of an address: octets with a separator between them.
struct AddressForm {
  const char* name;  ///< What a text that is refused was not, such as "an IPv4 address".
  char separator;    ///< Between octets.
  unsigned base;     ///< 10, or 16 for two hexadecimal digits an octet.
};
/// Appends `octets` octets of the number, the highest first.
VELA_EXPORT void appendAddress(TextSink& sink, U64 number, unsigned octets,
                               const AddressForm& form);
/// Throws TextException for anything else.
VELA_EXPORT U64 parseAddress(TextCursor& cursor, unsigned octets, const AddressForm& form);

/// An address of so many octets, the one that is sent first the highest. `Self` derives from this
/// and has its AddressForm, `form`.
template <class Self, unsigned octets>
class Address {
 public:
  using Number = std::conditional_t<(octets > 4), U64, U32>;  ///< U32 up to 4 octets, U64 beyond.

  static constexpr unsigned bitCount = 8 * octets;  ///< Of its number.

  constexpr Address() = default;
  /// Bits above the address are cut.
  constexpr explicit Address(Number number)
      : number_(number & static_cast<Number>(~U64{0} >> (64 - 8 * octets))) {}

  constexpr Number number() const { return number_; }  ///< The first octet is the highest.
  constexpr auto operator<=>(const Address&) const = default;

  friend constexpr Number hashWord(const Self& address) { return address.number(); }
  friend void appendText(TextSink& sink, const Self& address) {
    appendAddress(sink, address.number(), octets, Self::form);
  }
  friend void parseText(TextCursor& cursor, Self& address) {
    address = Self(static_cast<Number>(parseAddress(cursor, octets, Self::form)));
  }

 private:
  Number number_ = 0;
};

}  // namespace Orb
