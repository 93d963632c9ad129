#include "Orb/Address.h"

#include <charconv>

namespace Orb {

void appendAddress(TextSink& sink, U64 number, unsigned octets, const AddressForm& form) {
  for (unsigned octet = octets; octet-- > 0;) {
    const auto value = static_cast<U8>(number >> (8 * octet));
    if (form.base == 16) {
      appendText(sink, Hex{value, 2});
    } else {
      appendText(sink, value);
    }
    if (octet > 0) sink.append({&form.separator, 1});
  }
}

U64 parseAddress(TextCursor& cursor, unsigned octets, const AddressForm& form) {
  const std::string_view word = cursor.word();
  const auto refuse = [&] {
    throw TextException("\"" + std::string(word) + "\" is not " + form.name);
  };
  U64 number = 0;
  const char* at = word.data();
  const char* const end = at + word.size();
  for (unsigned octet = 0; octet < octets; ++octet) {
    if (octet > 0 && (at == end || *at++ != form.separator)) refuse();
    U8 value = 0;
    const auto [next, error] = std::from_chars(at, end, value, static_cast<int>(form.base));
    const auto digits = next - at;
    if (error != std::errc{} || digits > 3 || (form.base == 16 && digits != 2)) refuse();
    at = next;
    number = number << 8 | value;
  }
  if (at != end) refuse();
  return number;
}

}  // namespace Orb
