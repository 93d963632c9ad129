#pragma once

#include <cstdio>

#include "Orb/Text.h"
#include "VelaSwitch/Types.h"

namespace VelaSwitch {

/// A map from chip ports to flags.
class ChipPortMap {
 public:
  using Member = ChipPortId;  ///< What it is a map of.

  /// Gives the port a flag, false also: the map holds it then.
  void is(ChipPortId port, bool flag) {
    const U64 bit = U64{1} << port.value();
    known_ |= bit;
    flags_ = flag ? flags_ | bit : flags_ & ~bit;
  }
  /// The map does not hold the port any more.
  void del(ChipPortId port) {
    const U64 bit = ~(U64{1} << port.value());
    known_ &= bit;
    flags_ &= bit;
  }
  /// The port's flag; false for a port that the map does not hold.
  bool operator()(ChipPortId port) const { return (flags_ >> port.value() & 1) != 0; }
  /// Whether the map holds the port, whatever its flag.
  bool has(ChipPortId port) const { return (known_ >> port.value() & 1) != 0; }

  /// Calls `visit(port, flag)` for each port in the map, in ascending order.
  template <class Visitor>
  void forEach(const Visitor& visit) const {
    for (U16 port = ChipPortId::min; port <= ChipPortId::null; ++port) {
      const ChipPortId id(port);
      if (has(id)) visit(id, (*this)(id));
    }
  }
  auto operator<=>(const ChipPortMap&) const = default;

  ///@{ The flags as a number, bit n for port n, as rows hold them: only those that are true.
  friend U64 hashWord(const ChipPortMap& map) { return map.flags_; }
  friend void fromRowBits(ChipPortMap& map, U64 bits) { map.known_ = map.flags_ = bits; }
  ///@}

  friend void appendText(Orb::TextSink& sink, const ChipPortMap& map) {
    sink.append("{");
    map.forEach([&](ChipPortId port, bool flag) {
      char number[8];
      std::snprintf(number, sizeof number, "%2d", port.value());
      sink.append(number);
      sink.append(flag ? ":true " : ":false ");
    });
    sink.append("}");
  }

 private:
  U64 known_ = 0;
  U64 flags_ = 0;
};

}  // namespace VelaSwitch
