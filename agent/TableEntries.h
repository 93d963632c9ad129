#pragma once

#include <map>

#include "DirectBase/IndexedRows.h"
#include "agent/Entries.h"

/// Entries of software tables with rows in hardware, whatever their families.
namespace VelaAgent {

/// The entries of a software table with rows in hardware.
class TableEntries : public Entries {
 public:
  /// Where an entry lies.
  struct Place {
    HwIndex index;
    std::optional<VelaSwitchApi::CuckooLocation> location;  ///< For hash tables.
  };
  using RowId = std::pair<VelaSwitchApi::HwTableId, HwIndex>;

  /// What is particular to a family.
  struct Particulars {
    std::string_view unusedKeyField;  ///< The field of the key that takes no part in it, if any.
    bool ignoresRows;                 ///< Rows without an entry may hold what they like.
    bool rebuildsDefaults;  ///< Entries that are as hardware is without one are rebuilt as well.
  };

  TableEntries(std::string name, U32 instance, const Orb::Shape& key, const Orb::Shape& result,
               Lookups lookups, const Particulars& particulars)
      : Entries(std::move(name), instance, key, result, std::move(lookups)),
        particulars_(particulars) {}

  virtual VelaSwitchApi::SwTable& table() const = 0;
  VelaSwitchApi::SwTableProfileConvertor& convertor() const {
    return *table().profileConvertorPtr();
  }
  const VelaSwitch::ProfileInfo& profile() const override { return table().profile(); }
  std::string_view unusedKeyField() const override { return particulars_.unusedKeyField; }
  bool fills(const VelaSwitchApi::SwTable& other) const override { return &other == &table(); }
  bool pollHitBits(Orb::Seconds now) override { return convertor().pollHitBits(now); }
  /// Whether hardware tells which rows packets hit.
  bool reportsHits() const { return !convertor().hitBitTables().empty(); }

  bool withdraw(AnyRef key) override;
  EntryProgrammedStatus status(AnyRef key) const override { return statusOf(record(key)); }
  void announceAll(std::span<const Announcement> all, BatchListener& listener) override;
  void forEachEntry(const EntryVisitor& visit) const override;
  bool announced(AnyRef key) const override;
  AnyValue resultOf(AnyRef key) const override;
  U32 entries() const override;
  U32 programmed() const override;
  U32 unclaimed() const override;
  U32 refused() const override;
  void reconcile(const AnyListener& removing) override;

  /// Hears of entries that are announced, changed or withdrawn, or whose status is another one.
  /// There is one at most; empty for none. What it hears of is done, but it comes amid changes.
  void statusListenerIs(AnyListener listener);

  /// Rows that entries may lie in, how many entries do, and the most that ever did.
  U32 capacity() const;
  virtual U32 used() const;
  virtual U32 peak() const;
  /// How full it is, in percent, with the entries of other tables that share its rows.
  double load() const;
  /// What places the entries of a hash table, those of other tables that share its rows as well;
  /// else null.
  virtual const Keel::Cuckoo::Table* engine() const { return nullptr; }

  /// Compares the rows with what they should be; the convertor has the findings.
  void audit() { table().syncEntries(); }
  /// Writes what the last audit found wrong.
  void repair();
  /// Reads a row again. False when an audit may have something to say of it.
  bool rowGood(VelaSwitchApi::HwTableId id, HwIndex index);
  /// Rows that were read and that no row of the table can be, with their hardware tables.
  std::vector<RowId> corruptRows() const;
  /// Rows that were read and that are no entry's, though they hold something.
  std::vector<RowId> strayRows() const;
  /// Entries whose rows, after the entries were rebuilt from them, do not all say the same.
  void forEachDisagreeing(const AnyListener& visit) const;

  /// Whether the hardware table has a row of the index.
  static bool holds(const VelaSwitchApi::HwTableConfig& hwTable, HwIndex index) {
    return index >= hwTable.descriptor().first && index <= hwTable.descriptor().last;
  }
  /// The key's row, when it has one.
  virtual std::optional<Place> place(AnyRef key) const = 0;
  /// The rows that the key may take.
  virtual std::vector<HwIndex> candidates(AnyRef key) const = 0;
  /// The entries, of whatever table, that hardware cannot tell from one of the key, which is among
  /// them when it is there: first the one that is in hardware or waits to be.
  virtual std::vector<Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry>> equals(AnyRef) const {
    return {};
  }
  /// The key of the software entry in a row, or none.
  virtual AnyValue keyAt(HwIndex index) const = 0;
  /// The key that the row stands for or seems to hold, or none.
  virtual AnyValue decodedKey(HwIndex index) const = 0;
  /// The key of an entry that has no row.
  virtual AnyValue keyOf(const VelaSwitchApi::HashBaseCuckooEntry&) const { return {}; }
  /// Whether the row is this table's to list; tables that share rows list each once.
  virtual bool listsRow(HwIndex) const { return true; }
  /// Whether another table declared the rows that this one uses.
  virtual bool borrowsRows() const { return false; }
  /// Way and row of an index, for hash tables.
  virtual std::optional<VelaSwitchApi::CuckooLocation> location(HwIndex) const { return {}; }

 protected:
  using KeyRecord = VelaSwitchApi::KeyRecord;

