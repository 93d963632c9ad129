#pragma once

#include <algorithm>
#include <array>
#include <span>
#include <type_traits>
#include <utility>

#include "Orb/KeyObserver.h"
#include "Orb/Ptr.h"
#include "VelaSwitchApi/EntryRecord.h"

namespace VelaSwitchApi {

/// The desired entries of a software table, whatever its kind, with the marks on their keys. Every
/// change calls handleEntry(key), but for those that only say what hardware holds.
template <class Key_, class Result_, class Record_ = EntryRecord<Key_, Result_>>
class EntryStore {
 public:
  using Key = Key_;
  using Result = Result_;
  using Record = Record_;

 protected:
  static constexpr bool counted = requires(const Record& record) { record.referenceAdd(); };

 private:
  /// What an announcement or withdrawal is to the table.
  struct Change {
    bool known = false;  ///< It had been announced before, and not withdrawn since.
    bool changed = false;
    bool claimed = false;  ///< It had been read from hardware.
  };

 public:
  EntryStore(const EntryStore&) = delete;
  EntryStore& operator=(const EntryStore&) = delete;

  /// Brings what is desired of the key into hardware.
  virtual void handleEntry(const Key& key) = 0;

  /// Announces an entry. When an equal one is there nothing happens. Returns whether it changed.
  bool entryIs(const Key& key, const Result& result) { return entryIs(key, result, entryTag(key)); }
  /// The same when the key's hash is known.
  bool entryIs(const Key& key, const Result& result, U32 tag) {
    Record* record = recordOf(key, tag);
    if (record && isThere(*record, result)) return false;
    return announceUnlike(key, result, tag, record);
  }
  /// The same of a key whose record is known to the caller, who holds on to it.
  bool entryIs(Record& record, const Result& result) {
    if (isThere(record, result)) return false;
    check(record.key(), result);
    return announceOne(record.key(), record, result);
  }
  /// Withdraws an entry. Returns whether there was one.
  bool entryDel(const Key& key) {
    if (entryDelIfThere(key, true)) return true;
    handleAbsent(key);
    return false;
  }
  /// The same of a key whose record is known to the caller, who holds on to it.
  bool entryDel(Record& record) requires counted {
    const bool there = record.has(KeyRecord::desired);
    if (there) {
      withdrawOne(record.key(), record, true);
    } else {
      handleAbsent(record.key());
    }
    return there;
  }
  /// Announces the entries in order, with the same end as entryIs() of one after the other;
  /// likewise withdraws them. Rows go to the bus in runs, as far as they do not depend on each
  /// other. One outcome an entry. When one raises an assertion, and the handler of those does not
  /// end the process, those before it stand, and are told.
  std::vector<EntryOutcome> entriesAre(std::span<const std::pair<Key, Result>> entries) {
    EntryOutcomes outcomes(entries.size());
    const auto keyAt = [&](std::size_t number) -> const Key& { return entries[number].first; };
    const auto one = [&](Batch& batch, std::size_t number, U32 tag) {
      batch.entryIs(number, entries[number].first, entries[number].second, tag);
    };
    const auto group = [&](std::size_t number, std::span<const U32> tags) {
      return announceGroup(entries.subspan(number, tags.size()), tags.data(),
                           &outcomes.all[number]);
    };
    inBatch(entries.size(), keyAt, outcomes, one, group);
    return std::move(outcomes.all);
  }
  /// Withdraws the keys' entries, likewise.
  std::vector<EntryOutcome> entriesDel(std::span<const Key> keys) {
    EntryOutcomes outcomes(keys.size());
    const auto keyAt = [&](std::size_t number) -> const Key& { return keys[number]; };
    const auto one = [&](Batch& batch, std::size_t number, U32 tag) {
      batch.entryDel(number, keys[number], tag);
    };
    const auto group = [&](std::size_t number, std::span<const U32> tags) {
      return withdrawGroup(keys.subspan(number, tags.size()), tags.data(), &outcomes.all[number]);
    };
    inBatch(keys.size(), keyAt, outcomes, one, group);
    return std::move(outcomes.all);
  }
  /// The same for `count` entries, each a pair of key and result: `entryAt(number)`, whose key is
  /// `keyAt(number)`.
  template <class KeyAt, class EntryAt>
  void entriesAre(std::size_t count, const KeyAt& keyAt, const EntryAt& entryAt,
                  BatchListener& listener) {
    const auto one = [&](Batch& batch, std::size_t number, U32 tag) {
      const auto& [key, result] = entryAt(number);
      batch.entryIs(number, key, result, tag);
    };
    inBatch(count, keyAt, listener, one, [](auto&&...) { return std::size_t{0}; });
  }

