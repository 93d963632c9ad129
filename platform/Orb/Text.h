#pragma once

#include <concepts>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Orb/Types.h"

/// Text forms. A type takes part by an overload of appendText(TextSink&, const T&), and of
/// parseText(TextCursor&, T&) when it can be read back.
namespace Orb {

/// Where text goes. Two kinds exist: one that grows a string, and one that fills a fixed buffer
/// and never allocates.
class VELA_EXPORT TextSink {
 public:
  /// Takes a piece of text, which stays the caller's.
  virtual void append(std::string_view text) = 0;

 protected:
  ~TextSink() = default;
};

/// Grows a string.
class VELA_EXPORT StringSink final : public TextSink {
 public:
  void append(std::string_view text) override { string_.append(text); }  ///< Never cuts anything.
  std::string take() { return std::move(string_); }  ///< What was appended; the sink begins anew.

 private:
  std::string string_;
};

/// Fills `size` characters and drops what does not fit.
class VELA_EXPORT FixedSink final : public TextSink {
 public:
  /// No 0 is written behind the text.
  FixedSink(char* buffer, std::size_t size) : buffer_(buffer), size_(size) {}
  /// Takes as much as there is room for.
  void append(std::string_view text) override {
    used_ += text.copy(buffer_ + used_, size_ - used_);
  }
  std::size_t used() const { return used_; }  ///< Characters that were taken.

 private:
  char* buffer_;
  std::size_t size_;
  std::size_t used_ = 0;
};

/// A text that could not be read.
class VELA_EXPORT TextException : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// A position in a text that is being read.
class VELA_EXPORT TextCursor {
 public:
  /// Stands at the beginning; the text must stay.
  explicit TextCursor(std::string_view text) : rest_(text) {}

  std::string_view rest() const { return rest_; }  ///< What is still to be read.
  /// At most as many as there are.
  void advance(std::size_t count) { rest_.remove_prefix(count); }
  /// Steps over `text`, or throws TextException.
  void expect(std::string_view text);
  /// Steps over `text` and says whether it was there.
  bool skip(std::string_view text);
  /// Everything up to the next of the structural characters ",}')".
  std::string_view word();
  /// Throws TextException unless everything was read.
  void end() const;

 private:
  std::string_view rest_;
};

inline void appendText(TextSink& sink, std::string_view text) { sink.append(text); }
inline void appendText(TextSink& sink, const char* text) { sink.append(text); }
inline void appendText(TextSink& sink, bool value) { sink.append(value ? "true" : "false"); }
VELA_EXPORT void appendText(TextSink& sink, double value);
inline void appendText(TextSink& sink, float value) { appendText(sink, double{value}); }

VELA_EXPORT void appendNumber(TextSink& sink, U64 value);  ///< In decimal.
/// Likewise, with a sign where it is negative.
VELA_EXPORT void appendNumber(TextSink& sink, std::int64_t value);
template <std::integral T>
void appendText(TextSink& sink, T value) {
  appendNumber(sink,
               static_cast<std::conditional_t<std::is_signed_v<T>, std::int64_t, U64>>(value));
}

/// A number in lower-case hexadecimal, without a prefix and with at least `width` digits.
struct Hex {
  U64 value;           ///< What is written.
  unsigned width = 1;  ///< Filled up with zeros in front.
};
VELA_EXPORT void appendText(TextSink& sink, Hex number);

VELA_EXPORT void parseText(TextCursor& cursor, bool& value);
VELA_EXPORT void parseText(TextCursor& cursor, double& value);
inline void parseText(TextCursor& cursor, float& value) {
  double read = 0;
  parseText(cursor, read);
  value = static_cast<float>(read);
}
/// An unsigned number, decimal or with "0x", of at most `max`.
VELA_EXPORT U64 parseNumber(TextCursor& cursor, U64 max);

template <std::unsigned_integral T>
void parseText(TextCursor& cursor, T& value) {
  value = static_cast<T>(parseNumber(cursor, static_cast<T>(~T{0})));
}

/// A value that has a text form, whatever its type. It refers to the value.
class TextPart {
 public:
  /// The value must outlive this.
  template <class T>
  explicit TextPart(const T& value)
      : value_(&value), append_([](TextSink& sink, const void* part) {
          appendText(sink, *static_cast<const T*>(part));
        }) {}

  void appendTo(TextSink& sink) const { append_(sink, value_); }  ///< The text form of the value.

 private:
  const void* value_;
  void (*append_)(TextSink& sink, const void* value);
};
VELA_EXPORT void appendText(TextSink& sink, std::initializer_list<TextPart> parts);
/// The text forms, one after the other.
VELA_EXPORT std::string joined(std::initializer_list<TextPart> parts);

/// The text form of the values, one after the other.
template <class... Ts>
std::string text(const Ts&... values) {
  return joined({TextPart(values)...});
}

/// A value from its text form. Throws TextException, or RangeException for a value out of range.
template <class T>
T fromText(std::string_view text) {
  TextCursor cursor(text);
  T value{};
  parseText(cursor, value);
  cursor.end();
  return value;
}

}  // namespace Orb
