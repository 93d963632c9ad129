#pragma once

#include "VelaSwitchApi/HashBase.h"

namespace VelaSwitchApi {

/// A hash table that programs its entries, whatever their keys and results are, and keeps what
/// became of them. The record of a key is the item that is placed for it, unless that was dropped.
class VELA_EXPORT HashTable : public HashBaseTable {
 public:
  void reactorTeardown() override;

  bool entryHasByHashItem(const HashItem& item) const override;
  void entryIsByHashItem(HashItem& hashItem) override;
  bool entryEqualByHashItem(const HashItem& item) const override;
  void lastHitByHashItemIs(HashItem& hashItem, Orb::Seconds time) override;
  Orb::Ptr<HashBaseCuckooEntry> cachedCuckooEntry(const HashItem& item) const override;
  void updateHashItem(HashItem& hashItem) const final;
  bool hwInconsistentEntryFromHashItem(const HashItem& item) const final;
  void hwInconsistentEntryDelFromHashItem(const HashItem& item) override;
  void hashItemDelFromHashItem(const HashItem& item) override;
  void hwInconsistentEntryIsFromHashItem(const HashItem& item) override;
  void entryStatusIsByHashItem(HashItem& hashItem) override;
  bool entryUnclaimedByHashItem(const HashItem& item) const override;
  void entryReleaseByHashItem(const HashItem& item) override;

  EntryProgrammedStatus statusOf(const KeyRecord* record) const override;

  /// Drops the items, not what the physical table has: those are found there again.
  void hashItemDelAll();

 protected:
  /// How a table is told from others.
  struct Options {
    const Trace::Handle& trace;
    bool everyPipeline;  ///< Every pipeline has the same rows.
    bool hitBits;        ///< Whether it declares hit bits.
    bool hits;           ///< Whether hits are recorded: they may be without.
    bool tracesItems;    ///< Whether entries are traced with their results, not by their keys.
  };

  HashTable(std::string name, U8 tableIdx, U8 pipeline, const Options& options);

  /// The record of the item's key, or null.
  HashBaseCuckooEntry* record(const HashItem& item) const {
    const auto& entry = static_cast<const HashBaseCuckooEntry&>(item);
    return static_cast<HashBaseCuckooEntry*>(recordOf(entry));
  }
  /// The key's item, whose record is `record`, is cached from now on.
  HashBaseCuckooEntry& itemIs(HashBaseCuckooEntry& record) {
    if (itemsLost_ && !record.has(KeyRecord::cached)) [[unlikely]]
      return foundItemIs(record);
    flagIs(record, KeyRecord::cached, true);
    return record;
  }
  void itemDel(HashBaseCuckooEntry& record);
  /// Brings a key that was handled once more into hardware: its item, made current.
  void programRecord(HashBaseCuckooEntry& record);
  /// A key is withdrawn that has no entry: `item` is one of it that nobody knows.
  void handleAbsentItem(HashBaseCuckooEntry& item);

  /// Another item of the same key, which nobody knows.
  virtual Orb::Ptr<HashBaseCuckooEntry> freshItem(const HashBaseCuckooEntry& item) = 0;
  /// The entry changed by what hardware says: only observers are to hear of it.
  virtual void entryChanged(const HashBaseCuckooEntry& record) = 0;
  /// The same of its status.
  virtual void statusChanged(const HashBaseCuckooEntry& record) = 0;

  /// Records a status; tells of it when it is another one.
  void statusIs(HashBaseCuckooEntry& record, EntryProgrammedStatus status, Orb::Seconds lastHit) {
    const bool changed = !record.has(KeyRecord::stated) || record.recordedStatus_ != status ||
                         record.recordedHit_ != lastHit;
    record.recordedStatus_ = status;
    record.recordedHit_ = lastHit;
    flagIs(record, KeyRecord::stated, true);
    if (changed) tellStatus(record);
  }
  void statusDel(HashBaseCuckooEntry& record);

  /// Whether statusChanged() is to be called, as it is at first.
  void statusWatchedIs(bool watched) { statusWatched_ = watched; }

  void handleInitialized() override;

  bool stageable(const KeyRecord& record, bool desired) const override;
  void stage(KeyRecord& record) override;
  void flush() override;
  void settle(KeyRecord& record) override;
  bool mayGroup() const override;
  std::size_t groupIs(std::span<KeyRecord* const> records, EntryOutcome* outcomes) override;
  std::size_t groupDel(std::span<KeyRecord* const> records, EntryOutcome* outcomes) override;

 private:
  HashBaseCuckooEntry& foundItemIs(HashBaseCuckooEntry& record);
  /// The item of the same key that the physical table has, or null.
  HashBaseCuckooEntry* placedItem(const HashBaseCuckooEntry& item) const;
  /// The record of the key that the item is programmed for, or null.
  HashBaseCuckooEntry* current(const HashBaseCuckooEntry& item) const {
    HashBaseCuckooEntry* known = record(item);
    const bool is = known && known->has(KeyRecord::desired) &&
                    (known == &item || !known->has(KeyRecord::cached));
    return is ? known : nullptr;
  }
  bool isCurrent(const HashBaseCuckooEntry& item) const { return current(item) != nullptr; }
  void recordStatus(HashBaseCuckooEntry& item);
  /// Of a record whose handle the caller has.
  void statusForget(HashBaseCuckooEntry& record) {
    if (!record.has(KeyRecord::stated)) return;
    flagIs(record, KeyRecord::stated, false);
    tellStatus(record);
  }
  void tellStatus(const HashBaseCuckooEntry& record) {
    if (statusWatched_) [[unlikely]]
      statusChanged(record);
  }
  void markIs(HashBaseCuckooEntry& record, bool marked);
  void adopt(HashBaseCuckooEntry& item);
  HashBaseCuckooEntry& recordFor(const HashBaseCuckooEntry& item);
  void rewritten(HashBaseCuckooEntry& record);
  inline void programmed(HashBaseCuckooEntry& item, HashBaseCuckooEntry& known);
  void programmedAmongOthers(HashBaseCuckooEntry& item);
  void removeItem(HashBaseCuckooEntry& item);
  inline bool announcedInGroup(KeyRecord& record, EntryOutcome& outcome);
  inline bool withdrawnInGroup(KeyRecord& record, EntryOutcome& outcome);
  inline void removed(HashBaseCuckooEntry& item);
  void traceItem(const char* what, const HashBaseCuckooEntry& item) const {
    if (options_.trace.enabled(1)) [[unlikely]]
      emitItem(what, item);
  }
  void emitItem(const char* what, const HashBaseCuckooEntry& item) const;

  Options options_;
  bool lastFailed_ = false;    ///< Of a batch, the entry that was settled last.
  bool statusWatched_ = true;  ///< Somebody hears of statuses.
  bool itemsLost_ = false;     ///< Items were dropped that the physical table may have.
};

}  // namespace VelaSwitchApi
