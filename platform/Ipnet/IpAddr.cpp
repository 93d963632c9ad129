#include "Ipnet/IpAddr.h"

#include <charconv>

namespace Ipnet {

void appendText(Orb::TextSink& sink, IpAddr address) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    Orb::appendText(sink, (address.number() >> shift) & 0xff);
    if (shift > 0) sink.append(".");
  }
}

void parseText(Orb::TextCursor& cursor, IpAddr& address) {
  const std::string word(cursor.word());
  const auto refuse = [&] { throw Orb::TextException("\"" + word + "\" is not an IPv4 address"); };
  U32 number = 0;
  const char* at = word.data();
  const char* const end = at + word.size();
  for (int octet = 0; octet < 4; ++octet) {
    if (octet > 0 && (at == end || *at++ != '.')) refuse();
    U8 value = 0;
    const auto [next, error] = std::from_chars(at, end, value);
    if (error != std::errc{} || next - at > 3) refuse();
    at = next;
    number = number << 8 | value;
  }
  if (at != end) refuse();
  address = IpAddr(number);
}

}  // namespace Ipnet
