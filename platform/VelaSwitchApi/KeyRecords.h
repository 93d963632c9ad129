#pragma once

#include <algorithm>
#include <array>
#include <vector>

#include "Orb/RecordIndex.h"
#include "Orb/Slab.h"
#include "Orb/Text.h"

/// What software tables know of their keys: one record for each.
namespace VelaSwitchTable {
template <class Key, class Result, class Record>
class EntryStore;
}

namespace VelaSwitchApi {

/// The record of a key, as far as it does not depend on the key's type. It is its table's as long
/// as any of its flags is set.
class VELA_EXPORT KeyRecord {
 public:
  enum Flag : U8 {
    desired,    ///< There is an entry.
    unclaimed,  ///< It was read from hardware, and nobody announced it since.
    marked,     ///< Its row was found different, or could not be written.
    cached,     ///< Of hash tables: it is programmed or waits to be.
    stated,     ///< Likewise: it has a status.
    noted,      ///< For whoever owns the table, as long as there is an entry.
  };
  static constexpr U8 flags = noted + 1;

  KeyRecord(const KeyRecord&) = delete;
  KeyRecord& operator=(const KeyRecord&) = delete;

  bool has(Flag flag) const { return (flags_ >> flag & 1) != 0; }
  /// Whether it is a table's.
  bool known() const { return flags_ != 0; }

  // The key, and those of other records of the same type.
  virtual U32 keyTag() const = 0;  ///< A hash of it.
  virtual bool hasKeyOf(const KeyRecord& other) const = 0;
  virtual bool comesBefore(const KeyRecord& other) const = 0;
  virtual void appendKey(Orb::TextSink& sink) const = 0;
  // Likewise the result.
  virtual bool hasResultOf(const KeyRecord& other) const = 0;
  /// Takes over the other's result; without one, the default.
  virtual void resultIsOf(const KeyRecord* other) = 0;

  // Records lie in the slab of their table, where they have one.
  static void* operator new(std::size_t size) { return Orb::Slab::take(nullptr, size); }
  static void* operator new(std::size_t size, Orb::Slab& slab) {
    return Orb::Slab::take(&slab, size);
  }
  static void operator delete(void* record) { Orb::Slab::give(record); }
  static void operator delete(void* record, Orb::Slab&) { Orb::Slab::give(record); }

 protected:
  KeyRecord() = default;
  virtual ~KeyRecord() = default;

 private:
  friend class KeyRecords;
  /// It is a table's from now on.
  virtual void taken() {}
  /// And now no more.
  virtual void given() { delete this; }

  U8 flags_ = 0;
};

/// The records of a table.
class VELA_EXPORT KeyRecords {
 public:
  using Flag = KeyRecord::Flag;

  KeyRecords(const KeyRecords&) = delete;
  KeyRecords& operator=(const KeyRecords&) = delete;

  /// Records that have the flag.
  U32 count(Flag flag) const { return counts_[flag]; }
  /// The most entries that there ever were.
  U32 peak() const { return peak_; }
  /// Records that have the flag, in ascending order of their keys. Each is valid as long as it has
  /// any flag.
  std::vector<const KeyRecord*> records(Flag flag) const;

  /// Calls `visit(record)` for each that has the flag, in no order. They must not change meanwhile.
  template <class Visitor>
  void forEachRecord(Flag flag, const Visitor& visit) const {
    if (count(flag) == 0) return;
    index_.forEach([&](const void* each) {
      const auto& record = *static_cast<const KeyRecord*>(each);
      if (record.has(flag)) visit(record);
    });
  }

  /// Sets or clears a note of an entry's.
  void noteIs(const KeyRecord& record, bool noted) {
    flagIs(const_cast<KeyRecord&>(record), KeyRecord::noted, noted);
  }

 protected:
  KeyRecords() = default;
  virtual ~KeyRecords();

  /// Where the records lie.
  Orb::Slab& slab() { return slab_; }
  /// Room for `count` keys, so that storing them allocates nothing.
  void reserve(U32 count);

  /// The record of the tag that `isIt(record)` is true of, or null.
  template <class IsIt>
  KeyRecord* findRecord(U32 tag, const IsIt& isIt) const {
    return static_cast<KeyRecord*>(index_.find(
        tag, [&](const void* record) { return isIt(*static_cast<const KeyRecord*>(record)); }));
  }

  /// The record of the other's key, or null.
  KeyRecord* recordOf(const KeyRecord& other) const {
    if (other.known()) [[likely]]
      return const_cast<KeyRecord*>(&other);
    return findRecord(other.keyTag(), [&](const KeyRecord& each) { return each.hasKeyOf(other); });
  }
  /// Whether the other's key has the flag.
  bool has(Flag flag, const KeyRecord& other) const {
    const KeyRecord* record = recordOf(other);
    return record && record->has(flag);
  }
  /// Whether it has an entry with the same result.
  bool hasEqual(const KeyRecord& other) const {
    const KeyRecord* record = recordOf(other);
    return record && record->has(KeyRecord::desired) && record->hasResultOf(other);
  }
  /// Gives a record the result of its key's entry, or the default when there is none, and says
  /// whether there is.
  bool update(KeyRecord& other) const;

  /// Adds a record of a new key; to be given a flag at once.
  void add(U32 tag, KeyRecord& record) {
    record.taken();
    index_.add(tag, &record);
  }
  /// Puts another record of the same key, without flags, in a record's place.
  void replace(KeyRecord& record, KeyRecord& next);
  /// A record that loses its last flag is given back.
  void flagIs(KeyRecord& record, Flag flag, bool set) {
    if (record.has(flag) == set) return;
    record.flags_ = static_cast<U8>(record.flags_ ^ 1 << flag);
    counts_[flag] += set ? 1 : ~U32{0};
    if (flag == KeyRecord::desired && set) peak_ = std::max(peak_, count(flag));
    if (record.flags_ == 0) drop(record);
  }
  /// Clears the flag of all records.
  void flagDelAll(Flag flag);

 private:
  void drop(KeyRecord& record);

  /// Who knows their keys and results.
  template <class Key, class Result, class Record>
  friend class ::VelaSwitchTable::EntryStore;

  Orb::RecordIndex index_;
  Orb::Slab slab_;
  std::array<U32, KeyRecord::flags> counts_{};
  U32 peak_ = 0;
};

}  // namespace VelaSwitchApi
