#pragma once

#include <deque>
#include <vector>

#include "Keel/HashItem.h"
#include "Orb/RecordIndex.h"

namespace Keel::Cuckoo {

/// Items that found no room, by the rows that they could take and in order of arrival. Joining,
/// leaving and finding an equal one take the same time however many there are, but for those that
/// could take the same rows.
class VELA_EXPORT WaitingItems {
 public:
  /// Of a table with `slots` rows; `rowsPerWay` of them in each of `ways`.
  WaitingItems(U32 slots, U32 rowsPerWay, U8 ways);

  U32 size() const { return index_.size(); }         ///< Items that wait.
  bool empty() const { return index_.size() == 0; }  ///< Nobody waits.
  /// Adds an item that is neither placed nor waiting; its rows are known.
  void add(HashItem& item);
  /// Takes out an item that waits.
  void del(HashItem& item);
  void clear();  ///< Takes out all of them.
  /// The item of the same hardware key, or null.
  HashItem* equal(const HashItem& key) const;
  /// It is asked for soon, and the item itself may wait then.
  void equalSoon(const HashItem& key) const;

  /// The item that has waited longest among those that could take the row, or null.
  HashItem* first(U32 slot) const {
    const U32 node = heads_.empty() ? none : heads_[slot].first;
    return node == none ? nullptr : nodes_[node].item.get();
  }
  /// Grows with the arrival of the items.
  U64 arrival(const HashItem& item) const { return nodes_[nodeOf(item)].arrival; }

  /// Calls `visit(item)` for each, in no particular order.
  template <class Visitor>
  void forEach(const Visitor& visit) const {
    for (const Node& node : nodes_) {
      if (node.item) visit(*node.item);
    }
  }

 private:
  static constexpr U32 none = ~U32{0};

  struct Node {
    Orb::Ptr<HashItem> item;  ///< Null in a node that is free.
    U64 arrival = 0;
    /// In the queues of the item's rows, by way. Of free nodes, the first is another free one.
    std::array<U32, maxWays> next{};
    std::array<U32, maxWays> previous{};
  };
  struct Queue {
    U32 first = none;
    U32 last = none;
  };

  static U32 nodeOf(const HashItem& item) { return item.slot_ & ~HashItem::notPlaced; }
  static U32 tagOf(const void* item);
  U32 slotOf(const HashItem& item, U8 way) const { return way * rowsPerWay_ + item.rows_[way]; }
  Queue& queue(const HashItem& item, U8 way) { return heads_[slotOf(item, way)]; }

  U32 slots_;
  U32 rowsPerWay_;
  U8 ways_;
  std::vector<Queue> heads_;  ///< By row; made when the first item waits.
  std::deque<Node> nodes_;    ///< Many, so that growing is not to copy them.
  U32 free_ = none;
  Orb::RecordIndex index_{&tagOf};  ///< The items, by all their rows.
  U64 arrivals_ = 0;
};

}  // namespace Keel::Cuckoo
