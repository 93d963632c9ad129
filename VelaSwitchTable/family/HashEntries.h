#pragma once

#include <optional>

#include "VelaSwitchTable/family/HashEntry.h"

/// The entries of hash tables with their statuses, by their keys and results.
namespace VelaSwitchTable {

template <class F>
class HashFamilyTableBase;

/// The statuses of a table's entries: what their records say, and those who want to hear of it. One
/// that belongs to no table has none, and none can be given to it.
template <class F>
class VELA_EXPORT HashFamilyTableStatus : public Orb::PtrInterface {
 public:
  using Key = typename F::Key;
  using EntryStatus = typename ClassesOf<F>::EntryStatus;
  using Statuses = HashFamilyTableStatus;  ///< It is its own collection.

  /// Records a status; of no table it is a fatal assertion.
  void entryStatusIs(const EntryStatus& status) {
    ORB_ASSERT_TEXT(table_, "table");
    table_->entryStatusIs(status);
  }
  /// Forgets the key's status, if it has one.
  void entryStatusDel(const Key& key) {
    if (table_) table_->entryStatusDel(key);
  }
  /// What came of programming the key last. status(key) of the table knows rows found wrong since.
  std::optional<EntryStatus> entryStatus(const Key& key) const {
    const auto* record = table_ ? table_->find(key) : nullptr;
    if (!record || !record->has(KeyRecord::stated)) return std::nullopt;
    return EntryStatus{key, record->recordedStatus(), record->recordedHit()};
  }

  /// All of them in the accessor style of collections.
  Statuses& entryStatuses() { return *this; }
  const Statuses& entryStatuses() const { return *this; }  ///< Likewise, to look at.
  /// The same as entryStatus().
  std::optional<EntryStatus> find(const Key& key) const { return entryStatus(key); }
  /// All keys, in ascending order.
  std::vector<Key> keys() const {
    return table_ ? table_->keys(KeyRecord::stated) : std::vector<Key>();
  }
  /// How many there are.
  U32 size() const { return table_ ? table_->count(KeyRecord::stated) : 0; }
  /// For those who want to hear of a changed status(key). They must be removed before they go.
  void observerIs(Orb::KeyObserver<Key>* observer) {
    observers_.observerIs(observer);
    watch();
  }
  /// One that is not there changes nothing.
  void observerDel(Orb::KeyObserver<Key>* observer) {
    observers_.observerDel(observer);
    watch();
  }

  /// Called by the table, when it begins to be its status and when it goes.
  void tableIs(HashFamilyTableBase<F>* table) { table_ = table; }
  /// Called by the table: tells of a change.
  void handleStatus(const Key& key) {
    observers_.handleKey(key);
    // Whoever went meanwhile is gone now.
    watch();
  }

 private:
  /// Tells the table whether anybody hears of statuses.
  void watch() {
    if (table_) table_->statusWatchedIs(!observers_.empty());
  }

