#pragma once

#include "Orb/Value.h"
#include "VelaSwitch/NexthopIndexes.h"
#include "VelaSwitch/Profile.h"

/// Routes, and what they become in the levels of the ladder that hold them in hardware.
///
/// A level holds prefixes of one key length. A route that is shorter than its level's longest is
/// spread over several cells, each of which remembers the route's real length:
///
///   level    Lpm11   Lpm14    Lpm17    Lpm20    Lpm23    Lpm26    Lpm29    Lpm32
///   key      11      12       15       18       21       24       27       30     address bits
///   cells    1       4        4        4        4        4        4        4      of a key
///   routes   0–11    12–14    15–17    18–20    21–23    24–26    27–29    30–32  real length
namespace VelaSwitchTable {

/// Length of a prefix; 33 stands for none.
class MaskLength : public Orb::Ranged<MaskLength, U8, 0, 33, 33> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText =
      "VelaSwitchTable::MaskLength::value < VelaSwitchTable::MaskLength::min or > "
      "VelaSwitchTable::MaskLength::null not allowed";
  static constexpr U8 min = 0;    ///< The default route.
  static constexpr U8 null = 33;  ///< None.
};

/// What one cell of a level says: the next hop, and the route that it comes from.
struct EntryCellResult {
  static constexpr const char* typeName = "VelaSwitchTable::EntryCellResult";
  /// A cell that says nothing can be left out.
  static constexpr bool nullable = true;

  /// None for a cell without a route.
  Orb::Field<"nexthopIndexes", VelaSwitch::NexthopIndexes> nexthopIndexes;
  Orb::Field<"maskLength", MaskLength, 4> maskLength;  ///< First level alone.
  Orb::Field<"realPrefixLen", U8> realPrefixLen;       ///< Length of the route, 0 to 32.
  auto operator<=>(const EntryCellResult&) const = default;

  /// Whether the cell answers a lookup.
  bool valid() const { return nexthopIndexes().valid(); }

  /// The cell in hardware's form. Hashed levels: 14 bits, the upper two saying by how much the
  /// route is shorter than `width`, the level's longest, or 3 for a cell without a next hop. The
  /// first level (`direct`): 15 bits, of which the upper three are 0. It has been the same in every
  /// hardware interface so far.
  U32 hwEncoding(bool direct, U8 width, VelaSwitch::ProfileHwApi /*hwApi*/) const {
    const U32 nexthop = nexthopIndexes().raw();
    if (direct) return nexthop;
    const U32 shorter = valid() ? static_cast<U32>(width - realPrefixLen()) : noNexthop;
    return nexthop | (shorter & noNexthop) << nexthopBits;
  }
  /// The inverse. What the encoding does not tell keeps its default.
  VELA_EXPORT static EntryCellResult fromHwEncoding(U32 encoding, bool direct, U8 width,
                                                    VelaSwitch::ProfileHwApi hwApi);

 private:
  static constexpr U8 nexthopBits = 2 * VelaSwitch::NexthopIndexes::fieldBits;
  static constexpr U32 noNexthop = 3;  ///< In the upper two bits of a hashed level's cell.
};

/// A cell of a key: the value of the two address bits behind the key, the first of them the more
/// significant.
class EntryCellIndex : public Orb::Ranged<EntryCellIndex, U8, 0, 3> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText = "VelaSwitchTable::EntryCellIndex::value > 3 not allowed";
  static constexpr U8 count = 4;  ///< Cells of a key.
};

}  // namespace VelaSwitchTable
