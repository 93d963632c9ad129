#include "Keel/Cuckoo.h"

#include <algorithm>

#include "Orb/Assert.h"

namespace Keel::Cuckoo {
namespace {

/// Makes every mark of an earlier epoch void; when the counter wraps, by wiping them.
template <class Node>
void nextEpoch(U16& epoch, std::vector<Node>& nodes, U16 Node::*mark) {
  if (++epoch != 0) return;
  for (Node& node : nodes) node.*mark = 0;
  epoch = 1;
}

}  // namespace

Table::Table(U32 rowsPerWay, U8 ways)
    : rowsPerWay_(rowsPerWay), ways_(ways), waiting_(rowsPerWay * ways, rowsPerWay, ways) {
  ORB_ASSERT(rowsPerWay >= 1 && rowsPerWay <= 65536);
  ORB_ASSERT(ways >= 1 && ways <= maxWays);
  // So that no item's rows are `nobodys`.
  ORB_ASSERT(ways < maxWays || rowsPerWay < 65536);
  slots_.resize(capacity());
  reached_.resize(capacity());
  nodes_.resize(capacity());
  rows_.resize(capacity(), nobodys);
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
  rowOf(key, 0);
  for (U8 way = 0; way < ways_; ++way) {
    const U32 slot = candidateSlot(key, way);
    // Equal keys have equal rows in every way; comparing those first spares most key comparisons.
    if (rows_[slot] == rowsOf(key) && slots_[slot]->isEqual(key)) return slots_[slot].get();
  }
  return nullptr;
}

/// Whether the item in the row, which has the same rows, has the same hardware key.
[[gnu::cold]] bool Table::sameKey(U32 slot, const HashItem& item) const {
  return slots_[slot]->isEqual(item);
}

/// freeRow() where items wait: one of the same key may be among them.
[[gnu::noinline]] U32 Table::freeRowAmongWaiting(const HashItem& item) const {
  const U32 free = vacantRow(item);
  if (free == noRow) {
    waiting_.equalSoon(item);
    return noRow;
  }
  return item.waits() || waiting_.equal(item) ? noRow : free;
}

void Table::reachedFrom(U32 slot, U32 from) {
  nodes_[slot].seen = searches_;
  nodes_[slot].from = from;
  reached_[reachedCount_++] = slot;
}

/// Notes that the search came to a row, and says whether it is free.
bool Table::reach(U32 slot, U32 from, Search kind) {
  Node& node = nodes_[slot];
  if (node.seen == searches_) return false;
  if (kind == Search::pruned && node.closed == closings_) return false;
  reachedFrom(slot, from);
  return rows_[slot] == nobodys;
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
  nextEpoch(searches_, nodes_, &Node::seen);
  reachedCount_ = 0;
}

/// Goes on from the rows reached. Afterwards, when there is no free one, they are all that can be.
U32 Table::searchFurther(Search kind) {
  for (U32 next = 0; next < reachedCount_; ++next) {
    const U32 from = reached_[next];
    const Rows mover = rows_[from];
    if (ways_ == 2) {
      // The other row of the two, whichever this one is: a branch would be foretold half the time.
      const U32 slot = candidateSlot(mover, 0) + candidateSlot(mover, 1) - from;
      if (reach(slot, from, kind)) return slot;
      continue;
    }
    for (U8 way = 0; way < ways_; ++way) {
      const U32 slot = candidateSlot(mover, way);
      if (reach(slot, from, kind)) return slot;
    }
  }
  return noSlot;
}

void Table::markClosed() {
  anyClosed_ = true;
  for (U32 i = 0; i < reachedCount_; ++i) nodes_[reached_[i]].closed = closings_;
}

InsertResult Table::insert(HashItem& item, RowWriter& writer) {
  ORB_ASSERT(!item.placed());
  const U32 to = search(item, Search::pruned);
  if (to == noSlot) {
    markClosed();
    return {Outcome::refused, 0};
  }
  return carryOut(item, to, writer);
}

/// Moves items from the far end of the path that the nodes describe, `to`, and places the new one.
InsertResult Table::carryOut(HashItem& item, U32 to, RowWriter& writer) {
  U32 moves = 0;
  for (U32 from = nodes_[to].from; from != noSlot; from = nodes_[to].from) {
    const Orb::Ptr<HashItem> mover = slots_[from];
    if (!writer.hashItemWrite(*mover, locationOf(to))) {
      return {Outcome::failed, moves, locationOf(to), mover.get()};
    }
    take(from);
    put(*mover, to);
    ++moves;
    ++moves_;
    to = from;
  }
  if (!writer.hashItemWrite(item, locationOf(to))) {
    return {Outcome::failed, moves, locationOf(to), &item};
  }
  if (item.waits()) waiting_.del(item);
  put(item, to);
  ++size_;
  return {Outcome::placed, moves};
}

/// A row that was closed is freed.
void Table::reopen() {
  nextEpoch(closings_, nodes_, &Node::closed);
  anyClosed_ = false;
}

void Table::waitIs(HashItem& item) {
  if (item.waits()) return;
  rowOf(item, 0);
  if (!openings_.made()) openings_.make(*this);
  waiting_.add(item);
}

void Table::waitDel(HashItem& item) {
  if (item.waits()) waiting_.del(item);
}

HashItem* Table::findWaiting(const HashItem& key) const {
  if (waiting_.empty()) return nullptr;
  // No other of the same key waits beside it.
  if (key.waits()) return const_cast<HashItem*>(&key);
  rowOf(key, 0);
  return waiting_.equal(key);
}

SuccessionResult Table::succeed(HashItem& gone, RowWriter& writer) {
  ORB_ASSERT(gone.placed() && slots_[gone.slot_].get() == &gone);
  const U32 freed = gone.slot_;
  const CuckooLocation location = locationOf(freed);
  const Nearest next = nearestWaiting({&location, 1});
  if (!next.item) {
    remove(gone);
    return {};
  }
  // What was closed stays so when nothing but closed rows is behind all that moves: the same rows
  // are full again.
  const bool wasClosed = isClosed(freed);
  bool stillClosed = wasClosed && leadsNowhereElse(rowsOf(*next.item));
  for (U32 from = nodes_[freed].from; stillClosed && from != noSlot; from = nodes_[from].from) {
    stillClosed = leadsNowhereElse(rows_[from]);
  }
  const Orb::Ptr<HashItem> keep(&gone);
  take(freed);
  gone.slot_ = HashItem::unplaced;
  --size_;
  SuccessionResult result = letIn(next, writer);
  const bool placed = result.insert.outcome == Outcome::placed;
  if (wasClosed && !(placed && stillClosed)) reopen();
  return result;
}

SuccessionResult Table::fill(std::span<const CuckooLocation> free, RowWriter& writer) {
  for (const CuckooLocation row : free) ORB_ASSERT(!at(row));
  const Nearest next = nearestWaiting(free);
  return next.item ? letIn(next, writer) : SuccessionResult{};
}

/// Carries out the way that nearestWaiting() found.
SuccessionResult Table::letIn(const Nearest& next, RowWriter& writer) {
  SuccessionResult result{Orb::Ptr<HashItem>(next.item), carryOut(*next.item, next.free, writer)};
  if (result.insert.outcome != Outcome::placed) waitDel(*next.item);
  return result;
}

HashItem* Table::successor(const HashItem& placed) {
  const CuckooLocation location = this->location(placed);
  return nearestWaiting({&location, 1}).item;
}

bool Table::hasRoom(const HashItem& item) {
  if (search(item, Search::pruned) != noSlot) return true;
  markClosed();
  return false;
}

/// Whether all rows of an item are closed.
bool Table::leadsNowhereElse(Rows rows) const {
  for (U8 way = 0; way < ways_; ++way) {
    if (!isClosed(candidateSlot(rows, way))) return false;
  }
  return true;
}

/// The waiting item that needs the fewest moves when the rows are free, and among those the one
/// that waited longest. Goes back from the rows to those whose items could move there, and on until
/// someone waits for one. The nodes then describe the path.
Table::Nearest Table::nearestWaiting(std::span<const CuckooLocation> free) {
  if (waiting_.empty()) [[likely]]
    return {nullptr, noSlot};
  searchBegin();
  // Here a row's `from` is the row that its item would move to.
  for (const CuckooLocation row : free) {
    const U32 slot = slotOf(row);
    reachedFrom(slot, noSlot);
  }
  HashItem* nearest = nullptr;
  U32 start = noSlot;
  for (U32 begin = 0; begin < reachedCount_ && !nearest;) {
    const U32 end = reachedCount_;  // rows of one distance
    for (U32 i = begin; i < end; ++i) {
      HashItem* first = waiting_.first(reached_[i]);
      if (!first || (nearest && waiting_.arrival(*nearest) < waiting_.arrival(*first))) continue;
      nearest = first;
      start = reached_[i];
    }
    for (; begin < end && !nearest; ++begin) {
      const U32 to = reached_[begin];
      openings_.forEach(*this, to, [&](U32 slot) {
        if (nodes_[slot].seen != searches_) reachedFrom(slot, to);
      });
    }
  }
  if (!nearest) return {nullptr, noSlot};
  // Turned round: a row's entry becomes the row that an item comes from.
  U32 from = noSlot;
  for (U32 slot = start; slot != noSlot;) {
    const U32 to = nodes_[slot].from;
    nodes_[slot].from = from;
    from = slot;
    slot = to;
  }
  return {nearest, from};
}

void Table::Openings::make(const Table& table) {
  heads_.resize(table.capacity(), noSlot);
  links_.resize(table.capacity() * table.ways_);
  if (table.ways_ == 2) {
    others_.resize(table.capacity());
    passed_.resize(table.capacity());
  }
  for (U32 slot = 0; slot < table.capacity(); ++slot) {
    if (table.slots_[slot]) add(table, slot);
  }
}

void Table::Openings::add(const Table& table, U32 slot) {
  for (U8 way = 0; way < table.ways_; ++way) {
    const U32 to = table.candidateSlot(table.rows_[slot], way);
    if (to == slot) continue;
    const U32 node = slot * table.ways_ + way;
    if (table.ways_ == 2) others_[slot] = to;
    links_[node] = {heads_[to], noSlot};
    if (heads_[to] != noSlot) links_[heads_[to]].previous = node;
    heads_[to] = node;
  }
}

void Table::Openings::del(const Table& table, U32 slot) {
  for (U8 way = 0; way < table.ways_; ++way) {
    const U32 to = table.candidateSlot(table.rows_[slot], way);
    if (to == slot) continue;
    const Link& link = links_[slot * table.ways_ + way];
    (link.previous == noSlot ? heads_[to] : links_[link.previous].next) = link.next;
    if (link.next != noSlot) links_[link.next].previous = link.previous;
  }
}

/// Every row leads to one other, so that these are two chains of rows. Both are followed at a time:
/// each of them waits for memory at every step.
U32 Table::Openings::follow(std::array<U32, 2> closed, std::vector<U32>& reached) {
  if (++passes_ == 0) {
    std::fill(passed_.begin(), passed_.end(), U16{0});
    passes_ = 1;
  }
  const U16 pass = passes_;
  U32 count = 0;
  const auto passes = [&](U32 slot) {
    if (passed_[slot] == pass) return false;
    passed_[slot] = pass;
    reached[count++] = slot;
    return true;
  };
  auto [one, other] = closed;
  bool oneGoesOn = passes(one);
  bool otherGoesOn = passes(other);
  while (oneGoesOn || otherGoesOn) {
    if (oneGoesOn) oneGoesOn = passes(one = others_[one]);
    if (otherGoesOn) otherGoesOn = passes(other = others_[other]);
  }
  return count;
}

void Table::replace(HashItem& held, HashItem& item) {
  ORB_ASSERT(held.placed() && !item.placed());
  const Orb::Ptr<HashItem> keep(&held);
  rowOf(item, 0);
  ORB_ASSERT(rowsOf(held) == rowsOf(item));
  if (item.waits()) waiting_.del(item);
  const U32 slot = held.slot_;
  take(slot);
  put(item, slot);
  held.slot_ = HashItem::unplaced;
}

bool Table::adopt(HashItem& item, CuckooLocation location) {
  ORB_ASSERT(!item.placed());
  if (location.way >= ways_ || rowOf(item, location.way) != location.row) return false;
  if (slots_[slotOf(location)]) return false;
  if (item.waits()) waiting_.del(item);
  put(item, slotOf(location));
  ++size_;
  return true;
}

std::span<const U32> Table::competitors(const HashItem& item) {
  rowOf(item, 0);
  const Rows rows = rowsOf(item);
  if (ways_ == 2 && openings_.made() && leadsNowhereElse(rows)) {
    const std::array<U32, 2> closed{candidateSlot(rows, 0), candidateSlot(rows, 1)};
    reachedCount_ = openings_.follow(closed, reached_);
  } else if (search(item, Search::whole) != noSlot) {
    return {};
  }
  return {reached_.data(), reachedCount_};
}

}  // namespace Keel::Cuckoo