  HashFamilyTableBase<F>* table_ = nullptr;
  Orb::KeyObservers<Key> observers_;
};

/// The entries of a table, with their items and statuses.
template <class F>
class VELA_EXPORT HashFamilyTableBase
    : public VelaSwitchApi::HashTable,
      public VelaSwitchApi::EntryStore<typename F::Key, typename F::Result, HashFamilyEntry<F>> {
 public:
  using Family = F;  ///< What the table is of.
  using HashItem = VelaSwitchApi::HashItem;
  using Key = typename F::Key;
  using Result = typename F::Result;
  using Entry = typename ClassesOf<F>::CuckooEntry;  ///< An item: what is placed.
  using EntryStatus = typename ClassesOf<F>::EntryStatus;
  using TableStatus = typename ClassesOf<F>::TableStatus;
  /// What holds its entries.
  using Store = VelaSwitchApi::EntryStore<Key, Result, HashFamilyEntry<F>>;

  /// `tableIdx` says which of the family's tables it is, `pipeline` which one it serves.
  explicit HashFamilyTableBase(std::string name, U8 tableIdx = 0, U8 pipeline = 0)
      : HashTable(std::move(name), tableIdx, pipeline,
                  {F::trace, F::traits.placement == HashPlacement::everyPipeline, F::traits.hitBits,
                   F::traits.hitTableOffset != noHitTable, F::traits.tracesItems}),
        Store(
            static_cast<KeyRecords&>(*this), requires { &F::check; }) {}
  ~HashFamilyTableBase() override {
    if (tableStatus_) tableStatus_->tableIs(nullptr);
  }

  void doInitStatus() override {
    tableStatusIs();
    // A full table's worth of records, so that programming an entry allocates nothing.
    this->reserve(profileConvertor().physicalTable().engine().capacity(), sizeof(Entry));
  }
  /// The key is programmed once more.
  void handleHashItem(const HashItem& item) override { handleEntry(Key(entryOf(item).key())); }

  /// Null before it was created.
  const Orb::Ptr<TableStatus>& tableStatus() const { return tableStatus_; }
  /// The table's status, created on first use.
  const Orb::Ptr<TableStatus>& tableStatusIs() {
    if (!tableStatus_) {
      tableStatus_ = Orb::make<TableStatus>();
      tableStatus_->tableIs(this);
      statusWatchedIs(false);
    }
    return tableStatus_;
  }
  /// Forgets all statuses, and who wanted to hear of them.
  void tableStatusDel() {
    if (!tableStatus_) return;
    tableStatus_->tableIs(nullptr);
    tableStatus_ = nullptr;
    statusWatchedIs(true);
    this->flagDelAll(KeyRecord::stated);
  }
  /// Records a status, and tells of it when it is another one.
  void entryStatusIs(const EntryStatus& status) {
    this->statusIs(this->recordIs(status.key()), status.status(), status.lastHit());
  }
  /// Forgets the key's status, if it has one.
  void entryStatusDel(const Key& key) {
    if (auto* record = Store::recordOf(key)) this->statusDel(*record);
  }

  /// The item of a key that is programmed or waits to be; null when there is none.
  Orb::Ptr<Entry> cachedItem(const Key& key) const {
    return cachedItem(key, VelaSwitchApi::entryTag(key));
  }
  /// The same when the key's hash is known.
  Orb::Ptr<Entry> cachedItem(const Key& key, U32 tag) const {
    auto* record = Store::recordOf(key, tag);
    return record && record->has(KeyRecord::cached) ? static_cast<Entry*>(record) : nullptr;
  }
  /// The same by its other name.
  Orb::Ptr<Entry> hashItem(const Key& key) const { return cachedItem(key); }
  /// The cached item, made and cached when there is none.
  Orb::Ptr<Entry> hashItemIs(const Key& key) {
    return static_cast<Entry*>(&this->itemIs(this->recordIs(key)));
  }
  /// Drops the cached item, if there is one; hardware keeps its row.
  void hashItemDel(const Key& key) {
    if (auto* record = Store::recordOf(key)) this->itemDel(*record);
  }

  using HashTable::competing;
  /// The rows of the entries that leave a refused one none.
  std::vector<VelaSwitchApi::Competitor> competing(const Key& key) const {
    return competing(cachedItem(key).get());
  }

  /// A new item of the key, in no table's hands yet.
  Orb::Ptr<Entry> newItem(const Key& key) {
    return static_cast<Entry*>(this->newRecord(key, VelaSwitchApi::entryTag(key)));
  }
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
    // Announced before the table knew what must hold.
    if (const Result* desired = this->entry(key)) checkEntry(key, *desired);
    handle(this->recordIs(key));
  }

 protected:
  /// Before anything moves: a row that cannot be packed must not cost others their place.
  void checkEntry(const Key& key, const Result& result) const override {
    if constexpr (requires { &F::check; }) {
      if (!initialized()) return;
      F::check(static_cast<const typename ClassesOf<F>::Helper&>(*helper()), key, result);
    }
  }
  void handleRecord(const Key&, HashFamilyEntry<F>& record) override {
    if (initialized()) handle(record);
  }
  void handleAbsent(const Key& key) override {
    if (this->profileConvertorPtr()) handleAbsentItem(*newItem(key));
  }
  Orb::Ptr<HashBaseCuckooEntry> freshItem(const HashBaseCuckooEntry& item) override {
    return newItem(entryOf(item).key());
  }
  void entryChanged(const HashBaseCuckooEntry& record) override {
    this->handleChange(Key(entryOf(record).key()), false);
  }
  void statusChanged(const HashBaseCuckooEntry& record) override {
    tableStatusIs()->handleStatus(Key(entryOf(record).key()));
  }

 private:
  friend HashFamilyTableStatus<F>;
  static const HashFamilyEntry<F>& entryOf(const HashItem& item) {
    return static_cast<const HashFamilyEntry<F>&>(item);
  }

  void handle(HashFamilyEntry<F>& record) {
    if (F::trace.enabled(8)) traceHandling(record.key());
    programRecord(record);
  }
  void settle(KeyRecord& record) override {
    if (F::trace.enabled(8) && initialized()) traceHandling(Store::of(record).key());
    HashTable::settle(record);
  }

  [[gnu::cold]] void traceHandling(const Key& key) const {
    F::trace(8, fwkType().name(), "::handleEntry ", key);
    if (const auto status = tableStatus_ ? tableStatus_->entryStatus(key) : std::nullopt) {
      F::trace(8, "entry has status: ", *status);
    } else {
      F::trace(8, "entry has no status");
    }
    if constexpr (F::traits.tracesItems) F::trace(8, fwkType().name(), "::createHashItem ", key);
  }

  Orb::Ptr<TableStatus> tableStatus_;
};

}  // namespace VelaSwitchTable
