#pragma once

#include <utility>

#include "Orb/Collection.h"
#include "Trace/Trace.h"

namespace VelaSwitchTable {

/// The desired entries of a software table, whatever its kind, with the marks on their keys. Every
/// change calls handleEntry(key), but for those that only say what hardware holds.
template <class Key, class Result>
class EntryStore : private Orb::KeyObserver<Key> {
 public:
  EntryStore(const EntryStore&) = delete;
  EntryStore& operator=(const EntryStore&) = delete;

  /// Brings what is desired of the key into hardware.
  virtual void handleEntry(const Key& key) = 0;

  /// Announces an entry. When an equal one is there nothing happens. Returns whether it changed.
  bool entryIs(const Key& key, const Result& result) {
    const bool claimed = !unclaimed_.empty() && unclaimed_.erase(key);
    const bool changed = entry_.is(key, result);
    if (claimed) {
      for (auto* observer : claimObservers_) observer->handleKey(key);
    }
    return changed;
  }
  bool entryDel(const Key& key) {
    if (entry_.del(key)) return true;
    handleAbsent(key);
    return false;
  }
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
  bool unclaimed(const Key& key) const { return !unclaimed_.empty() && unclaimed_.has(key); }
  U32 unclaimed() const { return unclaimed_.size(); }
  /// Those who want to hear of keys that were read from hardware and are announced now, whether or
  /// not their entry changes. They must be removed before they go.
  void claimObserverIs(Orb::KeyObserver<Key>* observer) { claimObservers_.push_back(observer); }
  void claimObserverDel(Orb::KeyObserver<Key>* observer) { std::erase(claimObservers_, observer); }
  /// The most entries that there ever were.
  U32 peak() const { return peak_; }

 protected:
  EntryStore() { entry_.observerIs(this); }
  ~EntryStore() { entry_.observerDel(this); }

  /// Takes over what hardware holds.
  void entryIsFromHw(const Key& key, const Result& result) {
    *unclaimed_.insert(key).first = true;
    quiet_ = true;
    entry_.is(key, result);
    quiet_ = false;
  }
  /// Calls `visit(key)` for each key that did not come from hardware alone: what did is as it is.
  template <class Visitor>
  void forEachAnnouncedKey(const Visitor& visit) const {
    for (const Key& key : entry_.keys()) {
      if (!unclaimed(key)) visit(key);
    }
  }
  /// Forgets an entry without touching its row.
  void entryForget(const Key& key) {
    unclaimed_.erase(key);
    quiet_ = true;
    entry_.del(key);
    quiet_ = false;
  }
  /// A key is withdrawn that has no entry. Hardware may have one that could not be read, or that
  /// was read under another spelling of the key.
  virtual void handleAbsent(const Key&) {}

 private:
  /// Hears of a change before all others: whatever those do then is theirs.
  void handleKey(const Key& key) final {
    peak_ = std::max(peak_, entry_.size());
    if (std::exchange(quiet_, false)) return;
    if (!unclaimed_.empty() && !entry_.has(key)) unclaimed_.erase(key);
    handleEntry(key);
  }

  Orb::Collection<Key, Result> entry_;
  Orb::Map<Key, bool> hwInconsistentEntry_;
  Orb::Map<Key, bool> unclaimed_;
  std::vector<Orb::KeyObserver<Key>*> claimObservers_;
  U32 peak_ = 0;
  bool quiet_ = false;  ///< The change under way says what hardware holds: it is not handled.
};

}  // namespace VelaSwitchTable
