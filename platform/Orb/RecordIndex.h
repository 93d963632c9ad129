#pragma once

#include <bit>
#include <vector>

#include "Orb/Assert.h"
#include "Orb/Types.h"

namespace Orb {

/// An open-addressing hash index of records that lie elsewhere and hold their keys. It knows them
/// by a hash of the key, the tag; who asks says whether a record is the one that is meant.
class VELA_EXPORT RecordIndex {
 public:
  using TagOf = U32 (*)(const void* record);  ///< The tag of a record that is in the index.
  /// Of records that say their tags so.
  explicit RecordIndex(TagOf tagOf) : tagOf_(tagOf) {}

  /// Fetches nothing for a visit; see forEach().
  struct NotSoon {
    void operator()(const void*) const {}  ///< Nothing.
  };

  U32 size() const { return size_; }  ///< Records.

  /// The record of the tag that `isIt(record)` is true of, or null.
  template <class IsIt>
  void* find(U32 tag, const IsIt& isIt) const {
    if (size_ == 0) return nullptr;
    for (U32 at = tag & mask_; slots_[at].taken(); at = (at + 1) & mask_) {
      if (slots_[at].mayBeOf(tag) && isIt(slots_[at].record())) return slots_[at].record();
    }
    return nullptr;
  }
  /// A record of the tag is needed soon.
  void soon(U32 tag) const {
    if (size_ != 0) __builtin_prefetch(&slots_[tag & mask_]);
    // GCC takes a function that does nothing but this for one without effect, and drops its calls.
    asm volatile("");
  }
  /// Adds a record whose key is not there.
  void add(U32 tag, void* record) {
    if (size_ == most_) [[unlikely]]
      grow();
    put(tag, record);
    ++size_;
  }
  /// Removes a record that is there, or puts another of the same key in its place.
  void remove(U32 tag, const void* record) {
    ORB_ASSERT(size_ != 0);
    const U32 hole = position(tag, record);
    if (slots_[(hole + 1) & mask_].taken()) {
      moveUp(hole);
    } else {
      slots_[hole] = Slot();
    }
    --size_;
  }
  void replace(U32 tag, const void* record, void* next);  ///< See remove().

  /// Makes room for `count` records, so that adding them allocates nothing.
  void reserve(U32 count);

  /// Calls `visit(record)` for every record, in no order. The index must not change meanwhile.
  /// `soon(record)` comes some records before that, to fetch what the visit is going to need.
  template <class Visitor, class Soon = NotSoon>
  void forEach(const Visitor& visit, const Soon& soon = {}) const {
    forEachOf(slots_, visit, soon);
  }

 private:
  /// A record's address in 48 bits, as many as there are to addresses of processes, below the upper
  /// half of its tag; the lower half names the slot.
  class Slot {
   public:
    Slot() = default;
    Slot(U32 tag, void* record) : word_(std::bit_cast<U64>(record) | U64{tag >> 16} << 48) {
      ORB_ASSERT(std::bit_cast<U64>(record) >> 48 == 0);
    }
    bool taken() const { return word_ != 0; }
    bool mayBeOf(U32 tag) const { return word_ >> 48 == tag >> 16; }
    void* record() const { return std::bit_cast<void*>(word_ & ~U64{0} >> 16); }

   private:
    U64 word_ = 0;
  };
  static_assert(sizeof(void*) == sizeof(U64));

  U32 position(U32 tag, const void* record) const {
    U32 at = tag & mask_;
    while (slots_[at].record() != record) {
      ORB_ASSERT(slots_[at].taken());
      at = (at + 1) & mask_;
    }
    return at;
  }
  void put(U32 tag, void* record) {
    U32 at = tag & mask_;
    while (slots_[at].taken()) at = (at + 1) & mask_;
    slots_[at] = Slot(tag, record);
  }
  void moveUp(U32 hole);
  void grow();
  /// Records lie anywhere in memory, so that they are fetched while others are visited.
  template <class Visitor, class Soon>
  static void forEachOf(const std::vector<Slot>& slots, const Visitor& visit, const Soon& soon) {
    constexpr std::size_t ahead = 8;
    for (std::size_t at = 0; at < slots.size(); ++at) {
      if (at + 2 * ahead < slots.size()) __builtin_prefetch(slots[at + 2 * ahead].record());
      if (at + ahead < slots.size() && slots[at + ahead].taken()) soon(slots[at + ahead].record());
      if (slots[at].taken()) visit(slots[at].record());
    }
  }
  void rehash(std::size_t slots);

  TagOf tagOf_;
  std::vector<Slot> slots_;  ///< A power of two of them, at most three quarters taken.
  U32 mask_ = 0;             ///< One less than there are.
  U32 most_ = 0;             ///< Records that there is room for.
  U32 size_ = 0;
};

}  // namespace Orb
