#pragma once

#include <array>
#include <bit>
#include <string>

#include "Orb/Ptr.h"
#include "Orb/Types.h"

namespace Keel::Cuckoo {

/// Most ways that a table can have.
inline constexpr U8 maxWays = 4;

/// A row of a table.
struct CuckooLocation {
  U8 way = 0;   ///< Below the table's ways.
  U32 row = 0;  ///< Of the way, from 0 on.
  auto operator<=>(const CuckooLocation&) const = default;
};

/// Something that a table places. Unless the item has said its rows before, the table asks for its
/// hashes once, when it first sees it.
class VELA_EXPORT HashItem : public Orb::PtrInterface {
 public:
  /// Whether both have the same hardware key, so that a lookup cannot tell them apart.
  virtual bool isEqual(const HashItem& other) const = 0;
  /// The row that the item may take in the way.
  virtual U32 getHash(U8 way) const = 0;
  /// Text form for traces.
  virtual std::string toStrep() const = 0;

  /// Whether the item lies in a row of a table.
  bool placed() const { return (slot_ & notPlaced) == 0; }
  /// Whether the item waits for room in a table.
  bool waits() const { return !placed() && slot_ != unplaced; }

 protected:
  /// Spares the table its calls of getHash(): the item's rows, 16 bits for each way, the first
  /// one's lowest; bits above those of `ways` are 0.
  void rowsAre(U64 rows, U8 ways) {
    rows_ = std::bit_cast<std::array<U16, maxWays>>(rows);
    hashedWays_ = ways;
  }

 private:
  friend class Table;
  friend class WaitingItems;
  static constexpr U32 notPlaced = 0x80000000;
  static constexpr U32 unplaced = ~U32{0};

  U32 slot_ = unplaced;  ///< The row, or with `notPlaced` the place among those that wait.
  alignas(8) mutable std::array<U16, maxWays> rows_{};
  mutable U8 hashedWays_ = 0;  ///< How many of rows_ are known.
};

}  // namespace Keel::Cuckoo
