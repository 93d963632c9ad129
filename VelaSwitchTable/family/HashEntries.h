#pragma once

#include "VelaSwitchTable/family/EntryStore.h"
#include "VelaSwitchTable/family/HashEntry.h"

/// What a hash table keeps of its entries: their results, items and statuses.
namespace VelaSwitchTable {

/// The statuses of a table's entries.
template <class F>
class VELA_EXPORT HashFamilyTableStatus : public Orb::PtrInterface {
 public:
  using Key = typename F::Key;
  using EntryStatus = typename ClassesOf<F>::EntryStatus;
  struct KeyOf {
    const Key& operator()(const EntryStatus& status) const { return status.key(); }
  };
  using Statuses = Orb::Collection<Key, EntryStatus, KeyOf>;

  void entryStatusIs(const EntryStatus& status) { entryStatus_.is(status.key(), status); }
  void entryStatusDel(const Key& key) { entryStatus_.del(key); }
  /// The key's status, or null. Valid until the next change.
  const EntryStatus* entryStatus(const Key& key) const { return entryStatus_.find(key); }
  const Statuses& entryStatuses() const { return entryStatus_; }
  Statuses& entryStatuses() { return entryStatus_; }

 private:
  Statuses entryStatus_;
};

/// The entries of a table, with their items and statuses.
template <class F>
class VELA_EXPORT HashFamilyTableBase : public VelaSwitchApi::HashTable,
                                        public EntryStore<typename F::Key, typename F::Result> {
 public:
  using Family = F;
  using HashItem = VelaSwitchApi::HashItem;
  using Key = typename F::Key;
  using Result = typename F::Result;
  using Entry = typename ClassesOf<F>::CuckooEntry;
  using EntryStatus = typename ClassesOf<F>::EntryStatus;
  using TableStatus = typename ClassesOf<F>::TableStatus;

  explicit HashFamilyTableBase(std::string name, U8 tableIdx = 0, U8 pipeline = 0)
      : HashTable(std::move(name), tableIdx, pipeline,
                  {F::trace, F::traits.placement == HashPlacement::everyPipeline, F::traits.hitBits,
                   F::traits.hitTableOffset != noHitTable, F::traits.tracesItems}) {}

  void doInitStatus() override {
    tableStatusIs();
    // A full table's worth of everything, so that programming an entry allocates its item alone.
    const U32 capacity = profileConvertor().physicalTable().engine().capacity();
    this->entries().reserve(capacity);
    cachedItem_.reserve(capacity);
    tableStatus_->entryStatuses().reserve(capacity);
  }

  bool entryHasByHashItem(const HashItem& item) const override {
    return this->entry(keyOf(item)) != nullptr;
  }
  void entryIsByHashItem(HashItem& hashItem) override {
    Entry& item = static_cast<Entry&>(hashItem);
    ORB_ASSERT_TEXT(item.valid(), "hashItem->valid()");
    if (F::trace.enabled(8)) F::trace(8, "entryIsByHashItem ", item.toStrep());
    *cachedItem_.insert(item.key()).first = Orb::Ptr<Entry>(&item);
    this->entryIsFromHw(item.key(), item.result());
    if (isCurrent(item)) recordStatus(item);
  }
  bool entryEqualByHashItem(const HashItem& item) const override {
    const Result* desired = this->entry(keyOf(item));
    return desired && *desired == static_cast<const Entry&>(item).result();
  }
  Orb::Ptr<HashBaseCuckooEntry> cachedCuckooEntry(const HashItem& item) const override {
    return cachedItem(keyOf(item));
  }
  void updateHashItem(HashItem& hashItem) const override {
    Entry& item = static_cast<Entry&>(hashItem);
    const Result* desired = this->entry(item.key());
    item.resultIs(desired ? *desired : Result{});
    item.validIs(desired != nullptr);
  }
  bool hwInconsistentEntryFromHashItem(const HashItem& item) const override {
    return this->hwInconsistentEntry(keyOf(item));
  }
  void hwInconsistentEntryDelFromHashItem(const HashItem& item) override {
    this->hwInconsistentEntryDel(keyOf(item));
  }
  void hashItemDelFromHashItem(const HashItem& item) override { hashItemDel(keyOf(item)); }
  void hwInconsistentEntryIsFromHashItem(const HashItem& item) override {
    this->hwInconsistentEntryIs(keyOf(item), true);
  }
  void handleHashItem(const HashItem& item) override { handleEntry(Key(keyOf(item))); }
  bool entryUnclaimedByHashItem(const HashItem& item) const override {
    return this->unclaimed(keyOf(item));
  }
  void entryReleaseByHashItem(const HashItem& item) override {
    const Key key = keyOf(item);
    this->entryForget(key);
    // Whoever heard of it may have announced the key.
    if (this->entry(key)) return;
    hashItemDel(key);
    this->hwInconsistentEntryDel(key);
    tableStatusIs()->entryStatusDel(key);
  }

  const Orb::Ptr<TableStatus>& tableStatus() const { return tableStatus_; }
  /// The table's status, created on first use.
  const Orb::Ptr<TableStatus>& tableStatusIs() {
    if (!tableStatus_) tableStatus_ = Orb::make<TableStatus>();
    return tableStatus_;
  }
  void tableStatusDel() { tableStatus_ = nullptr; }

  /// The item of a key that is programmed or waits to be; null when there is none.
  Orb::Ptr<Entry> cachedItem(const Key& key) const {
    const Orb::Ptr<Entry>* item = cachedItem_.find(key);
    return item ? *item : nullptr;
  }
  /// The same by its other name.
  Orb::Ptr<Entry> hashItem(const Key& key) const { return cachedItem(key); }
  /// The cached item, made and cached when there is none.
  Orb::Ptr<Entry> hashItemIs(const Key& key) {
    Orb::Ptr<Entry>& cached = *cachedItem_.insert(key).first;
    if (!cached) {
      cached = newItem(key);
      if (auto* placed = placedItem(*cached)) cached = static_cast<Entry*>(placed);
    }
    return cached;
  }
  void hashItemDel(const Key& key) { cachedItem_.erase(key); }
  /// Drops the items, not what the physical table has: those are found there again.
  void hashItemDelAll() { cachedItem_.clear(); }

  /// A new item of the key, in no table's hands yet.
  virtual Orb::Ptr<Entry> newItem(const Key& key) = 0;
  /// A key that an item which stands for an empty row may carry.
  virtual Key nullKey() const { return Key{}; }

  /// With `withResult` the key's cached item, made when there is none, with the key's current
  /// result; it is valid when there is one. Else a new item that nobody knows of.
  Orb::Ptr<Entry> createHashEntry(const Key& key, bool withResult) {
    if (!withResult) return newItem(key);
    Orb::Ptr<Entry> item = hashItemIs(key);
    updateHashItem(*item);
    return item;
  }
  /// The same, with a trace of its own.
  Orb::Ptr<Entry> createHashItem(const Key& key, bool cached = true) {
    F::trace(8, this->fwkType().name(), "::createHashItem ", key);
    return createHashEntry(key, cached);
  }

  void handleEntry(const Key& key) override {
    if (!initialized()) return;
    traceStatus(key);
    if constexpr (requires { &F::check; }) {
      // Before anything moves: a row that cannot be packed must not cost others their place.
      const Result* desired = this->entry(key);
      if (desired)
        F::check(static_cast<const typename ClassesOf<F>::Helper&>(*helper()), key, *desired);
    }
    // Held on to: the item may be dropped on the way.
    const Orb::Ptr<Entry> item = itemToHandle(key);
    handleItem(*item);
  }

 protected:
  void handleInitialized() override {
    // So far there are items of what was read from hardware, and of what was withdrawn since.
    std::vector<Key> withdrawn;
    cachedItem_.forEach([&](const Key& key, const Orb::Ptr<Entry>&) {
      if (!this->entry(key)) withdrawn.push_back(key);
    });
    for (const Key& key : withdrawn) handleEntry(key);
    this->forEachAnnouncedKey([&](const Key& key) { handleEntry(key); });
  }
  void handleAbsent(const Key& key) override {
    if (!profileConvertorPtr()) return;
    const Orb::Ptr<Entry> item = newItem(key);
    if (!profileConvertor().physicalTable().mayHold(*item)) return;
    if (initialized()) {
      handleEntry(key);
    } else {
      *cachedItem_.insert(key).first = item;
    }
  }
  std::string keyText(const HashBaseCuckooEntry& item) const override {
    return Orb::text(keyOf(item));
  }
  void statusIs(const HashBaseCuckooEntry& item) override {
    tableStatusIs()->entryStatusIs(
        EntryStatus{keyOf(item), item.programmedStatus(), item.lastHit()});
  }
  void statusDel(const HashBaseCuckooEntry& item) override {
    tableStatusIs()->entryStatusDel(keyOf(item));
  }
  Orb::Seconds recordedHit(const HashBaseCuckooEntry& item) const override {
    return tableStatus_->entryStatus(keyOf(item))->lastHit();
  }

 private:
  static const Key& keyOf(const HashItem& item) { return static_cast<const Entry&>(item).key(); }

  void traceStatus(const Key& key) const {
    if (!F::trace.enabled(8)) [[likely]]
      return;
    F::trace(8, fwkType().name(), "::handleEntry ", key);
    if (const EntryStatus* status = tableStatus() ? tableStatus()->entryStatus(key) : nullptr) {
      F::trace(8, "entry has status: ", *status);
    } else {
      F::trace(8, "entry has no status");
    }
  }

  /// The key's item, as the family makes it.
  Orb::Ptr<Entry> itemToHandle(const Key& key) {
    if constexpr (F::traits.tracesItems) return createHashItem(key, true);
    return createHashEntry(key, true);
  }

  struct KeyOfItem {
    const Key& operator()(const Orb::Ptr<Entry>& item) const { return item->key(); }
  };

  Orb::Map<Key, Orb::Ptr<Entry>, KeyOfItem> cachedItem_;
  Orb::Ptr<TableStatus> tableStatus_;
};

}  // namespace VelaSwitchTable