  /// Entries that are announced or withdrawn together, for those who know them one by one. What is
  /// left staged in the end is written by a last flush().
  class Batch {
   public:
    /// Both must outlive it.
    Batch(EntryStore& store, BatchListener& listener)
        : store_(store), listener_(listener), gathers_(store.records_.gathers()) {
      if (gathers_) staged_.reserve(batchMost);
      ++store_.batches_;
    }
    ~Batch() { --store_.batches_; }
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    /// Announces the entry of the number, as EntryStore::entryIs() does; its rows may be staged.
    bool entryIs(std::size_t number, const Key& key, const Result& result) {
      return entryIs(number, key, result, entryTag(key));
    }
    /// The same when the key's hash is known.
    bool entryIs(std::size_t number, const Key& key, const Result& result, U32 tag) {
      // Whoever hears of what is told may announce others.
      if (flushing_) return store_.entryIs(key, result);
      if (!gathers_) return entryIsAtOnce(number, key, result, tag);
      Record* record = begin(number, key, tag, true);
      store_.check(key, result);
      if (!record) record = &store_.newRecordIs(key, tag);
      const bool same = record->has(KeyRecord::desired) && sameEntry(record->result(), result);
      const bool told =
          same && store_.records_.statusOf(record) == EntryProgrammedStatus::programmed;
      const bool stageable = !same && mayStage(*record, true);
      if (!told && !stageable && !staged_.empty()) {
        // Held on to, for it may be new.
        store_.records_.flagIs(*record, KeyRecord::staged, true);
        flushFirst();
        record = &store_.recordIs(key);
      }
      const Change change = store_.announce(*record, result);
      store_.records_.flagIs(*record, KeyRecord::staged, false);
      if (stageable) store_.records_.stage(*record);
      if (stageable || told) {
        add(*record, change);
      } else {
        store_.records_.flush();
        if (change.changed) store_.handleRecord(key, *record);
        tell(key, number, change, nullptr);
      }
      return change.changed;
    }
    /// The same as EntryStore::entryDel(); `tag` is the key's hash.
    bool entryDel(std::size_t number, const Key& given, U32 tag) {
      if (flushing_) return store_.entryDel(given);
      const Key key = given;
      if (!gathers_) {
        listener_.entryBegins(number);
        return entryDelAtOnce(number, key, tag);
      }
      Record* record = begin(number, key, tag, false);
      const bool stageable = record && record->has(KeyRecord::desired) && mayStage(*record, false);
      if (!stageable) {
        flushFirst();
        return entryDelAtOnce(number, key, tag);
      }
      store_.records_.flagIs(*record, KeyRecord::staged, true);
      const Change change = store_.withdraw(*record);
      store_.records_.stage(*record);
      add(*record, change);
      return true;
    }
    /// Writes what is staged, and tells what became of it.
    void flush() {
      if (staged_.empty() || flushing_) return;
      const Flushing flushing(flushing_);
      store_.records_.flush();
      // Whoever hears of one may throw: the others are told all the same, by the next flush.
      while (told_ < staged_.size()) {
        const Staged& each = staged_[told_++];
        // It may go with its record, which is held on to where records are counted.
        const std::conditional_t<counted, const Key&, const Key> key = each.record->key();
        if (each.change.changed) {
          store_.records_.settle(*each.record);
        } else {
          store_.records_.flagIs(*each.record, KeyRecord::staged, false);
        }
        tell(key, each.number, each.change, &*each.record);
      }
      staged_.clear();
      told_ = 0;
    }

