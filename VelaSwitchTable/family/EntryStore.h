#pragma once

#include <type_traits>
#include <utility>

#include "Orb/Collection.h"
#include "Orb/Ptr.h"
#include "Trace/Trace.h"
#include "VelaSwitchApi/EntryRecord.h"

namespace VelaSwitchTable {

using VelaSwitchApi::EntriesView;
using VelaSwitchApi::EntryRecord;
using VelaSwitchApi::entryTag;
using VelaSwitchApi::KeyRecord;
using VelaSwitchApi::KeyRecords;

/// The desired entries of a software table, whatever its kind, with the marks on their keys. Every
/// change calls handleEntry(key), but for those that only say what hardware holds.
template <class Key_, class Result_, class Record_ = EntryRecord<Key_, Result_>>
class EntryStore {
 public:
  using Key = Key_;
  using Result = Result_;
  using Record = Record_;

  EntryStore(const EntryStore&) = delete;
  EntryStore& operator=(const EntryStore&) = delete;

  /// Brings what is desired of the key into hardware.
  virtual void handleEntry(const Key& key) = 0;

  /// Announces an entry. When an equal one is there nothing happens. Returns whether it changed.
  bool entryIs(const Key& key, const Result& result) {
    checkEntry(key, result);
    Record& record = recordIs(key);
    const bool claimed = record.has(KeyRecord::unclaimed);
    const bool changed = !record.has(KeyRecord::desired) || record.result() != result;
    if (changed) {
      record.resultIs(result);
      records_.flagIs(record, KeyRecord::desired, true);
    }
    records_.flagIs(record, KeyRecord::unclaimed, false);
    if (changed) {
      handleRecord(key, record);
      observers_.handleKey(key);
    }
    if (claimed) claimObservers_.handleKey(key);
    return changed;
  }
  bool entryDel(const Key& key) {
    if (entryDelIfThere(key, true)) return true;
    handleAbsent(key);
    return false;
  }
  void entryDelAll() {
    for (const Key& key : keys(KeyRecord::desired)) entryDelIfThere(key, true);
  }
  /// The key's result, or null. Valid until the next change.
  const Result* entry(const Key& key) const {
    const Record* record = find(key);
    return record && record->has(KeyRecord::desired) ? &record->result() : nullptr;
  }
  EntriesView<const EntryStore> entries() const { return EntriesView(*this); }
  EntriesView<EntryStore> entries() { return EntriesView(*this); }

  /// Marks a key whose hardware row was found different, or could not be written.
  void hwInconsistentEntryIs(const Key& key, bool inconsistent) {
    if (!inconsistent) return hwInconsistentEntryDel(key);
    records_.flagIs(recordIs(key), KeyRecord::marked, true);
  }
  void hwInconsistentEntryDel(const Key& key) {
    if (Record* record = findMarked(key)) records_.flagIs(*record, KeyRecord::marked, false);
  }
  void hwInconsistentEntryDelAll() { records_.flagDelAll(KeyRecord::marked); }
  bool hwInconsistentEntry(const Key& key) const { return findMarked(key) != nullptr; }
  /// The keys marked so, in ascending order.
  std::vector<Key> hwInconsistentKeys() const { return keys(KeyRecord::marked); }

  /// Keys that were read from hardware and that nobody announced since.
  std::vector<Key> unclaimedKeys() const { return keys(KeyRecord::unclaimed); }
  bool unclaimed(const Key& key) const {
    if (unclaimed() == 0) return false;
    const Record* record = find(key);
    return record && record->has(KeyRecord::unclaimed);
  }
  U32 unclaimed() const { return records_.count(KeyRecord::unclaimed); }
  /// Those who want to hear of keys that were read from hardware and are announced now, whether or
  /// not their entry changes. They must be removed before they go.
  void claimObserverIs(Orb::KeyObserver<Key>* observer) { claimObservers_.observerIs(observer); }
  void claimObserverDel(Orb::KeyObserver<Key>* observer) { claimObservers_.observerDel(observer); }

  /// The key's record, or null.
  const Record* find(const Key& key) const {
    return static_cast<const Record*>(records_.findRecord(
        entryTag(key), [&](const KeyRecord& record) { return of(record).key() == key; }));
  }
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
  /// `records` is that of the table.
  explicit EntryStore(KeyRecords& records) : records_(records) {}
  virtual ~EntryStore() = default;

  static constexpr bool counted = requires(const Record& record) { record.referenceAdd(); };
  using NewRecord = std::conditional_t<counted, Orb::Ptr<Record>, Record*>;
  /// A record for a key that has none.
  virtual NewRecord newRecord(const Key& key) = 0;

  /// The key's record, or null.
  Record* recordOf(const Key& key) const { return const_cast<Record*>(find(key)); }
  /// The same, made when there is none; to be given a flag at once.
  Record& recordIs(const Key& key) {
    if (Record* record = recordOf(key)) return *record;
    const NewRecord record = newRecord(key);
    records_.add(entryTag(key), *record);
    return *record;
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

 private:
  friend EntriesView<EntryStore>;
  friend EntriesView<const EntryStore>;

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
    const Key key = given;
    records_.flagIs(*record, KeyRecord::unclaimed, false);
    records_.flagIs(*record, KeyRecord::noted, false);
    records_.flagIs(*record, KeyRecord::desired, false);
    handleChange(key, handled);
    return true;
  }

  KeyRecords& records_;
  Orb::KeyObservers<Key> observers_;
  Orb::KeyObservers<Key> claimObservers_;
};

}  // namespace VelaSwitchTable
