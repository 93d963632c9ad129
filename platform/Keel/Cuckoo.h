#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "Keel/WaitingItems.h"
#include "Orb/Assert.h"

/// A cuckoo hash table whose rows are the rows of a hardware table.
///
/// Every item may lie in one row of each way, the row that the way's hash of its key names. The
/// engine decides where items lie and in which order rows are written; it holds no row contents.
///
///  - Complete: an item is refused only when no arrangement of the items present could hold it.
///  - Fewest moves: the search is breadth first, so no shorter sequence of moves makes room.
///  - Make before break: moves are carried out from the far end, each writing an item's new row
///    before its old one is overwritten, so that every placed item is in some row at every moment.
///  - First come, nearest served: when an item goes, the one that waits and needs the fewest moves
///    comes in, and among those the one that waited longest. At most one can: the sets of items
///    that have an arrangement form a matroid.
///  - No operation but waiting allocates; finding looks at no more than `ways` rows, and so does
///    removing where nobody waits.
namespace Keel::Cuckoo {

/// Carries out what a table decides.
class VELA_EXPORT RowWriter {
 public:
  /// Writes the item into the row, whatever lies there. Called in the order in which the rows must
  /// change. False when the row could not be written; the operation then stops there.
  virtual bool hashItemWrite(HashItem& item, CuckooLocation location) = 0;

 protected:
  ~RowWriter() = default;
};

/// How an insertion ended.
enum class Outcome : U8 {
  placed,   ///< The item lies in a row, and so does everything that had to move.
  refused,  ///< No arrangement exists; nothing changed. competitors() is the proof.
  failed,   ///< A row could not be written. Moves made before stand; the item is not placed.
};

/// What an insertion did.
struct InsertResult {
  Outcome outcome;  ///< Moves count whatever it is.
  U32 moves;        ///< Items that were moved to make room.
  /// The row that could not be written, when failed. It holds no item any more.
  CuckooLocation failedAt{};
  /// The item that was to be written there: the new one, or one that stays where it was.
  HashItem* failedItem = nullptr;
};

/// Who came in when an item went.
struct SuccessionResult {
  Orb::Ptr<HashItem> item;  ///< Null when nobody did; otherwise it does not wait any more.
  InsertResult insert;      ///< Placed or failed.
};

/// Where items lie: each in one of a row per way, whichever the hashes allow.
class VELA_EXPORT Table {
 public:
  /// `rowsPerWay` at most 65536, one less with maxWays ways; `ways` 1 to maxWays.
  Table(U32 rowsPerWay, U8 ways);

  U32 rowsPerWay() const { return rowsPerWay_; }        ///< As the table was made.
  U8 ways() const { return ways_; }                     ///< Likewise.
  U32 capacity() const { return rowsPerWay_ * ways_; }  ///< Rows of all ways.
  U32 size() const { return size_; }  ///< Items in rows; those that wait are not counted.
  /// Moves carried out since the table was made.
  U64 moves() const { return moves_; }
  /// The item of the same hardware key, or null.
  HashItem* find(const HashItem& key) const;
  /// The item in the row, or null.
  HashItem* at(CuckooLocation location) const { return slots_[slotOf(location)].get(); }
  /// The same by the row's number, when those of all ways are counted one after the other.
  HashItem* at(U32 row) const { return slots_[row].get(); }
  /// Where a placed item lies.
  CuckooLocation location(const HashItem& item) const { return locationOf(item.slot_); }
  /// The same as the row's number.
  U32 row(const HashItem& item) const { return item.slot_; }
  /// The row that the item may take in the way.
  CuckooLocation candidate(const HashItem& item, U8 way) const { return {way, rowOf(item, way)}; }

