#pragma once

#include "Orb/Hash.h"
#include "Orb/Text.h"

namespace Bridging {

/// An Ethernet address; its text form is "xx:xx:xx:xx:xx:xx".
class VELA_EXPORT EthAddr {
 public:
  constexpr EthAddr() = default;
  /// From a number of 48 bits, the octet that is sent first in bits 40 to 47.
  constexpr explicit EthAddr(U64 number) : number_(number & 0xFFFFFFFFFFFF) {}

  constexpr U64 number() const { return number_; }
  constexpr auto operator<=>(const EthAddr&) const = default;

  friend constexpr U64 hashWord(const EthAddr& address) { return address.number_; }
  friend VELA_EXPORT void appendText(Orb::TextSink& sink, EthAddr address);
  /// Throws Orb::TextException unless the text is six octets of two hexadecimal digits.
  friend VELA_EXPORT void parseText(Orb::TextCursor& cursor, EthAddr& address);

 private:
  U64 number_ = 0;
};

}  // namespace Bridging