  // What only the family knows: its keys and results, which the records of its table have.
  virtual const KeyRecord* record(AnyRef key) const = 0;
  virtual AnyRef keyIn(const KeyRecord& record) const = 0;
  virtual AnyRef resultIn(const KeyRecord& record) const = 0;
  /// Whether the entry is as hardware is without one.
  virtual bool isAbsent(const KeyRecord& record) const = 0;
  virtual bool entryIs(AnyRef key, AnyRef result) = 0;
  virtual void entriesAre(std::span<const Announcement> all, BatchListener& listener) = 0;
  virtual bool entryDel(AnyRef key) = 0;
  virtual void handleEntry(AnyRef key) = 0;

  /// The status of a key by its record, which may be null.
  EntryProgrammedStatus statusOf(const KeyRecord* record) const { return table().statusOf(record); }
  /// Calls statusChanged(key) whenever a status changes, where the table keeps them, or else an
  /// entry.
  virtual void watchStatuses() = 0;
  void statusChanged(AnyRef key);

  /// Whether people hear of the entry: not when it is but what hardware holds without one.
  bool told(const KeyRecord& record) const;
  std::vector<const KeyRecord*> records(KeyRecord::Flag flag) const {
    return table().records(flag);
  }
  /// The same by their keys, for those who change them.
  std::vector<AnyValue> keys(KeyRecord::Flag flag) const;

  EntryProgrammedStatus program(AnyRef key, AnyRef result) override;
  unsigned rowBits(std::string_view field, bool mask) const override;
  void warnOfMore(AnyRef key, AnyRef result) override;
  virtual void warnOfKey(AnyRef) {}

 private:
  template <class Wanted>
  std::vector<RowId> rowsThat(const Wanted& wanted) const;
  class Announcing;
  void noteIs(AnyRef key, bool noted);
  EntryProgrammedStatus outcomeOf(AnyRef key, bool changed, EntryProgrammedStatus status);
  void watch();

  Particulars particulars_;
  mutable std::map<std::string, unsigned, std::less<>> rowBits_;
  bool toldOfSilence_ = false;  ///< Once is enough for a table.
  U32 peak_ = 0;                ///< Where what is rebuilt is not all told.
  bool watching_ = false;
  AnyListener statusListener_;
};

/// Entries of tables that hardware hashes.
class HashTableEntries : public TableEntries {
 public:
  using TableEntries::TableEntries;

  std::optional<Place> place(AnyRef key) const override;
  AnyValue keyAt(HwIndex index) const override;
  AnyValue keyOf(const VelaSwitchApi::HashBaseCuckooEntry& entry) const override;
  AnyValue decodedKey(HwIndex index) const override;
  bool listsRow(HwIndex index) const override { return physical().owner(index) == &table(); }
  std::optional<VelaSwitchApi::CuckooLocation> location(HwIndex index) const override {
    return physical().location(index);
  }
  Orb::Seconds lastHit(AnyRef key) const override;
  std::vector<Competitor> competing(AnyRef key) const override;
  std::size_t competitors(AnyRef key) const override;
  std::vector<Competitor> yielding(AnyRef key) const override;
  std::vector<HwIndex> candidates(AnyRef key) const override;
  std::vector<Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry>> equals(AnyRef key) const override {
    return physical().equals(*newItem(key));
  }
  void forEachStatus(const StatusVisitor& visit) const override;
  void reconcile(const AnyListener& removing) override;
  const Keel::Cuckoo::Table* engine() const override { return &physical().engine(); }
  bool borrowsRows() const override { return physical().firstTable() != &table(); }
  U32 used() const override { return hashTable().placed(); }
  U32 peak() const override { return hashTable().placedPeak(); }
  U64 moves() const override { return physical().engine().moves(); }
  U32 waiting() const override { return physical().waiting(&hashTable()); }

 protected:
  /// An item of the key, in no table's hands.
  virtual Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> newItem(AnyRef key) const = 0;

 private:
  VelaSwitchApi::HashBaseTable& hashTable() const {
    return static_cast<VelaSwitchApi::HashBaseTable&>(table());
  }
  VelaSwitchApi::PhysicalHashTable& physical() const {
    return hashTable().profileConvertor().physicalTable();
  }
  /// The item of the key that is programmed or waits to be, or null.
  const VelaSwitchApi::HashBaseCuckooEntry* item(AnyRef key) const;
};

/// Entries of tables whose row follows from the key.
class IndexedTableEntries : public TableEntries {
 public:
  using TableEntries::TableEntries;

  AnyValue keyAt(HwIndex index) const override;
  AnyValue decodedKey(HwIndex index) const override { return keyOfRow(index); }
  std::optional<Place> place(AnyRef key) const override { return Place{rowOf(key), std::nullopt}; }
  std::vector<HwIndex> candidates(AnyRef key) const override { return {rowOf(key)}; }
  void forEachStatus(const StatusVisitor& visit) const override;
  std::string whyNoRow(AnyRef key) const override;

 protected:
  virtual HwIndex rowOf(AnyRef key) const = 0;
  virtual AnyValue keyOfRow(HwIndex index) const = 0;
  /// Whether the row is the key's own, no copy of it.
  virtual bool isRowOf(HwIndex index, AnyRef key) const = 0;

  void warnOfKey(AnyRef key) override;

 private:
  template <class Will>
  bool inSomeTable(const Will& will) const;
  HwIndex lastIndex() const;
};

}  // namespace VelaAgent
