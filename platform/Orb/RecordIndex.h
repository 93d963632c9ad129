#pragma once

#include <vector>

#include "Orb/Types.h"

namespace Orb {

/// An open-addressing hash index of records that lie elsewhere and hold their keys. It knows them
/// by a hash of the key, the tag; who asks says whether a record is the one that is meant.
class VELA_EXPORT RecordIndex {
 public:
  U32 size() const { return size_; }  ///< Records.

  /// The record of the tag that `isIt(record)` is true of, or null.
  template <class IsIt>
  void* find(U32 tag, const IsIt& isIt) const {
    if (size_ == 0) return nullptr;
    for (U32 at = tag & mask(); slots_[at].record; at = (at + 1) & mask()) {
      if (slots_[at].tag == tag && isIt(slots_[at].record)) return slots_[at].record;
    }
    return nullptr;
  }
  /// A record of the tag is needed soon.
  void soon(U32 tag) const {
    if (size_ != 0) __builtin_prefetch(&slots_[tag & mask()]);
  }
  /// Adds a record whose key is not there.
  void add(U32 tag, void* record);
  /// Removes a record that is there, or puts another of the same key in its place.
  void remove(U32 tag, const void* record);
  void replace(U32 tag, const void* record, void* next);  ///< See remove().

  /// Makes room for `count` records, so that adding them allocates nothing.
  void reserve(U32 count);

  /// Calls `visit(record)` for every record, in no order. The index must not change meanwhile.
  template <class Visitor>
  void forEach(const Visitor& visit) const {
    for (const Slot& slot : slots_) {
      if (slot.record) visit(slot.record);
    }
  }

 private:
  struct Slot {
    void* record = nullptr;
    U32 tag = 0;

    bool taken() const { return record != nullptr; }
  };

  U32 mask() const { return static_cast<U32>(slots_.size()) - 1; }
  U32 position(U32 tag, const void* record) const;
  void put(U32 tag, void* record);
  void rehash(std::size_t slots);

  std::vector<Slot> slots_;  ///< A power of two of them, at most three quarters taken.
  U32 size_ = 0;
};

}  // namespace Orb
