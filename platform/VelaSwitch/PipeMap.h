#pragma once

#include <array>
#include <compare>

#include "Orb/Text.h"
#include "VelaSwitch/Types.h"

namespace VelaSwitch {

/// A value per pipe, for the pipes that have one. Lies in place: copying it allocates nothing.
template <class T>
class PipeMap {
 public:
  using Key = PipeId;  ///< What a value is found by.
  using Mapped = T;    ///< What is found.

  bool empty() const { return present_ == 0; }  ///< No pipe has a value.
  /// The pipe's value, or null.
  const T* find(PipeId pipe) const { return has(pipe) ? &values_[pipe.value()] : nullptr; }
  /// The same in the style of fields.
  const T* operator()(PipeId pipe) const { return find(pipe); }
  /// Whether the pipe has a value.
  bool has(PipeId pipe) const { return (present_ >> pipe.value() & 1) != 0; }

  /// Gives the pipe a value, or another one.
  void is(PipeId pipe, T value) {
    present_ |= static_cast<U16>(1 << pipe.value());
    values_[pipe.value()] = value;
  }
  /// The pipe has none any more.
  void del(PipeId pipe) {
    present_ &= static_cast<U16>(~(1 << pipe.value()));
    values_[pipe.value()] = T{};
  }
  void delAll() { *this = {}; }  ///< Nor has any other.

  auto operator<=>(const PipeMap&) const = default;

  /// Calls `visit(pipe, value)` for every pipe with a value, in order.
  template <class Visitor>
  void forEach(Visitor&& visit) const {
    for (U8 pipe = PipeId::min; pipe <= PipeId::null; ++pipe) {
      if (has(PipeId(pipe))) visit(PipeId(pipe), values_[pipe]);
    }
  }

  friend void appendText(Orb::TextSink& sink, const PipeMap& map) {
    std::string_view separator = "{";
    map.forEach([&](PipeId pipe, const T& value) {
      sink.append(separator);
      appendText(sink, pipe);
      sink.append(": ");
      using Orb::appendText;
      appendText(sink, value);
      separator = ", ";
    });
    sink.append(map.empty() ? "{}" : "}");
  }

 private:
  U16 present_ = 0;  ///< Bit n: pipe n has a value. The others hold T{}.
  std::array<T, PipeId::null + 1> values_{};
};

}  // namespace VelaSwitch
