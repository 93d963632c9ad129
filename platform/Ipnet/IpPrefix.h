#pragma once

#include "Ipnet/IpAddr.h"

namespace Ipnet {

/// An IPv4 prefix; its text form is "a.b.c.d/len". Bits behind the length are always 0.
class VELA_EXPORT IpPrefix {
 public:
  constexpr IpPrefix() = default;
  /// Drops the address bits behind `len`, which must be at most 32 (TextException otherwise).
  constexpr IpPrefix(IpAddr address, U8 len) : len_(len) {
    if (len > 32) refuse(len);
    address_ = IpAddr(len == 0 ? 0 : address.number() & ~U32{0} << (32 - len));
  }

  constexpr IpAddr address() const { return address_; }  ///< Its bits behind the length are 0.
  constexpr U8 len() const { return len_; }              ///< 0 to 32.
  constexpr auto operator<=>(const IpPrefix&) const = default;

  friend U64 hashOf(const IpPrefix& prefix) {
    return Orb::hashMix(prefix.len_, prefix.address_.number());
  }
  friend VELA_EXPORT void appendText(Orb::TextSink& sink, const IpPrefix& prefix);
  /// Refuses an address with bits behind the length, which is more likely a slip than a wish.
  friend VELA_EXPORT void parseText(Orb::TextCursor& cursor, IpPrefix& prefix);

 private:
  [[noreturn]] static void refuse(U8 len);

  IpAddr address_;
  U8 len_ = 0;
};

}  // namespace Ipnet
