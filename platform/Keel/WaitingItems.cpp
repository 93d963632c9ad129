#include "Keel/WaitingItems.h"

#include <utility>

#include "Orb/Assert.h"
#include "Orb/Hash.h"

namespace Keel::Cuckoo {

WaitingItems::WaitingItems(U32 slots, U32 rowsPerWay, U8 ways)
    : slots_(slots), rowsPerWay_(rowsPerWay), ways_(ways) {}

void WaitingItems::add(HashItem& item) {
  ORB_ASSERT(!item.placed() && !item.waits());
  heads_.resize(slots_);
  U32 at = free_;
  if (at == none) {
    at = static_cast<U32>(nodes_.size());
    nodes_.emplace_back();
  } else {
    free_ = nodes_[at].next[0];
  }
  Node& node = nodes_[at];
  node.item = &item;
  node.arrival = arrivals_++;
  item.slot_ = HashItem::notPlaced | at;
  for (U8 way = 0; way < ways_; ++way) {
    Queue& rowQueue = queue(item, way);
    node.next[way] = none;
    node.previous[way] = rowQueue.last;
    (rowQueue.last == none ? rowQueue.first : nodes_[rowQueue.last].next[way]) = at;
    rowQueue.last = at;
  }
  index_.add(tagOf(&item), &item);
}

void WaitingItems::del(HashItem& item) {
  ORB_ASSERT(item.waits());
  const U32 at = nodeOf(item);
  Node& node = nodes_[at];
  for (U8 way = 0; way < ways_; ++way) {
    Queue& rowQueue = queue(item, way);
    const U32 next = node.next[way];
    const U32 previous = node.previous[way];
    (previous == none ? rowQueue.first : nodes_[previous].next[way]) = next;
    (next == none ? rowQueue.last : nodes_[next].previous[way]) = previous;
  }
  index_.remove(tagOf(&item), &item);
  item.slot_ = HashItem::unplaced;
  node.next[0] = free_;
  free_ = at;
  const Orb::Ptr<HashItem> released = std::move(node.item);
}

void WaitingItems::clear() {
  const auto gone = std::exchange(nodes_, {});
  heads_.clear();
  free_ = none;
  index_ = Orb::RecordIndex(&tagOf);
  for (const Node& node : gone) {
    if (node.item) node.item->slot_ = HashItem::unplaced;
  }
}

HashItem* WaitingItems::equal(const HashItem& key) const {
  return static_cast<HashItem*>(index_.find(tagOf(&key), [&](const void* each) {
    const auto& item = *static_cast<const HashItem*>(each);
    return item.rows_ == key.rows_ && item.isEqual(key);
  }));
}

void WaitingItems::equalSoon(const HashItem& key) const {
  index_.soon(tagOf(&key));
  for (U8 way = 0; way < ways_; ++way) {
    const U32 last = heads_[slotOf(key, way)].last;
    if (last != none) __builtin_prefetch(&nodes_[last]);
  }
}

U32 WaitingItems::tagOf(const void* item) {
  return static_cast<U32>(
      Orb::hashOf(std::bit_cast<U64>(static_cast<const HashItem*>(item)->rows_)));
}

}  // namespace Keel::Cuckoo