  /// Stands for no row.
  static constexpr U32 noRow = ~U32{0};
  /// The free row that insert() would place the item in without moving others, counted as at()
  /// does. None when an item of the same hardware key is there or waits, or this one does.
  [[gnu::always_inline]] U32 freeRow(const HashItem& item) const {
    if (item.hashedWays_ < ways_) [[unlikely]]
      hashAll(item);
    if (!waiting_.empty()) [[unlikely]]
      return freeRowAmongWaiting(item);
    return vacantRow(item);
  }
  /// Places an item of a hardware key that the table does not hold.
  InsertResult insert(HashItem& item, RowWriter& writer);
  /// Takes a placed item out, and hands out the handle of it. Nothing is written; the row is free
  /// from now on.
  [[gnu::always_inline]] Orb::Ptr<HashItem> remove(HashItem& item) {
    ORB_ASSERT(item.placed() && slots_[item.slot_].get() == &item);
    if (isClosed(item.slot_)) [[unlikely]]
      reopen();
    Orb::Ptr<HashItem> gone = take(item.slot_);
    item.slot_ = HashItem::unplaced;
    --size_;
    return gone;
  }

  /// An item that was refused waits from now on; one that waits already keeps its turn.
  void waitIs(HashItem& item);
  /// An item does not wait any more, if it did.
  void waitDel(HashItem& item);
  void waitDel() { waiting_.clear(); }  ///< Nobody waits any more.
  /// The item of the same hardware key that waits, or null.
  HashItem* findWaiting(const HashItem& key) const;
  /// Those that were refused and asked to wait.
  const WaitingItems& waiting() const { return waiting_; }
  /// Takes a placed item out and lets one in that waits and has room now. The last row that is
  /// written then is that of the new item, the first the row that became free: it need not be
  /// cleared. When none waits that has room, nothing is written, and the row is free.
  SuccessionResult succeed(HashItem& gone, RowWriter& writer);
  /// Lets one in that waits and has room now that the rows are free.
  SuccessionResult fill(std::span<const CuckooLocation> free, RowWriter& writer);
  /// The item that would come in if a placed one went, or null.
  HashItem* successor(const HashItem& placed);
  /// Whether an item that is not placed could be.
  bool hasRoom(const HashItem& item);
  /// Lets `item` take the place of `held`, which has the same hardware key.
  void replace(HashItem& held, HashItem& item);
  /// Takes up an item in the free row that freeRow() has just said.
  void placedAt(HashItem& item, U32 free) {
    put(item, free);
    ++size_;
  }
  /// Takes up an item that hardware already holds there. False when the row is not one of the
  /// item's own or is taken.
  bool adopt(HashItem& item, CuckooLocation location);

  /// Why `item` has no place: the rows that it could reach by any sequence of moves, counted as
  /// at() does. The items there and `item` together are one more than the rows that all of them may
  /// take. Empty when there is room. Valid until the next call.
  std::span<const U32> competitors(const HashItem& item);

 private:
  static constexpr U32 noSlot = noRow;

  U32 slotOf(CuckooLocation location) const { return location.way * rowsPerWay_ + location.row; }
  CuckooLocation locationOf(U32 slot) const {
    return {static_cast<U8>(slot / rowsPerWay_), slot % rowsPerWay_};
  }
  U32 rowOf(const HashItem& item, U8 way) const {
    if (way >= item.hashedWays_) hashAll(item);
    return item.rows_[way];
  }
  void hashAll(const HashItem& item) const;
  /// An item's rows in one number, 16 bits for each way, the first one's lowest.
  using Rows = U64;
  static constexpr Rows nobodys = ~Rows{0};  ///< Of no item's.
  static Rows rowsOf(const HashItem& item) { return std::bit_cast<Rows>(item.rows_); }
  U32 candidateSlot(const HashItem& item, U8 way) const {
    return way * rowsPerWay_ + rowOf(item, way);
  }
  U32 candidateSlot(Rows rows, U8 way) const { return way * rowsPerWay_ + rowOf(rows, way); }
  static U32 rowOf(Rows rows, U8 way) { return rows >> way * 16 & 0xffff; }