   private:
    struct Flushing {
      explicit Flushing(bool& now) : flushing(now) { flushing = true; }
      ~Flushing() { flushing = false; }
      bool& flushing;
    };

    bool entryIsAtOnce(std::size_t number, const Key& key, const Result& result, U32 tag) {
      listener_.entryBegins(number);
      Record* record = store_.recordOf(key, tag);
      Change change{true, false, false};
      if (!record || !isThere(*record, result)) {
        store_.check(key, result);
        if (!record) record = &store_.newRecordIs(key, tag);
        const U32 gone = store_.records_.gone_;
        change = store_.announce(*record, result);
        if (change.changed) store_.handleRecord(key, *record);
        store_.tell(key, change);
        // It may have gone, or another may have come.
        if (store_.records_.gone_ != gone) record = store_.recordOf(key, tag);
      }
      done(number, change, record);
      return change.changed;
    }
    bool entryDelAtOnce(std::size_t number, const Key& key, U32 tag) {
      Record* record = store_.recordOf(key, tag);
      const bool changed = record && record->has(KeyRecord::desired);
      const bool known = changed && !record->has(KeyRecord::unclaimed);
      if (changed) {
        store_.withdrawOne(key, *record, true);
      } else {
        store_.handleAbsent(key);
      }
      done(number, {known, changed, false}, store_.find(key, tag));
      return changed;
    }

    /// Something is about to happen to a key, whose record is returned, or null. It may be in a
    /// batch twice; and rows that are cleared are not written in one run with what comes into them.
    Record* begin(std::size_t number, const Key& key, U32 tag, bool announces) {
      Record* record = store_.recordOf(key, tag);
      if (staged_.size() == batchMost || announces != announces_ ||
          (record && record->has(KeyRecord::staged))) {
        flush();
        record = store_.recordOf(key, tag);
      }
      announces_ = announces;
      listener_.entryBegins(number_ = number);
      store_.records_.stagedNumberIs(number);
      return record;
    }
    /// For an entry that cannot be staged: what is written next is written for it.
    void flushFirst() {
      // Other tables may have staged rows as well.
      if (staged_.empty()) return store_.records_.flush();
      flush();
      listener_.entryBegins(number_);
    }
    /// One within another is none: whoever hears of this one's entries may announce others.
    bool mayStage(const Record& record, bool desired) const {
      return store_.batches_ == 1 && store_.records_.stageable(record, desired);
    }
    void add(Record& record, const Change& change) {
      store_.records_.flagIs(record, KeyRecord::staged, true);
      staged_.push_back({&record, number_, change});
    }
    struct Staged {
      std::conditional_t<counted, Orb::Ptr<Record>, Record*> record;
      std::size_t number;
      Change change;
    };

    void tell(const Key& key, std::size_t number, const Change& change, const Record* record) {
      store_.tell(key, change);
      if (!counted || !record || !record->known()) record = store_.find(key);
      done(number, change, record);
    }
    void done(std::size_t number, const Change& change, const Record* record) {
      listener_.entryDone(number, {change.known, change.changed, store_.records_.statusOf(record)});
    }

    EntryStore& store_;
    BatchListener& listener_;
    const bool gathers_;  ///< See KeyRecords.
    std::size_t number_ = 0;
    bool announces_ = true;  ///< Those that are staged, rather than withdraws.
    bool flushing_ = false;
    std::vector<Staged> staged_;
    std::size_t told_ = 0;  ///< How many of them were told what became of them.
  };

  /// Withdraws all entries, in ascending order of their keys.
  void entryDelAll() {
    for (const Key& key : keys(KeyRecord::desired)) entryDelIfThere(key, true);
  }
  /// The key's result, or null. Valid until the next change.
  const Result* entry(const Key& key) const {
    const Record* record = find(key);
    return record && record->has(KeyRecord::desired) ? &record->result() : nullptr;
  }
  /// To be looked at.
  EntriesView<const EntryStore> entries() const { return EntriesView(*this); }
  EntriesView<EntryStore> entries() { return EntriesView(*this); }  ///< To be watched as well.

