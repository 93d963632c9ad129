#include "Keel/Cuckoo.h"

#include <algorithm>

#include "Orb/Assert.h"

namespace Keel::Cuckoo {
namespace {

/// Makes every mark of an earlier epoch void; when the counter wraps, by wiping them.
void nextEpoch(U32& epoch, std::vector<U32>& marks) {
  if (++epoch != 0) return;
  std::fill(marks.begin(), marks.end(), 0);
  epoch = 1;
}

}  // namespace

Table::Table(U32 rowsPerWay, U8 ways) : rowsPerWay_(rowsPerWay), ways_(ways) {
  ORB_ASSERT(rowsPerWay >= 1 && rowsPerWay <= 65536);
  ORB_ASSERT(ways >= 1 && ways <= maxWays);
  slots_.resize(capacity());
  reached_.resize(capacity());
  from_.resize(capacity());
  seen_.resize(capacity());
  closed_.resize(capacity());
  competitors_.reserve(capacity());
}

void Table::hashAll(const HashItem& item) const {
  for (U8 way = 0; way < ways_; ++way) {
    const U32 row = item.getHash(way);
    ORB_ASSERT(row < rowsPerWay_);
    item.rows_[way] = static_cast<U16>(row);
  }
  item.hashedWays_ = ways_;
}

HashItem* Table::find(const HashItem& key) const {
  for (U8 way = 0; way < ways_; ++way) {
    HashItem* item = slots_[candidateSlot(key, way)].get();
    // Equal keys have equal rows in every way; comparing those first spares most key comparisons.
    if (item && item->rows_ == key.rows_ && item->isEqual(key)) return item;
  }
  return nullptr;
}

void Table::put(HashItem& item, U32 slot) {
  slots_[slot] = &item;
  item.slot_ = slot;
}

/// Notes that the search came to a row, and says whether it is free.
bool Table::reach(U32 slot, U32 from, Search kind) {
  if (seen_[slot] == searches_) return false;
  if (kind == Search::pruned && closed_[slot] == closings_) return false;
  seen_[slot] = searches_;
  from_[slot] = from;
  reached_[reachedCount_++] = slot;
  return !slots_[slot];
}

/// The free row that the fewest moves lead to, or noSlot when none can be reached. Rows are reached
/// in the order of their distance, so the first free one is the nearest.
U32 Table::search(const HashItem& item, Search kind) {
  searchBegin();
  for (U8 way = 0; way < ways_; ++way) {
    const U32 slot = candidateSlot(item, way);
    if (reach(slot, noSlot, kind)) return slot;
  }
  return searchFurther(kind);
}

void Table::searchBegin() {
  nextEpoch(searches_, seen_);
  reachedCount_ = 0;
}

/// Goes on from the rows reached. Afterwards, when there is no free one, they are all that can be.
U32 Table::searchFurther(Search kind) {
  for (U32 next = 0; next < reachedCount_; ++next) {
    const U32 from = reached_[next];
    const HashItem& mover = *slots_[from];
    for (U8 way = 0; way < ways_; ++way) {
      const U32 slot = candidateSlot(mover, way);
      if (reach(slot, from, kind)) return slot;
    }
  }
  return noSlot;
}

void Table::markClosed() {
  for (U32 i = 0; i < reachedCount_; ++i) closed_[reached_[i]] = closings_;
}

bool Table::hasRoom(CuckooLocation location) {
  const U32 slot = slotOf(location);
  searchBegin();
  if (reach(slot, noSlot, Search::pruned)) return true;
  if (searchFurther(Search::pruned) != noSlot) return true;
  markClosed();
  return false;
}

InsertResult Table::insert(HashItem& item, RowWriter& writer) {
  ORB_ASSERT(!item.placed());
  U32 to = search(item, Search::pruned);
  if (to == noSlot) {
    markClosed();
    return {Outcome::refused, 0};
  }
  U32 moves = 0;
  for (U32 from = from_[to]; from != noSlot; from = from_[to]) {
    const Orb::Ptr<HashItem> mover = slots_[from];
    if (!writer.hashItemWrite(*mover, locationOf(to))) {
      return {Outcome::failed, moves, locationOf(to), mover.get()};
    }
    put(*mover, to);
    slots_[from] = nullptr;
    ++moves;
    ++moves_;
    to = from;
  }
  if (!writer.hashItemWrite(item, locationOf(to))) {
    return {Outcome::failed, moves, locationOf(to), &item};
  }
  put(item, to);
  ++size_;
  return {Outcome::placed, moves};
}

void Table::remove(HashItem& item) {
  ORB_ASSERT(item.placed() && slots_[item.slot_].get() == &item);
  const Orb::Ptr<HashItem> keep(&item);
  if (closed_[item.slot_] == closings_) nextEpoch(closings_, closed_);
  slots_[item.slot_] = nullptr;
  item.slot_ = HashItem::unplaced;
  --size_;
  ++removals_;
}

void Table::replace(HashItem& held, HashItem& item) {
  ORB_ASSERT(held.placed() && !item.placed());
  const Orb::Ptr<HashItem> keep(&held);
  rowOf(item, 0);
  put(item, held.slot_);
  held.slot_ = HashItem::unplaced;
}

bool Table::adopt(HashItem& item, CuckooLocation location) {
  ORB_ASSERT(!item.placed());
  if (location.way >= ways_ || rowOf(item, location.way) != location.row) return false;
  if (slots_[slotOf(location)]) return false;
  put(item, slotOf(location));
  ++size_;
  return true;
}

std::span<HashItem* const> Table::competitors(const HashItem& item) {
  competitors_.clear();
  if (search(item, Search::whole) != noSlot) return {};
  for (U32 i = 0; i < reachedCount_; ++i) competitors_.push_back(slots_[reached_[i]].get());
  return competitors_;
}

}  // namespace Keel::Cuckoo
