#include "Orb/RecordIndex.h"

#include "Orb/Assert.h"
#include "Orb/OpenAddressing.h"

namespace Orb {

void RecordIndex::add(U32 tag, void* record) {
  if ((size_ + 1) * std::size_t{4} > slots_.size() * 3) {
    rehash(slots_.empty() ? 8 : slots_.size() * 2);
  }
  put(tag, record);
  ++size_;
}

void RecordIndex::remove(U32 tag, const void* record) {
  ORB_ASSERT(size_ != 0);
  emptySlot(slots_, position(tag, record),
            [this](const Slot& slot) { return tagOf_(slot.record()); });
  --size_;
}

void RecordIndex::replace(U32 tag, const void* record, void* next) {
  slots_[position(tag, record)] = Slot(tag, next);
}

void RecordIndex::reserve(U32 count) {
  std::size_t slots = 8;
  while (std::size_t{count} * 4 > slots * 3) slots *= 2;
  if (slots > slots_.size()) rehash(slots);
}

U32 RecordIndex::position(U32 tag, const void* record) const {
  U32 at = tag & mask();
  while (slots_[at].record() != record) {
    ORB_ASSERT(slots_[at].taken());
    at = (at + 1) & mask();
  }
  return at;
}

void RecordIndex::put(U32 tag, void* record) {
  U32 at = tag & mask();
  while (slots_[at].taken()) at = (at + 1) & mask();
  slots_[at] = Slot(tag, record);
}

void RecordIndex::rehash(std::size_t slots) {
  std::vector<Slot> old(slots);
  old.swap(slots_);
  for (const Slot& slot : old) {
    if (slot.taken()) put(tagOf_(slot.record()), slot.record());
  }
}

}  // namespace Orb