  /// Marks a key whose hardware row was found different, or could not be written.
  void hwInconsistentEntryIs(const Key& key, bool inconsistent) {
    if (!inconsistent) return hwInconsistentEntryDel(key);
    records_.flagIs(recordIs(key), KeyRecord::marked, true);
  }
  /// The key's row is right again.
  void hwInconsistentEntryDel(const Key& key) {
    if (Record* record = findMarked(key)) records_.flagIs(*record, KeyRecord::marked, false);
  }
  /// Forgets all marks.
  void hwInconsistentEntryDelAll() { records_.flagDelAll(KeyRecord::marked); }
  /// Whether the key is marked so.
  bool hwInconsistentEntry(const Key& key) const { return findMarked(key) != nullptr; }
  /// The keys marked so, in ascending order.
  std::vector<Key> hwInconsistentKeys() const { return keys(KeyRecord::marked); }

  /// Keys that were read from hardware and that nobody announced since.
  std::vector<Key> unclaimedKeys() const { return keys(KeyRecord::unclaimed); }
  /// Whether the key is one of them.
  bool unclaimed(const Key& key) const {
    if (unclaimed() == 0) return false;
    const Record* record = find(key);
    return record && record->has(KeyRecord::unclaimed);
  }
  U32 unclaimed() const { return records_.count(KeyRecord::unclaimed); }  ///< How many they are.
  /// What became of the key's entry; notProgrammed when there is none.
  EntryProgrammedStatus status(const Key& key) const { return records_.statusOf(find(key)); }
  /// Those who want to hear of keys that were read from hardware and are announced now, whether or
  /// not their entry changes. They must be removed before they go.
  void claimObserverIs(Orb::KeyObserver<Key>* observer) { claimObservers_.observerIs(observer); }
  /// One that is not there changes nothing.
  void claimObserverDel(Orb::KeyObserver<Key>* observer) { claimObservers_.observerDel(observer); }

  /// The key's record, or null.
  const Record* find(const Key& key) const { return find(key, entryTag(key)); }
  /// The same when the key's hash is known.
  [[gnu::always_inline]] const Record* find(const Key& key, U32 tag) const {
    return static_cast<const Record*>(records_.findRecord(tag, isOf(key)));
  }
  /// What is known of the key with the hash is needed soon.
  void soon(U32 tag) const { records_.index_.soon(tag); }
  /// Which key and result a record of the table is for.
  static const Record& of(const KeyRecord& record) { return static_cast<const Record&>(record); }
  /// Keys whose records have the flag, in ascending order.
  std::vector<Key> keys(KeyRecord::Flag flag) const {
    std::vector<Key> keys;
    keys.reserve(records_.count(flag));
    for (const KeyRecord* record : records_.records(flag)) keys.push_back(of(*record).key());
    return keys;
  }

 protected:
  /// `records` is that of the table; `checks` says whether checkEntry() asserts anything.
  EntryStore(KeyRecords& records, bool checks) : records_(records), checks_(checks) {}
  virtual ~EntryStore() = default;

  /// A record for a key that has none, `tag` being its hash. Where records are counted, nobody has
  /// a handle of it yet.
  virtual Record* newRecord(const Key& key, U32 tag) = 0;

  /// What groupRecords() says, with `make(key, tag)` for newRecord(), which the compiler knows
  /// then.
  template <class Make>
  [[gnu::always_inline]] void groupRecordsOf(std::span<const std::pair<Key, Result>> entries,
                                             const U32* tags, KeyRecord** records,
                                             std::size_t& count, const Make& make) {
    for (; count != entries.size(); ++count) {
      const Key& key = entries[count].first;
      bool isNew = false;
      Record& record = recordIs(
          key, tags[count], [&]() __attribute__((always_inline)) {
            isNew = true;
            return make(key, tags[count]);
          });
      if (isNew) {
        record.resultIs(entries[count].second);
      } else if (!isThere(record, entries[count].second)) {
        return;
      }
      records[count] = &record;
    }
  }

