#include "Ipnet/IpPrefix.h"

namespace Ipnet {

void IpPrefix::refuse(U8 len) {
  throw Orb::TextException(Orb::text("prefix length ", len, " is above 32"));
}

void appendText(Orb::TextSink& sink, const IpPrefix& prefix) {
  appendText(sink, prefix.address());
  sink.append("/");
  Orb::appendText(sink, prefix.len());
}

void parseText(Orb::TextCursor& cursor, IpPrefix& prefix) {
  const std::string_view word = cursor.word();
  const std::size_t slash = word.find('/');
  if (slash == std::string_view::npos) {
    throw Orb::TextException("\"" + std::string(word) + "\" is not an IPv4 prefix");
  }
  const auto address = Orb::fromText<IpAddr>(word.substr(0, slash));
  prefix = IpPrefix(address, Orb::fromText<U8>(word.substr(slash + 1)));
  if (prefix.address() != address) {
    throw Orb::TextException("\"" + std::string(word) + "\" has address bits behind its length");
  }
}

}  // namespace Ipnet
