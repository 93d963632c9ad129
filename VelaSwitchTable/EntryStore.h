#pragma once

#include "Orb/Collection.h"
#include "Trace/Trace.h"

namespace VelaSwitchTable {

/// The desired entries of a software table, whatever its kind, with the marks on their keys. Every
/// change calls handleEntry(key).
template <class Key, class Result>
class EntryStore : private Orb::KeyObserver<Key> {
 public:
  EntryStore(const EntryStore&) = delete;
  EntryStore& operator=(const EntryStore&) = delete;

  /// Brings what is desired of the key into hardware.
  virtual void handleEntry(const Key& key) = 0;

  /// Announces an entry. When an equal one is there nothing happens. Returns whether it changed.
  bool entryIs(const Key& key, const Result& result) {
    const bool changed = entry_.is(key, result);
    if (!unclaimed_.empty()) unclaimed_.erase(key);
    return changed;
  }
  bool entryDel(const Key& key) { return entry_.del(key); }
  void entryDelAll() { entry_.delAll(); }
  /// The key's result, or null. Valid until the next change.
  const Result* entry(const Key& key) const { return entry_.find(key); }
  const Orb::Collection<Key, Result>& entries() const { return entry_; }
  /// For those who want to hear of changed keys.
  Orb::Collection<Key, Result>& entries() { return entry_; }

  /// Marks a key whose hardware row was found different, or could not be written.
  void hwInconsistentEntryIs(const Key& key, bool inconsistent) {
    *hwInconsistentEntry_.insert(key).first = inconsistent;
  }
  void hwInconsistentEntryDel(const Key& key) {
    if (!hwInconsistentEntry_.empty()) hwInconsistentEntry_.erase(key);
  }
  void hwInconsistentEntryDelAll() { hwInconsistentEntry_.clear(); }
  bool hwInconsistentEntry(const Key& key) const {
    const bool* mark = hwInconsistentEntry_.find(key);
    return mark && *mark;
  }

  /// The keys marked so.
  std::vector<Key> hwInconsistentKeys() const {
    std::vector<Key> keys;
    hwInconsistentEntry_.forEach([&](const Key& key, bool marked) {
      if (marked) keys.push_back(key);
    });
    std::sort(keys.begin(), keys.end());
    return keys;
  }

  /// Keys that were read from hardware and that nobody announced since.
  std::vector<Key> unclaimedKeys() const {
    std::vector<Key> keys;
    unclaimed_.forEach([&](const Key& key, bool) { keys.push_back(key); });
    std::sort(keys.begin(), keys.end());
    return keys;
  }
  bool unclaimed(const Key& key) const { return unclaimed_.has(key); }

 protected:
  EntryStore() { entry_.observerIs(this); }
  ~EntryStore() { entry_.observerDel(this); }

  /// Takes over what hardware holds.
  void entryIsFromHw(const Key& key, const Result& result) {
    entry_.is(key, result);
    *unclaimed_.insert(key).first = true;
  }
  /// Forgets an entry without touching its row.
  void entryForget(const Key& key) {
    forgetting_ = true;
    entry_.del(key);
    forgetting_ = false;
    unclaimed_.erase(key);
  }

 private:
  void handleKey(const Key& key) final {
    if (forgetting_) return;
    if (!unclaimed_.empty() && !entry_.has(key)) unclaimed_.erase(key);
    handleEntry(key);
  }

  Orb::Collection<Key, Result> entry_;
  Orb::Map<Key, bool> hwInconsistentEntry_;
  Orb::Map<Key, bool> unclaimed_;
  bool forgetting_ = false;
};

}  // namespace VelaSwitchTable
