#pragma once

#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include "Orb/RecordIndex.h"
#include "Orb/Slab.h"
#include "Orb/Text.h"

/// What software tables know of their keys: one record for each.
namespace VelaSwitchApi {

template <class Key, class Result, class Record>
class EntryStore;

/// Outcome of the last attempt to program an entry.
enum class EntryProgrammedStatus : U8 {
  notProgrammed,
  programmed,
  tableFull,      ///< No arrangement of the table's entries has room for it.
  hardwareError,  ///< A register access failed; what hardware holds is not what is desired.
  duplicateKey,   ///< Hardware cannot tell it from an entry that was there before.
};
VELA_EXPORT const char* nameOf(EntryProgrammedStatus status);  ///< As it stands here; a literal.
inline void appendText(Orb::TextSink& sink, EntryProgrammedStatus status) {
  sink.append(nameOf(status));
}
VELA_EXPORT void parseText(Orb::TextCursor& cursor, EntryProgrammedStatus& status);

/// Entries whose rows go to the bus together, at most.
inline constexpr std::size_t batchMost = 64;

/// What became of an entry of a batch, as it stands when it is told.
struct EntryOutcome {
  bool known;                    ///< It had been announced before, and not withdrawn since.
  bool changed;                  ///< As entryIs() and entryDel() return it.
  EntryProgrammedStatus status;  ///< As EntryStore::status() says then.
};

/// Hears how a batch goes on.
class BatchListener {
 public:
  /// The entry of the number is announced or withdrawn now: what is written next, row by row, is
  /// for it. Its outcome may follow later, and this come a second time before. The table must not
  /// be changed meanwhile.
  virtual void entryBegins(std::size_t /*number*/) {}
  /// All rows of the entry are written, or failed, and so is all that came before it. Called once
  /// for each entry, in order.
  virtual void entryDone(std::size_t number, const EntryOutcome& outcome) = 0;

 protected:
  ~BatchListener() = default;
};

/// Keeps what it hears.
struct EntryOutcomes final : BatchListener {
  /// Of so many entries.
  explicit EntryOutcomes(std::size_t count) : all(count) {}
  std::vector<EntryOutcome> all;  ///< In the order of the batch.
  void entryDone(std::size_t number, const EntryOutcome& outcome) override {
    all[number] = outcome;
  }
};

/// The record of a key, as far as it does not depend on the key's type. It is its table's as long
/// as any of its flags is set.
class VELA_EXPORT KeyRecord {
 public:
  /// What is so of the key.
  enum Flag : U8 {
    desired,    ///< There is an entry.
    unclaimed,  ///< It was read from hardware, and nobody announced it since.
    marked,     ///< Its row was found different, or could not be written.
    cached,     ///< Of hash tables: it is programmed or waits to be.
    stated,     ///< Likewise: it has a status.
    noted,      ///< For whoever owns the table, as long as there is an entry.
    staged,     ///< Its rows are to be written with others of a batch.
  };
  static constexpr U8 flags = staged + 1;  ///< How many there are.

  KeyRecord(const KeyRecord&) = delete;
  KeyRecord& operator=(const KeyRecord&) = delete;

  bool has(Flag flag) const { return (flags_ >> flag & 1) != 0; }  ///< Whether that is so.
  /// Whether there is an entry that was announced.
  bool announced() const { return (flags_ & (1 << desired | 1 << unclaimed)) == 1 << desired; }
  /// Whether there is an entry that was announced and handed on, whatever came of it, and nothing
  /// else is so.
  bool settled() const { return flags_ == (1 << desired | 1 << cached | 1 << stated); }
  /// Whether it is a table's.
  bool known() const { return flags_ != 0; }

  // The key, and those of other records of the same type.
  U32 keyTag() const { return tag_; }                          ///< A hash of it.
  virtual bool hasKeyOf(const KeyRecord& other) const = 0;     ///< The same key.
  virtual bool comesBefore(const KeyRecord& other) const = 0;  ///< In ascending order of keys.
  virtual void appendKey(Orb::TextSink& sink) const = 0;       ///< The key's text form.
  // Likewise the result.
  virtual bool hasResultOf(const KeyRecord& other) const = 0;  ///< The same result.
  /// Takes over the other's result; without one, the default.
  virtual void resultIsOf(const KeyRecord* other) = 0;

  // Records lie in the slab of their table, where they have one.
  static void* operator new(std::size_t size) { return Orb::Slab::take(nullptr, size); }
  /// One of the slab's, which must outlive it.
  [[gnu::always_inline]] static void* operator new(std::size_t size, Orb::Slab& slab) {
    return Orb::Slab::take(&slab, size);
  }
  static void operator delete(void* record) { Orb::Slab::give(record); }
  static void operator delete(void* record, Orb::Slab&) { Orb::Slab::give(record); }

 protected:
  explicit KeyRecord(U32 tag) : tag_(tag) {}
  virtual ~KeyRecord() = default;

 private:
  friend class KeyRecords;
  /// It is a table's from now on.
  virtual void taken() {}
  /// And now no more.
  virtual void given() { delete this; }

  U32 tag_;
  U8 flags_ = 0;
};

/// The text form of its key.
inline void appendText(Orb::TextSink& sink, const KeyRecord& record) { record.appendKey(sink); }

/// The records of a table.
class VELA_EXPORT KeyRecords {
 public:
  using Flag = KeyRecord::Flag;

  KeyRecords(const KeyRecords&) = delete;
  KeyRecords& operator=(const KeyRecords&) = delete;

  /// What became of the entry of the record, which may be null.
  virtual EntryProgrammedStatus statusOf(const KeyRecord* record) const = 0;

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
  /// Room for `count` keys with records of the size, so that storing them allocates nothing.
  void reserve(U32 count, std::size_t recordSize);

