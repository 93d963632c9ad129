#include "Orb/Text.h"

#include <algorithm>
#include <charconv>

namespace Orb {

void TextCursor::expect(std::string_view text) {
  if (skip(text)) return;
  throw TextException("expected \"" + std::string(text) + "\" before \"" + std::string(rest_) +
                      "\"");
}

bool TextCursor::skip(std::string_view text) {
  if (!rest_.starts_with(text)) return false;
  advance(text.size());
  return true;
}

std::string_view TextCursor::word() {
  const auto ends = [](char c) { return c == ',' || c == '}' || c == '\'' || c == ')'; };
  const auto end = std::find_if(rest_.begin(), rest_.end(), ends);
  const std::string_view word = rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
  advance(word.size());
  return word;
}

void TextCursor::end() const {
  if (!rest_.empty()) throw TextException("unexpected text \"" + std::string(rest_) + "\"");
}

namespace {

template <class T>
void appendDigits(TextSink& sink, T value) {
  char digits[32];
  const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  sink.append({digits, static_cast<std::size_t>(end - digits)});
}

}  // namespace

void appendText(TextSink& sink, double value) { appendDigits(sink, value); }
void appendNumber(TextSink& sink, U64 value) { appendDigits(sink, value); }
void appendNumber(TextSink& sink, std::int64_t value) { appendDigits(sink, value); }

void appendText(TextSink& sink, Hex number) {
  char digits[16];
  const auto end = std::to_chars(digits, digits + sizeof digits, number.value, 16).ptr;
  const auto count = static_cast<unsigned>(end - digits);
  for (unsigned i = count; i < number.width; ++i) sink.append("0");
  sink.append({digits, count});
}

void parseText(TextCursor& cursor, bool& value) {
  if (cursor.skip("true")) {
    value = true;
  } else {
    cursor.expect("false");
    value = false;
  }
}

void parseText(TextCursor& cursor, double& value) {
  const char* begin = cursor.rest().data();
  const auto [end, error] = std::from_chars(begin, begin + cursor.rest().size(), value);
  if (error != std::errc{}) {
    throw TextException("\"" + std::string(cursor.word()) + "\" is not a number");
  }
  cursor.advance(static_cast<std::size_t>(end - begin));
}

U64 parseNumber(TextCursor& cursor, U64 max) {
  const bool hex = cursor.skip("0x");
  const std::string_view digits = cursor.word();
  U64 value = 0;
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
  if (error == std::errc::result_out_of_range || (error == std::errc{} && value > max)) {
    throw TextException(text("\"", digits, "\" is above ", max));
  }
  if (error != std::errc{} || end != digits.data() + digits.size()) {
    throw TextException(text("\"", digits, "\" is not a number"));
  }
  return value;
}

void appendText(TextSink& sink, std::initializer_list<TextPart> parts) {
  for (const TextPart& part : parts) part.appendTo(sink);
}

std::string joined(std::initializer_list<TextPart> parts) {
  StringSink sink;
  appendText(sink, parts);
  return sink.take();
}

}  // namespace Orb