  /// The key's record, or null.
  Record* recordOf(const Key& key) const { return const_cast<Record*>(find(key)); }
  [[gnu::always_inline]] Record* recordOf(const Key& key, U32 tag) const {
    return const_cast<Record*>(find(key, tag));
  }
  /// The same, made when there is none; to be given a flag at once.
  Record& recordIs(const Key& key) {
    const U32 tag = entryTag(key);
    return recordIs(key, tag, [&] { return newRecord(key, tag); });
  }
  template <class Make>
  [[gnu::always_inline]] Record& recordIs(const Key& key, U32 tag, const Make& make) {
    const auto takenOf = [&]() __attribute__((always_inline)) { return taken(make()); };
    return static_cast<Record&>(records_.foundRecordIs(tag, isOf(key), takenOf));
  }
  Record& newRecordIs(const Key& key, U32 tag) {
    Record* record = taken(newRecord(key, tag));
    records_.addTaken(*record, tag);
    return *record;
  }
  /// Whether a record is the key's.
  static auto isOf(const Key& key) {
    return [&key](const KeyRecord& record) { return sameKey(of(record).key(), key); };
  }
  /// A new record, which is the table's from now on.
  static Record* taken(Record* record) {
    if constexpr (counted) record->referenceAdd();
    return record;
  }
  /// Takes over what hardware holds.
  void entryIsFromHw(const Key& key, const Result& result) {
    Record& record = recordIs(key);
    const bool changed = !record.has(KeyRecord::desired) || record.result() != result;
    record.resultIs(result);
    records_.flagIs(record, KeyRecord::desired, true);
    records_.flagIs(record, KeyRecord::unclaimed, true);
    if (changed) handleChange(key, false);
  }
  /// The table hears of a change before all others: whatever those do then is theirs.
  void handleChange(const Key& key, bool handled) {
    if (handled) handleEntry(key);
    observers_.handleKey(key);
  }
  /// Forgets an entry without touching its row.
  void entryForget(const Key& key) { entryDelIfThere(key, false); }
  /// Asserts what must hold of an entry, before anything of it is stored.
  virtual void checkEntry(const Key&, const Result&) const {}
  /// Handles the key of a record that has just changed; the key may lie in it.
  virtual void handleRecord(const Key& key, Record&) { handleEntry(key); }
  /// A key is withdrawn that has no entry. Hardware may have one that could not be read, or that
  /// was read under another spelling of the key.
  virtual void handleAbsent(const Key&) {}
  /// The records of a group of entries, from the first one on: new ones, without flags, and those
  /// of entries that are there. `count` says how many, also when an assertion is raised. A table
  /// that has no groups need not say any.
  virtual void groupRecords(std::span<const std::pair<Key, Result>> /*entries*/,
                            const U32* /*tags*/, KeyRecord** /*records*/, std::size_t& /*count*/) {}

 private:
  friend EntriesView<EntryStore>;
  friend EntriesView<const EntryStore>;

  /// Whether announcing the entry changes nothing at all. It was checked when it was announced.
  static bool isThere(const Record& record, const Result& result) {
    return record.announced() && sameEntry(record.result(), result);
  }
  void check(const Key& key, const Result& result) const {
    if (checks_) checkEntry(key, result);
  }
  /// Announces the entry of a key of which nothing is known.
  bool announceNew(const Key& key, U32 tag, const Result& result) {
    Record& record = newRecordIs(key, tag);
    record.resultIs(result);
    records_.flagIs(record, KeyRecord::desired, true);
    handleRecord(key, record);
    observers_.handleKey(key);
    return true;
  }
  /// Out of line, so that an announcement that changes nothing takes little.
  [[gnu::noinline]] bool announceUnlike(const Key& key, const Result& result, U32 tag,
                                        Record* record) {
    check(key, result);
    return record ? announceOne(key, *record, result) : announceNew(key, tag, result);
  }
  bool announceOne(const Key& key, Record& record, const Result& result) {
    const Change change = announce(record, result);
    if (change.changed) handleRecord(key, record);
    tell(key, change);
    return change.changed;
  }
  Record* findMarked(const Key& key) const {
    if (records_.count(KeyRecord::marked) == 0) return nullptr;
    Record* record = recordOf(key);
    return record && record->has(KeyRecord::marked) ? record : nullptr;
  }
  bool entryDelIfThere(const Key& given, bool handled) {
    Record* record = recordOf(given);
    if (!record || !record->has(KeyRecord::desired)) return false;
    // The caller may have handed over the very key that lies in the record, which goes with its
    // last flag.
    withdrawOne(Key(given), *record, handled);
    return true;
  }
  void withdrawOne(const Key& key, Record& record, bool handled) {
    const bool stays = record.has(KeyRecord::cached);
    withdraw(record);
    if (handled && stays) handleRecord(key, record);
    handleChange(key, handled && !stays);
  }