  /// The record of the tag that `isIt(record)` is true of, or null.
  template <class IsIt>
  [[gnu::always_inline]] KeyRecord* findRecord(U32 tag, const IsIt& isIt) const {
    return static_cast<KeyRecord*>(index_.find(tag, asked(isIt)));
  }
  /// The same, or where there is none the one that `make()` makes, to be given a flag before
  /// another key is looked at or with its group; the tag is its keyTag(), and it is the table's
  /// already.
  template <class IsIt, class Make>
  [[gnu::always_inline]] KeyRecord& foundRecordIs(U32 tag, const IsIt& isIt, const Make& make) {
    return *static_cast<KeyRecord*>(index_.findOrAdd(
        tag, asked(isIt), [&]() -> void* { return static_cast<KeyRecord*>(make()); }));
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
  bool update(KeyRecord& other) const {
    if (other.has(KeyRecord::desired)) [[likely]]
      return true;
    if (!other.known()) return updateFromRecord(other);
    other.resultIsOf(nullptr);
    return false;
  }

  /// Adds a record of a new key; to be given a flag at once.
  void add(KeyRecord& record) {
    record.taken();
    addTaken(record, record.keyTag());
  }
  /// The same of one that is the table's already; `tag` is its keyTag().
  void addTaken(KeyRecord& record, U32 tag) { index_.add(tag, &record); }
  /// Puts another record of the same key, without flags, in a record's place.
  void replace(KeyRecord& record, KeyRecord& next);
  /// A record that loses its last flag is given back.
  [[gnu::always_inline]] void flagIs(KeyRecord& record, Flag flag, bool set) {
    if (record.has(flag) == set) return;
    const U8 others = static_cast<U8>(record.flags_ & ~(1 << flag));
    record.flags_ = static_cast<U8>(others | U8{set} << flag);
    counts_[flag] += set ? 1 : ~U32{0};
    if (flag == KeyRecord::desired && set) peak_ = std::max(peak_, count(flag));
    if (!set && others == 0) drop(record);
  }
  /// There is no entry any more, and nothing is so of it.
  void entryGone(KeyRecord& record) {
    if (record.flags_ & (1 << KeyRecord::unclaimed | 1 << KeyRecord::noted)) [[unlikely]] {
      flagIs(record, KeyRecord::unclaimed, false);
      flagIs(record, KeyRecord::noted, false);
    }
    flagIs(record, KeyRecord::desired, false);
  }
  /// A record without flags is settled() from now on.
  void settledIs(KeyRecord& record) {
    record.flags_ = 1 << KeyRecord::desired | 1 << KeyRecord::cached | 1 << KeyRecord::stated;
    ++counts_[KeyRecord::cached];
    ++counts_[KeyRecord::stated];
    peak_ = std::max(peak_, ++counts_[KeyRecord::desired]);
  }
  /// There is no entry any more of a record that was settled() until it was staged.
  void stagedGone(KeyRecord& record) {
    for (const Flag flag :
         {KeyRecord::desired, KeyRecord::cached, KeyRecord::stated, KeyRecord::staged})
      --counts_[flag];
    record.flags_ = 0;
    drop(record);
  }
  /// Clears the flag of all records.
  void flagDelAll(Flag flag);

  /// Whether rows of a batch are staged at all, rather than written as they come.
  virtual bool gathers() const = 0;
  /// Whether what is to be done for the key, whose entry is `desired` or is withdrawn, concerns no
  /// other entries and no rows that failed.
  virtual bool stageable(const KeyRecord& record, bool desired) const = 0;
  /// Does it, but for the rows, which are written by the next flush.
  virtual void stage(KeyRecord& record) = 0;
  /// Writes the rows that are staged; `number` says of which entry of a batch the next ones are.
  virtual void flush() = 0;
  virtual void stagedNumberIs(std::size_t number) = 0;
  /// The record's rows were flushed: brings what is known of its key up to date.
  virtual void settle(KeyRecord& record) = 0;
  /// Whether entries of a batch are announced and withdrawn in groups, by the operations below:
  /// nobody but their table is to hear of any, and rows are written as they come.
  virtual bool mayGroup() const { return false; }
  /// Announces entries in order: that of a record without flags is new, others are there already.
  /// Ends in front of one that concerns others, or rows that failed; says how many it announced.
  /// New records from there on stay without flags until their entries are announced.
  virtual std::size_t groupIs(std::span<KeyRecord* const> /*records*/, EntryOutcome* /*outcomes*/) {
    return 0;
  }
  /// Likewise withdraws entries that were settled() until they were `staged`, which those behind
  /// them are no more.
  virtual std::size_t groupDel(std::span<KeyRecord* const> /*records*/,
                               EntryOutcome* /*outcomes*/) {
    return 0;
  }

 private:
  bool updateFromRecord(KeyRecord& other) const;
  void drop(KeyRecord& record);

  /// A question about a record, as the index asks it. By value: it is in registers then.
  template <class IsIt>
  static auto asked(IsIt isIt) {
    return [isIt](const void* record) { return isIt(*static_cast<const KeyRecord*>(record)); };
  }

  /// Who knows their keys and results.
  template <class Key, class Result, class Record>
  friend class EntryStore;

  Orb::RecordIndex index_{
      [](const void* record) { return static_cast<const KeyRecord*>(record)->keyTag(); }};
  Orb::Slab slab_;
  std::array<U32, KeyRecord::flags> counts_{};
  U32 peak_ = 0;
  U32 gone_ = 0;  ///< Records that were given back: while it is the same, those known stay.
};

}  // namespace VelaSwitchApi
