#include "Ipnet/IpPrefix.h"

namespace Ipnet {
namespace {

U32 maskOf(U8 len) { return len == 0 ? 0 : ~U32{0} << (32 - len); }

}  // namespace

IpPrefix::IpPrefix(IpAddr address, U8 len) : len_(len) {
  if (len > 32) throw Orb::TextException(Orb::text("prefix length ", len, " is above 32"));
  address_ = IpAddr(address.number() & maskOf(len));
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
