#include "Bridging/EthAddr.h"

#include <charconv>

namespace Bridging {

void appendText(Orb::TextSink& sink, EthAddr address) {
  for (int shift = 40; shift >= 0; shift -= 8) {
    Orb::appendText(sink, Orb::Hex{address.number() >> shift & 0xff, 2});
    if (shift > 0) sink.append(":");
  }
}

void parseText(Orb::TextCursor& cursor, EthAddr& address) {
  const std::string word(cursor.word());
  const auto refuse = [&] {
    throw Orb::TextException("\"" + word + "\" is not an Ethernet address");
  };
  constexpr std::size_t length = 17;
  if (word.size() != length) refuse();
  U64 number = 0;
  for (std::size_t at = 0; at < length; at += 3) {
    if (at > 0 && word[at - 1] != ':') refuse();
    U8 octet = 0;
    const char* const end = word.data() + at + 2;
    const auto [next, error] = std::from_chars(word.data() + at, end, octet, 16);
    if (error != std::errc{} || next != end) refuse();
    number = number << 8 | octet;
  }
  address = EthAddr(number);
}

}  // namespace Bridging
