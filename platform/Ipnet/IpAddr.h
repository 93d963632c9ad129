#pragma once

#include <compare>

#include "Orb/Hash.h"
#include "Orb/Text.h"

namespace Ipnet {

/// An IPv4 address; its text form is "a.b.c.d".
class VELA_EXPORT IpAddr {
 public:
  constexpr IpAddr() = default;
  /// From a number in host order, the first octet in bits 24 to 31.
  constexpr explicit IpAddr(U32 number) : number_(number) {}

  constexpr U32 number() const { return number_; }
  constexpr auto operator<=>(const IpAddr&) const = default;

  friend constexpr U32 hashWord(const IpAddr& address) { return address.number_; }
  friend VELA_EXPORT void appendText(Orb::TextSink& sink, IpAddr address);
  /// Throws Orb::TextException unless the text is four decimal octets.
  friend VELA_EXPORT void parseText(Orb::TextCursor& cursor, IpAddr& address);

 private:
  U32 number_ = 0;
};

}  // namespace Ipnet