  Change announce(Record& record, const Result& result) {
    const bool desired = record.has(KeyRecord::desired);
    const bool claimed = record.has(KeyRecord::unclaimed);
    const Change change{desired && !claimed, !desired || !sameEntry(record.result(), result),
                        claimed};
    if (change.changed) {
      record.resultIs(result);
      records_.flagIs(record, KeyRecord::desired, true);
    }
    records_.flagIs(record, KeyRecord::unclaimed, false);
    return change;
  }
  Change withdraw(Record& record) {
    const Change change{!record.has(KeyRecord::unclaimed), true, false};
    records_.entryGone(record);
    return change;
  }
  void tell(const Key& key, const Change& change) const {
    if (change.changed) observers_.handleKey(key);
    if (change.claimed) claimObservers_.handleKey(key);
  }

  /// Announces a group of entries, from the first one on; says how many there are in it.
  std::size_t announceGroup(std::span<const std::pair<Key, Result>> entries, const U32* tags,
                            EntryOutcome* outcomes) {
    if (checks_ || !observers_.empty() || !records_.mayGroup()) return 0;
    std::array<KeyRecord*, batchMost> records;
    std::size_t count = 0;
    const auto program = [&] { return records_.groupIs({records.data(), count}, outcomes); };
    try {
      groupRecords(entries, tags, records.data(), count);
    } catch (...) {
      // Behind one that is to be announced by itself, it is raised once more in its turn.
      if (const std::size_t done = program(); done < count) return done;
      throw;
    }
    return program();
  }
  /// Withdraws entries likewise.
  std::size_t withdrawGroup(std::span<const Key> keys, const U32* tags, EntryOutcome* outcomes) {
    if (!observers_.empty() || !records_.mayGroup()) return 0;
    std::array<KeyRecord*, batchMost> records;
    std::size_t count = 0;
    for (; count != keys.size(); ++count) {
      Record* record = recordOf(keys[count], tags[count]);
      if (!record || !record->settled()) break;
      records_.flagIs(*record, KeyRecord::staged, true);
      records[count] = record;
    }
    return records_.groupDel({records.data(), count}, outcomes);
  }

  /// Does as many entries together as `group(number, tags)` can, which says how many that were, and
  /// the others one by one, by `one(batch, number, tag)`. Keys are hashed ahead, so that what is
  /// known of them is on its way when it is needed.
  template <class KeyAt, class One, class Group>
  void inBatch(std::size_t count, const KeyAt& keyAt, BatchListener& listener, const One& one,
               const Group& group) {
    Batch batch(*this, listener);
    std::array<U32, batchMost> tags;
    try {
      for (std::size_t first = 0; first < count; first += batchMost) {
        const std::size_t ahead = std::min(count - first, batchMost);
        for (std::size_t i = 0; i < ahead; ++i) {
          tags[i] = entryTag(keyAt(first + i));
          soon(tags[i]);
        }
        // Two in a row that are in no group: those behind them likely are not either.
        bool grouped = true;
        for (std::size_t i = 0; i < ahead; ++i) {
          const std::size_t done = grouped ? group(first + i, std::span(&tags[i], ahead - i)) : 0;
          grouped = done != 0;
          i += done;
          if (i < ahead) one(batch, first + i, tags[i]);
        }
      }
      batch.flush();
    } catch (...) {
      batch.flush();
      throw;
    }
  }

  KeyRecords& records_;
  const bool checks_;
  U32 batches_ = 0;  ///< Under way, one within another.
  Orb::KeyObservers<Key> observers_;
  Orb::KeyObservers<Key> claimObservers_;
};

}  // namespace VelaSwitchApi
