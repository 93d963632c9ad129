#pragma once

#include <compare>

#include "Orb/Assert.h"
#include "Orb/Hash.h"
#include "Orb/Text.h"

namespace VelaSwitch {

/// A set of ports: bit n is port n. The bit behind the last port of a profile is the CPU port.
class IngressPortMask {
 public:
  constexpr IngressPortMask() = default;
  constexpr explicit IngressPortMask(U64 bits) : bits_(bits) {}  ///< Bit n is port n.

  constexpr U64 bits() const { return bits_; }  ///< All of them, whatever the ports of a profile.
  /// The bits that hardware with `ports` ports has: the ports and the CPU port behind them.
  U64 hardwareBitmask(U32 ports) const {
    ORB_ASSERT(ports < 63);
    return bits_ & ((U64{1} << (ports + 1)) - 1);
  }
  /// The same of another mask.
  static U64 hardwareBitmask(IngressPortMask mask, U32 ports) {
    return mask.hardwareBitmask(ports);
  }
  constexpr auto operator<=>(const IngressPortMask&) const = default;

  friend constexpr U64 hashWord(const IngressPortMask& mask) { return mask.bits_; }
  friend void appendText(Orb::TextSink& sink, IngressPortMask mask) {
    sink.append("0x");
    Orb::appendText(sink, Orb::Hex{mask.bits_, 12});
  }
  friend void parseText(Orb::TextCursor& cursor, IngressPortMask& mask) {
    Orb::parseText(cursor, mask.bits_);
  }

 private:
  U64 bits_ = 0;
};

}  // namespace VelaSwitch
