#include "Orb/RecordIndex.h"

#include "Orb/OpenAddressing.h"

namespace Orb {

void RecordIndex::grow() { rehash(slots_.empty() ? 8 : slots_.size() * 2); }

/// What is behind the hole may take its place.
void RecordIndex::moveUp(U32 hole) {
  emptySlot(slots_, hole, [this](const Slot& slot) { return tagOf_(slot.record()); });
}

void RecordIndex::replace(U32 tag, const void* record, void* next) {
  slots_[position(tag, record)] = Slot(tag, next);
}

void RecordIndex::reserve(U32 count) {
  std::size_t slots = 8;
  while (std::size_t{count} * 4 > slots * 3) slots *= 2;
  if (slots > slots_.size()) rehash(slots);
}

void RecordIndex::rehash(std::size_t slots) {
  std::vector<Slot> old(slots);
  old.swap(slots_);
  mask_ = static_cast<U32>(slots) - 1;
  most_ = static_cast<U32>(slots / 4 * 3);
  forEachOf(
      old, [&](void* record) { put(tagOf_(record), record); }, NotSoon());
}

}  // namespace Orb
