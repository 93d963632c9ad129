#pragma once

#include <utility>
#include <vector>

#include "Orb/OpenAddressing.h"
#include "Orb/Types.h"
#include "Orb/Value.h"

namespace Orb {

/// An open-addressing hash map: entries lie in one array, so storing one allocates nothing beyond
/// the array's occasional doubling. Iteration order is unspecified; a change to the map
/// invalidates what find() returned.
template <class Key, class T>
class Map {
 public:
  U32 size() const { return size_; }                               ///< Entries.
  bool empty() const { return size_ == 0; }                        ///< Has none.
  bool has(const Key& key) const { return find(key) != nullptr; }  ///< Whether the key has a value.

  /// The key's value, or null.
  const T* find(const Key& key) const {
    const U32 at = position(key);
    return at == none ? nullptr : &slots_[at].value;
  }
  /// The same, to be changed in place.
  T* find(const Key& key) {
    const U32 at = position(key);
    return at == none ? nullptr : &slots_[at].value;
  }

  /// The value of the key, and whether it is new: then it is default-constructed.
  std::pair<T*, bool> insert(const Key& key) {
    if ((size_ + 1) * 4 > slots_.size() * 3) rehash(slots_.empty() ? 8 : slots_.size() * 2);
    const U32 tag = tagOf(key);
    U32 at = tag & mask();
    while (slots_[at].tag != 0) {
      if (slots_[at].tag == tag && slots_[at].key == key) return {&slots_[at].value, false};
      at = (at + 1) & mask();
    }
    slots_[at].tag = tag;
    slots_[at].key = key;
    ++size_;
    return {&slots_[at].value, true};
  }

  /// Removes the key and says whether it was there.
  bool erase(const Key& key) {
    const U32 at = position(key);
    if (at == none) return false;
    emptySlot(slots_, at, [](const Slot& slot) { return slot.tag; });
    --size_;
    return true;
  }

  /// Makes room for `count` entries, so that storing them allocates nothing.
  void reserve(U32 count) {
    std::size_t slots = 8;
    while (count * 4 > slots * 3) slots *= 2;
    if (slots > slots_.size()) rehash(slots);
  }

  /// Removes all; what was reserved goes as well.
  void clear() {
    slots_.clear();
    size_ = 0;
  }

  /// Calls `visit(key, value)` for every entry. The map must not change meanwhile.
  template <class Visitor>
  void forEach(Visitor&& visit) const {
    for (const Slot& slot : slots_) {
      if (slot.tag != 0) visit(slot.key, slot.value);
    }
  }

 private:
  struct Slot {
    U32 tag = 0;  ///< Hash of the key, never 0 when the slot is taken.
    Key key{};
    T value{};

    bool taken() const { return tag != 0; }
  };
  static constexpr U32 none = ~U32{0};

  static U32 tagOf(const Key& key) {
    const U32 tag = static_cast<U32>(hashOf(key));
    return tag == 0 ? 1 : tag;
  }
  U32 mask() const { return static_cast<U32>(slots_.size()) - 1; }

  U32 position(const Key& key) const {
    if (size_ == 0) return none;
    const U32 tag = tagOf(key);
    for (U32 at = tag & mask(); slots_[at].tag != 0; at = (at + 1) & mask()) {
      if (slots_[at].tag == tag && slots_[at].key == key) return at;
    }
    return none;
  }

  void rehash(std::size_t slots) {
    std::vector<Slot> old(slots);
    old.swap(slots_);
    for (Slot& slot : old) {
      if (slot.tag == 0) continue;
      U32 at = slot.tag & mask();
      while (slots_[at].tag != 0) at = (at + 1) & mask();
      slots_[at] = std::move(slot);
    }
  }

  std::vector<Slot> slots_;  ///< A power of two of them, at most three quarters taken.
  U32 size_ = 0;
};

}  // namespace Orb
