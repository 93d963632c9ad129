#pragma once

#include <array>
#include <span>
#include <string>
#include <vector>

#include "Orb/Ptr.h"
#include "Orb/Types.h"

/// A cuckoo hash table whose rows are the rows of a hardware table.
///
/// Every item may lie in one row of each way, the row that the way's hash of its key names. The
/// engine decides where items lie and in which order rows are written; it holds no row contents.
///
///  - Complete: an item is refused only when no arrangement of the items present could hold it.
///  - Fewest moves: the search is breadth first, so no shorter sequence of moves makes room.
///  - Make before break: moves are carried out from the far end, each writing an item's new row
///    before its old one is overwritten, so that every placed item is in some row at every moment.
///  - No operation allocates; finding and removing look at no more than `ways` rows.
namespace Keel::Cuckoo {

/// Most ways that a table can have.
inline constexpr U8 maxWays = 4;

/// A row of a table.
struct CuckooLocation {
  U8 way = 0;
  U32 row = 0;
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

  /// Whether a table holds the item.
  bool placed() const { return slot_ != unplaced; }

 protected:
  /// Spares the table its calls of getHash(): the item's rows, way by way.
  void rowsAre(std::span<const U32> rows) {
    for (const U32 row : rows) rows_[hashedWays_++] = static_cast<U16>(row);
  }

 private:
  friend class Table;
  static constexpr U32 unplaced = ~U32{0};

  mutable std::array<U16, maxWays> rows_{};
  mutable U8 hashedWays_ = 0;  ///< How many of rows_ are known.
  U32 slot_ = unplaced;
};

/// Carries out what a table decides.
class VELA_EXPORT RowWriter {
 public:
  /// Writes the item into the row, whatever lies there. Called in the order in which the rows must
  /// change. False when the row could not be written; the operation then stops there.
  virtual bool hashItemWrite(HashItem& item, CuckooLocation location) = 0;

 protected:
  ~RowWriter() = default;
};

enum class Outcome : U8 {
  placed,   ///< The item lies in a row, and so does everything that had to move.
  refused,  ///< No arrangement exists; nothing changed. competitors() is the proof.
  failed,   ///< A row could not be written. Moves made before stand; the item is not placed.
};

struct InsertResult {
  Outcome outcome;
  U32 moves;  ///< Items that were moved to make room.
  /// The row that could not be written, when failed. It holds no item any more.
  CuckooLocation failedAt{};
  /// The item that was to be written there: the new one, or one that stays where it was.
  HashItem* failedItem = nullptr;
};

class VELA_EXPORT Table {
 public:
  /// `rowsPerWay` at most 65536, `ways` 1 to maxWays.
  Table(U32 rowsPerWay, U8 ways);

  U32 rowsPerWay() const { return rowsPerWay_; }
  U8 ways() const { return ways_; }
  U32 capacity() const { return rowsPerWay_ * ways_; }
  U32 size() const { return size_; }
  /// Moves carried out since the table was made.
  U64 moves() const { return moves_; }
  /// Items removed since the table was made. When it has not grown, no item that was refused before
  /// has room now.
  U64 removals() const { return removals_; }

  /// The item of the same hardware key, or null.
  HashItem* find(const HashItem& key) const;
  /// The item in the row, or null.
  HashItem* at(CuckooLocation location) const { return slots_[slotOf(location)].get(); }
  /// Where a placed item lies.
  CuckooLocation location(const HashItem& item) const { return locationOf(item.slot_); }
  /// The row that the item may take in the way.
  CuckooLocation candidate(const HashItem& item, U8 way) const { return {way, rowOf(item, way)}; }

  /// Whether the row is free, or can be made free by moves. An item that is not placed has room
  /// when
  /// this is so of one of its rows.
  bool hasRoom(CuckooLocation location);
  /// Places an item of a hardware key that the table does not hold.
  InsertResult insert(HashItem& item, RowWriter& writer);
  /// Takes a placed item out. Nothing is written; the row is free from now on.
  void remove(HashItem& item);
  /// Lets `item` take the place of `held`, which has the same hardware key.
  void replace(HashItem& held, HashItem& item);
  /// Takes up an item that hardware already holds there. False when the row is not one of the
  /// item's own or is taken.
  bool adopt(HashItem& item, CuckooLocation location);

  /// Why `item` has no place: the items that lie in rows which it could reach by any sequence of
  /// moves. They and `item` together are one more than the rows that all of them may take. Empty
  /// when there is room. Valid until the next call.
  std::span<HashItem* const> competitors(const HashItem& item);

 private:
  static constexpr U32 noSlot = ~U32{0};

  U32 slotOf(CuckooLocation location) const { return location.way * rowsPerWay_ + location.row; }
  CuckooLocation locationOf(U32 slot) const {
    return {static_cast<U8>(slot / rowsPerWay_), slot % rowsPerWay_};
  }
  U32 rowOf(const HashItem& item, U8 way) const {
    if (way >= item.hashedWays_) hashAll(item);
    return item.rows_[way];
  }
  void hashAll(const HashItem& item) const;
  U32 candidateSlot(const HashItem& item, U8 way) const {
    return way * rowsPerWay_ + rowOf(item, way);
  }

  enum class Search : U8 { pruned, whole };
  void searchBegin();
  U32 searchFurther(Search kind);
  U32 search(const HashItem& item, Search kind);
  bool reach(U32 slot, U32 from, Search kind);
  void put(HashItem& item, U32 slot);
  void markClosed();

  U32 rowsPerWay_;
  U8 ways_;
  U32 size_ = 0;
  U64 moves_ = 0;
  U64 removals_ = 0;
  std::vector<Orb::Ptr<HashItem>> slots_;

  // The breadth-first search's memory, one element a row.
  std::vector<U32> reached_;  ///< Rows in the order in which they were reached.
  std::vector<U32> from_;     ///< The row whose item could move to this one; noSlot at the start.
  std::vector<U32> seen_;     ///< Equal to searches_ for rows that this search reached.
  U32 reachedCount_ = 0;
  U32 searches_ = 0;

  /// Rows that a failed search reached: all taken, and every item in them has all of its rows among
  /// them. No search needs to enter them until one of them is freed. Equal to closings_ for those.
  std::vector<U32> closed_;
  U32 closings_ = 1;
  std::vector<HashItem*> competitors_;
};

}  // namespace Keel::Cuckoo