  enum class Search : U8 { pruned, whole };
  void searchBegin();
  U32 searchFurther(Search kind);
  U32 search(const HashItem& item, Search kind);
  bool reach(U32 slot, U32 from, Search kind);
  void put(HashItem& item, U32 slot) {
    slots_[slot] = &item;
    rows_[slot] = rowsOf(item);
    item.slot_ = slot;
    if (openings_.made()) openings_.add(*this, slot);
  }
  Orb::Ptr<HashItem> take(U32 slot) {
    if (openings_.made()) openings_.del(*this, slot);
    rows_[slot] = nobodys;
    return std::move(slots_[slot]);
  }
  bool sameKey(U32 slot, const HashItem& item) const;
  /// freeRow() as far as items that are placed are concerned.
  [[gnu::always_inline]] U32 vacantRow(const HashItem& item) const {
    const Rows rows = rowsOf(item);
    const U32 rowsPerWay = rowsPerWay_;
    U32 free = noRow;
    Rows next = rows;
    U32 first = 0;
    U8 left = ways_;
    do {
      const U32 slot = first + rowOf(next, 0);
      const Rows held = rows_[slot];
      if (held == rows && sameKey(slot, item)) [[unlikely]]
        return noRow;
      // No branch: it could not be foretold.
      free = std::min(free, held == nobodys ? slot : noRow);
      first += rowsPerWay;
      next >>= 16;
    } while (--left != 0);
    return free;
  }
  U32 freeRowAmongWaiting(const HashItem& item) const;
  void reopen();
  void markClosed();
  InsertResult carryOut(HashItem& item, U32 to, RowWriter& writer);
  struct Nearest {
    HashItem* item;  ///< Null when there is none.
    U32 free;        ///< The row that it makes its way to.
  };
  Nearest nearestWaiting(std::span<const CuckooLocation> free);
  SuccessionResult letIn(const Nearest& next, RowWriter& writer);
  bool leadsNowhereElse(Rows rows) const;

  /// For rows that items could move to: those items, so that a search can go backwards. Made when
  /// the first item waits, and kept from then on.
  class Openings {
   public:
    bool made() const { return !heads_.empty(); }
    void make(const Table& table);
    void add(const Table& table, U32 slot);
    void del(const Table& table, U32 slot);
    /// Calls `visit(slot)` for the rows whose items could move to `to`.
    template <class Visitor>
    void forEach(const Table& table, U32 to, const Visitor& visit) const {
      for (U32 node = heads_[to]; node != noSlot; node = links_[node].next) {
        visit(node / table.ways_);
      }
    }
    /// Of two ways: puts the rows that can be reached from closed ones, and these, into `reached`,
    /// nearest first. Returns how many they are.
    U32 follow(std::array<U32, 2> closed, std::vector<U32>& reached);

   private:
    struct Link {
      U32 next = noSlot;
      U32 previous = noSlot;
    };
    std::vector<U32> heads_;   ///< By row that is moved to.
    std::vector<Link> links_;  ///< By row that is moved from, and way that is moved to.
    /// Of two ways, apart from what only other searches need: the one row that an item could move
    /// to, by its own, and the number of the search that came there last.
    std::vector<U32> others_;
    std::vector<U16> passed_;
    U16 passes_ = 0;
  };

  U32 rowsPerWay_;
  U8 ways_;
  U32 size_ = 0;
  U64 moves_ = 0;
  std::vector<Orb::Ptr<HashItem>> slots_;
  /// Of the item in each row, or `nobodys`, so that what looks for a free row looks at no item and
  /// at nothing else.
  std::vector<Rows> rows_;
  WaitingItems waiting_;
  Openings openings_;

  /// What searches know of a row. Marks are of an epoch: those of earlier ones mean nothing.
  struct Node {
    U32 from = 0;    ///< The row whose item could move to this one; noSlot at the start.
    U16 seen = 0;    ///< searches_ where this search reached the row.
    U16 closed = 0;  ///< closings_ where a failed search reached it: all such rows are taken, and
                     ///< every item in them has all of its rows among them. No search needs to
                     ///< enter them until one of them is freed.
  };
  bool isClosed(U32 slot) const { return anyClosed_ && nodes_[slot].closed == closings_; }
  void reachedFrom(U32 slot, U32 from);

  std::vector<U32> reached_;  ///< Rows in the order in which the search reached them.
  U32 reachedCount_ = 0;
  std::vector<Node> nodes_;  ///< By row.
  U16 searches_ = 0;
  U16 closings_ = 1;
  bool anyClosed_ = false;  ///< Else no row's node need be looked at.
};

}  // namespace Keel::Cuckoo
