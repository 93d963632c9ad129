#include "Keel/WaitingItems.h"

#include "Orb/Assert.h"

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
    free_ = nodes_[at].nextSame;
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
  const auto [first, isNew] = sameRows_.insert(rowsOf(item));
  node.nextSame = isNew ? none : *first;
  if (!isNew) ++sharing_;
  *first = at;
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
  const U64 rows = rowsOf(item);
  U32* link = sameRows_.find(rows);
  if (*link == at && node.nextSame == none) {
    sameRows_.erase(rows);
  } else {
    while (*link != at) link = &nodes_[*link].nextSame;
    *link = node.nextSame;
    --sharing_;
  }
  item.slot_ = HashItem::unplaced;
  node.nextSame = free_;
  free_ = at;
  const Orb::Ptr<HashItem> released = std::move(node.item);
}

HashItem* WaitingItems::equal(const HashItem& key) const {
  const U32* first = sameRows_.find(rowsOf(key));
  for (U32 at = first ? *first : none; at != none; at = nodes_[at].nextSame) {
    if (nodes_[at].item->isEqual(key)) return nodes_[at].item.get();
  }
  return nullptr;
}

}  // namespace Keel::Cuckoo
