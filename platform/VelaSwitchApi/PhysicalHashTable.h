#pragma once

#include <map>
#include <optional>
#include <vector>

#include "Keel/Cuckoo.h"
#include "Orb/Seconds.h"
#include "VelaSwitchApi/HitTracker.h"
#include "VelaSwitchApi/SwTable.h"

namespace VelaSwitchApi {

class HashBaseTable;
class PhysicalHashTable;

/// Geometry of one physical cuckoo table.
class VELA_EXPORT PhysicalHashProperties : public Orb::PtrInterface {
 public:
  struct Fields {
    U32 tableId;     ///< Software tables that name the same id share one physical table.
    U32 rowWords;    ///< Words of the row image, those without a register included.
    U32 rowsPerWay;  ///< 2 to the power of hashBits.
    U32 hashBits;
    U32 ways;
    U32 banks;  ///< 1 in every family.
    bool hitBits;
    bool hitBitsClearOnRead;
    auto operator<=>(const Fields&) const = default;
  };
  explicit PhysicalHashProperties(const Fields& fields) : fields_(fields) {}

  const Fields& fields() const { return fields_; }
  U32 tableId() const { return fields_.tableId; }
  U32 rowsPerWay() const { return fields_.rowsPerWay; }
  U8 ways() const { return static_cast<U8>(fields_.ways); }
  U8 rowWords() const { return static_cast<U8>(fields_.rowWords); }

 private:
  Fields fields_;
};

/// What the framework knows of an entry beside its key and result. It stands in front of the key's
/// record, so that what tells whether an announced entry is there lies in one line of memory.
class VELA_EXPORT HashEntryState : public Keel::Cuckoo::HashItem {
 protected:
  static constexpr U32 noKeptHit = ~U32{0};

  explicit HashEntryState(HashBaseTable* table) : table_(table) {}

  bool valid_ = false;
  EntryProgrammedStatus status_ = EntryProgrammedStatus::notProgrammed;
  EntryProgrammedStatus recordedStatus_ = EntryProgrammedStatus::notProgrammed;
  U32 keptHit_ = noKeptHit;  ///< Place among the hits that no poll has reported.
  HashBaseTable* table_;     ///< Outlives the entry: it owns it. Null when it has none.
  Orb::Seconds lastHit_;
  Orb::Seconds recordedHit_;
};

/// An entry as the cuckoo engine sees it: a key with, when it is to be programmed, its result.
class VELA_EXPORT HashBaseCuckooEntry : public HashEntryState, public KeyRecord {
 public:
  /// Stands for no software table.
  static constexpr U32 noSwTable = ~U32{0};
  /// The software table that the entry belongs to; noSwTable for one that was made without.
  virtual U32 swTableId() const;
  /// Packs what hardware compares of the key into a buffer of `bufSize` bytes, unused bits 0, and
  /// returns its length in bits.
  virtual U8 copyKeyToBuffer(U8* buffer, U8 bufSize) const = 0;
  /// Whether both have the same packed key, in whatever software tables.
  bool isEqual(const Keel::Cuckoo::HashItem& other) const final;

  /// Whether the other one is of the same table and key. Those that are equal in hardware alone may
  /// spell their keys differently.
  bool isSpelledAs(const HashBaseCuckooEntry& other) const {
    return table_ == other.table_ && hasKeyOf(other);
  }
  /// Whether the entry carries a result; without one it stands for removal, or for an empty row.
  bool valid() const { return valid_; }
  void validIs(bool valid) { valid_ = valid; }
  EntryProgrammedStatus programmedStatus() const { return status_; }
  Orb::Seconds lastHit() const { return lastHit_; }
  void lastHitIs(Orb::Seconds time) { lastHit_ = time; }
  /// What was recorded of its key for those who ask, where a status is `stated`.
  EntryProgrammedStatus recordedStatus() const { return recordedStatus_; }
  Orb::Seconds recordedHit() const { return recordedHit_; }
  HashBaseTable& table() const { return *table_; }

 protected:
  HashBaseCuckooEntry(U32 keyTag, HashBaseTable* table)
      : HashEntryState(table), KeyRecord(keyTag) {}

  /// Of the packed key. It fills a gap in front of the key.
  U8 packedBits_ = 0;

 private:
  friend class HashTable;
  friend class HitTracker;
  friend class PhysicalHashTable;

  void taken() final { referenceAdd(); }
  void given() final { referenceDel(); }
};
static_assert(sizeof(HashEntryState) + Orb::Slab::inFront == Orb::Slab::line);

/// Packs and unpacks the rows of one software table.
class VELA_EXPORT HashBaseHelper : public Orb::PtrInterface {
 public:
  virtual Orb::Ptr<PhysicalHashProperties> doGetPhysTableProperties() const = 0;
  /// Runs once, when table and physical table are known.
  virtual void doInit() = 0;
  /// Whether a row that was read back is one of this software table's.
  virtual bool entryOwned(HwIndex index) const;
  /// Writes the bits of a row that depend on its place alone.
  virtual void setStaticBuffer(Keel::Cuckoo::CuckooLocation location, U8* image) const = 0;
  /// Packs the entry into a row image that is all zero.
  virtual void setHwBuffer(const HashBaseCuckooEntry& entry, Keel::Cuckoo::CuckooLocation location,
                           U8* image) const = 0;
  /// The entry that stands for an empty row: not valid.
  virtual Orb::Ptr<HashBaseCuckooEntry> nullHashEntry() const = 0;
  /// Packs that one, into maxRowWords words.
  virtual void setEmptyImage(Keel::Cuckoo::CuckooLocation location, U32* image) const;
  /// Unpacks the image of a row that was read back; the null entry for a row that holds none.
  virtual Orb::Ptr<HashBaseCuckooEntry> decodeHwEntry(HwIndex index) const = 0;
  /// The fields of the rows.
  virtual const RowLayout& layout() const = 0;
  /// Whether the image is one that a row can have: its parity, if it has one, is right.
  virtual bool rowSound(const U32* image) const;

  HashBaseTable* swTable() const { return swTable_; }
  /// Called by the framework before doInit().
  void tablesAre(HashBaseTable* swTable, PhysicalHashTable* physical) {
    swTable_ = swTable;
    physical_ = physical;
  }

 protected:
  HashBaseHelper() = default;
  PhysicalHashTable& physical() const { return *physical_; }

 private:
  HashBaseTable* swTable_ = nullptr;
  PhysicalHashTable* physical_ = nullptr;
};

/// One cuckoo table of the hardware and the rows of every pipeline that holds it. Several software
/// tables may place entries in it; each row belongs to the table of the entry in it.
///
/// When a register write fails, what a row holds is unknown until it is written again. Rows that
/// no entry lies in but that may still answer lookups are kept in a list and cleared before
/// anything else is done; as long as that fails, entries of the keys in question are reported as
/// hardwareError rather than programmed beside a stale row.
///
/// After a restart a row is undecided while no pipeline has said what it holds. Nobody's default is
/// written over it; an entry of its own may be. When it answers, what it holds is taken up, unless
/// that was announced or withdrawn meanwhile: then it is stale.
///
/// An entry that has no room waits for it, whichever table it belongs to. With each entry that goes
/// at most one comes in: the one that needs the fewest moves, and among those the one that waited
/// longest.
class VELA_EXPORT PhysicalHashTable : public Orb::PtrInterface,
                                      private Keel::Cuckoo::RowWriter,
                                      private HitTracker::Rows,
                                      private RowRun::Owner {
 public:
  using Location = Keel::Cuckoo::CuckooLocation;  ///< A way, and a row of it.
  using Entries = HitTracker::Entries;

  /// Without rows in hardware yet; see hwTableIs().
  explicit PhysicalHashTable(const PhysicalHashProperties& properties);
  ~PhysicalHashTable() override;

  /// Ways, rows and words of a row.
  const PhysicalHashProperties::Fields& properties() const { return properties_; }
  /// Which entry lies where, and who waits.
  const Keel::Cuckoo::Table& engine() const { return engine_; }

  /// A software table joins, with what packs its rows.
  void helperIs(Orb::Ptr<HashBaseHelper> helper);
  /// Forgets the software table and its entries; hardware keeps their rows.
  void swTableDel(HashBaseTable* table);
  /// Software tables that have joined.
  U32 swTables() const { return static_cast<U32>(helpers_.size()); }
  /// The table that joined first.
  const HashBaseTable* firstTable() const { return helpers_.front()->swTable(); }
  /// Declares one pipeline's rows. All but the first must have been made alike to the first one's.
  void hwTableIs(Orb::Ptr<HwTableConfig> table) {
    ORB_ASSERT(hwTables_.empty() || table->isAlike(*hwTables_.front()));
    hwTables_.push_back(std::move(table));
    findPipelines();
  }
  /// Declares the hit bits of a pipeline's rows; each table that shares the rows polls them.
  void hitTableIs(HwTableId id, Orb::Ptr<HitBitTableConfig> table) {
    hits_.hitTableIs(id, std::move(table), engine_.capacity());
    findPipelines();
  }
  /// The hit bits of the pipeline's rows, or null.
  Orb::Ptr<HitBitTableConfig> hitTable(HwTableId id) const { return hits_.hitTable(id); }
  /// Reads a pipeline's hit bits and tells the tables of each entry that was hit. False when a read
  /// failed.
  bool pollHits(HwTableId id, Orb::Seconds now);
  /// A poll found the row hit.
  void hit(HwIndex index, Orb::Seconds now);
  /// The pipeline's rows, or null.
  Orb::Ptr<HwTableConfig> hwTable(HwTableId id) const;
  /// All pipelines' rows, in the order in which they were declared.
  const std::vector<Orb::Ptr<HwTableConfig>>& hwTables() const { return hwTables_; }
  /// The pipeline whose rows are decoded: the first, but while entries are rebuilt.
  HwTableConfig& decodedTable() const { return *hwTables_[decoded_]; }

  /// The row that the entry may take in the way.
  HwIndex candidate(const HashBaseCuckooEntry& entry, U8 way) const {
    return hwIndex(engine_.candidate(entry, way));
  }

  /// Places an entry or rewrites its row; the outcome is its programmedStatus(). Null where it was
  /// programmed and nobody else concerned; else a handle, for whoever hears of it may drop it.
  Orb::Ptr<Keel::Cuckoo::HashItem> place(HashBaseCuckooEntry& entry);
  /// Removes an entry, and hands out a handle of it; null when it is not where the bookkeeping
  /// says. When its row could not be cleared, or one is undecided, its programmedStatus() is
  /// hardwareError, and its table hears of it when that is over.
  Orb::Ptr<Keel::Cuckoo::HashItem> remove(HashBaseCuckooEntry& entry);
  /// Whether nobody is to hear of anything, as long as placeAlone() and removeAlone() succeed and
  /// no row fails.
  bool concernsNobody() const;
  /// The same as place() of a new entry, unless it concerns others than those that it moves: then
  /// nothing happens, and it is false.
  bool placeAlone(HashBaseCuckooEntry& entry);
  /// The same as remove() of an entry, unless it concerns others: then nothing happens, and it is
  /// null.
  Orb::Ptr<Keel::Cuckoo::HashItem> removeAlone(HashBaseCuckooEntry& entry);
  /// Whether to place an entry, or else to remove it, concerns no others and no rows that failed.
  bool stageable(const HashBaseCuckooEntry& entry, bool desired);
  /// The same as place() of a valid entry that was just stageable(), or else remove(), but that its
  /// rows are added to the run. All is well only after settleStaged().
  void stage(HashBaseCuckooEntry& entry, RowRun& run);
  /// The run was flushed. The outcome of the entries that were staged is their programmedStatus().
  void settleStaged();
  /// Tries again to clear rows, and lets entries go on that they stood in the way of.
  void retry() {
    clearStaleRows();
    revisit();
  }

  /// The row's index: ways stand one behind the other.
  HwIndex hwIndex(Location location) const {
    return location.way * engine_.rowsPerWay() + location.row;
  }
  /// The inverse.
  Location location(HwIndex index) const {
    return {static_cast<U8>(index >> properties_.hashBits), index & (properties_.rowsPerWay - 1)};
  }
  /// The entry that lies in the row, or null.
  HashBaseCuckooEntry* entryAt(HwIndex index) const {
    return static_cast<HashBaseCuckooEntry*>(engine_.at(index));
  }
  /// The entry in the row, if there is one, is needed soon.
  void entrySoon(HwIndex index) const {
    const HashBaseCuckooEntry* entry = index < engine_.capacity() ? entryAt(index) : nullptr;
    if (!entry) return;
    // What is packed stands in the line behind that of its table.
    __builtin_prefetch(&entry->table_);
    __builtin_prefetch(reinterpret_cast<const char*>(&entry->table_) + Orb::Slab::line);
  }
  /// The row of a placed entry.
  HwIndex indexOf(const HashBaseCuckooEntry& entry) const { return engine_.row(entry); }
  /// Whether a row may still answer for the key of an entry that was withdrawn: it could not be
  /// cleared, or nobody knows what it holds.
  bool mayLinger(const HashBaseCuckooEntry& entry) const {
    return (!stale_.empty() && rowOf(stale_, entry)) ||
           (!undecided_.empty() && rowOf(undecided_, entry));
  }
  /// Whether rows may hold the entry although nobody announced it: it has an undecided row, or was
  /// read from hardware under another spelling of its key.
  bool mayHold(const HashBaseCuckooEntry& entry) const;
  /// The entries of the same hardware key that are here: placed, waiting, or behind such a one.
  Entries equals(const HashBaseCuckooEntry& entry) const;
  /// Entries of the software table that wait for room.
  U32 waiting(const HashBaseTable* table) const;
  /// Why the entry has no place: rows of others. See Keel::Cuckoo::Table::competitors.
  std::span<const HwIndex> competitors(const HashBaseCuckooEntry& entry) {
    return engine_.competitors(entry);
  }
  /// The entry that would come in if the one in the row went, or null. One that is equal to it in
  /// hardware comes before all others.
  const HashBaseCuckooEntry* successor(HwIndex index);
  /// The image of the row when no entry lies in it.
  void emptyImage(HwIndex index, U32* image) const;
  /// The image that the row should have.
  void expectedImage(HwIndex index, U32* image) const;

  /// Writes the rows from `start` on. Without `overwrite`, only those that hold no entry: one that
  /// could not be read before is read again, and left alone when it still cannot be; what it holds
  /// is taken up. Entries whose rows are as they should be lose their marks.
  void initRows(HwIndex start, bool overwrite);
  /// Takes up the entries that the rows hold, each from the first pipeline whose row is sound, and
  /// marks those that the pipelines do not all hold.
  void rebuild();
  /// Tries again what failed before: stale rows, and entries with hardwareError.
  void settle();

  /// Puts the entries where the rows of hardware hold them. Nothing is written; the rows of all
  /// pipelines are read. An entry that no row holds whole takes the row among its own that holds
  /// most of it. One that none does waits when there is no room for it, or else is missing.
  void takePlacement();
  /// Entries that takePlacement() found no row for and that were not placed since.
  std::vector<const HashBaseCuckooEntry*> missing() const;
  /// The table that a row belongs to: that of the entry in it, or of what hardware holds there.
  const HashBaseTable* owner(HwIndex index) const;
  /// Empties a row that no entry lies in; one that is undecided is taken up first, or left alone.
  void clearRow(HwIndex index);
  /// Takes the mark off the entry in the row when all pipelines hold what it asks for.
  void recheck(HwIndex index);
  /// Marks the entry in the row when not all pipelines hold what it asks for.
  void markDifferent(HwIndex index);

 private:
  /// A row that no entry lies in although hardware may hold one there.
  struct DoubtfulRow {
    Entries holds;  ///< What it may hold although it should not.
    Entries waits;  ///< What could not be programmed because of it.

    bool mayHold(const HashBaseCuckooEntry& entry) const;
  };
  using DoubtfulRows = std::map<HwIndex, DoubtfulRow>;
  /// An entry whose row is staged.
  struct Staged {
    Orb::Ptr<HashBaseCuckooEntry> entry;
    HwIndex index;
    bool isNew;           ///< It came into the row, rather than was there before or went.
    bool failed = false;  ///< Some pipeline's row could not be written.
  };

  /// A pipeline's rows, with their hit bits or null.
  struct Pipeline {
    HwTableConfig* rows;
    HitTracker::Table* hits;
  };

  void findPipelines();
  bool hashItemWrite(Keel::Cuckoo::HashItem& item, Location location) override;
  void addOccupants(HwIndex index, Entries& entries) const override;
  bool occupied(HwIndex index) const override;
  bool writeEmpty(HwIndex index, bool entrys);
  void writeDefault(HwIndex index);
  using Becomes = HitTracker::Becomes;
  inline bool writeImage(HwIndex index, const U32* image, Becomes becomes, RowRun* run = nullptr);
  inline bool writeTo(const Pipeline& pipeline, HwIndex index, const U32* image, bool unchanged,
                      Becomes becomes, RowRun* run);
  void rowWritten(HwTableConfig& table, HwIndex index, bool good) override;
  void rowLeft(HwIndex index, bool empty);
  inline void pack(const HashBaseCuckooEntry& entry, Location location, U32* image) const;

  inline void counted(const HashBaseCuckooEntry& entry, int change);
  bool adoptAt(HashBaseCuckooEntry& entry, Location location);
  inline Orb::Ptr<Keel::Cuckoo::HashItem> takeOut(HashBaseCuckooEntry& entry);

  /// Whether nothing is known of rows or keys but what entries say.
  bool plain() const { return (stale_.size() | undecided_.size() | duplicates_.size()) == 0; }
  static constexpr HwIndex noRow = Keel::Cuckoo::Table::noRow;
  inline HwIndex plainRow(const HashBaseCuckooEntry& entry, bool desired) const;
  inline bool placePlainly(HashBaseCuckooEntry& entry, bool fetches);
  Orb::Ptr<Keel::Cuckoo::HashItem> placeAmongOthers(HashBaseCuckooEntry& entry);
  Orb::Ptr<Keel::Cuckoo::HashItem> removeAmongOthers(HashBaseCuckooEntry& entry);
  void placeNew(HashBaseCuckooEntry& entry);
  void placeWithMoves(HashBaseCuckooEntry& entry);
  inline Orb::Ptr<Keel::Cuckoo::HashItem> removePlainly(HashBaseCuckooEntry& entry, HwIndex row);
  void failedAt(HashBaseCuckooEntry& entry, Location at);
  void failed(const Keel::Cuckoo::InsertResult& result, HashBaseCuckooEntry& entry);
  bool placeOverUndecided(HashBaseCuckooEntry& entry);
  Orb::Ptr<HashBaseCuckooEntry> guessOf(const HashBaseCuckooEntry& entry) const;
  void giveWay(HashBaseCuckooEntry& gone);
  void withdraw(HashBaseCuckooEntry& entry);
  void cameIn(const Keel::Cuckoo::SuccessionResult& next);
  void fillRows();
  U64 rowsOf(const HashBaseCuckooEntry& entry) const;
  void duplicateIs(HashBaseCuckooEntry& entry);
  bool duplicateDel(HashBaseCuckooEntry& entry);
  Orb::Ptr<HashBaseCuckooEntry> nextDuplicate(const HashBaseCuckooEntry& gone);
  void clearStaleRows();
  DoubtfulRow& staleRowIs(HwIndex index);
  void rowDecided(HwIndex index);
  void revisitAll(const DoubtfulRow& row);
  std::optional<HwIndex> rowOf(const DoubtfulRows& rows, const HashBaseCuckooEntry& entry) const;
  void readRow(HwIndex index);
  template <class Wanted>
  void readRows(HwIndex first, HwIndex end, const Wanted& wanted);
  bool decide(HwIndex index);
  void adopt(HwIndex index);
  Entries knownBefore(HashBaseCuckooEntry& entry, HwIndex index) const;
  /// What a pipeline's row says of the entry in it.
  enum class Says : U8 { entry, nothing, unsound };
  Says adoptFrom(HwIndex index);
  bool everyTableHolds(HwIndex index) const;
  void revisitIs(HashBaseCuckooEntry* entry) { toTell(revisit_, *entry); }
  void toTell(Entries& entries, HashBaseCuckooEntry& entry) {
    entries.emplace_back(&entry);
    pending_ = true;
  }
  void rowsAreCleared() { cleared_ = pending_ = true; }
  static void addOnce(Entries& entries, HashBaseCuckooEntry* entry);
  bool holds(HwIndex index, const HashBaseCuckooEntry& entry) const;
  U32 damage(HwIndex index, const HashBaseCuckooEntry& entry) const;
  void takeDamagedRows(const Entries& homeless);
  bool makeWay(HwIndex index);
  [[gnu::always_inline]] void revisit() {
    if (pending_) [[unlikely]]
      revisitThose();
  }
  void revisitThose();

  PhysicalHashProperties::Fields properties_;
  Keel::Cuckoo::Table engine_;
  /// Of the software tables that place entries here, in the order in which they joined.
  std::vector<Orb::Ptr<HashBaseHelper>> helpers_;
  std::vector<Orb::Ptr<HwTableConfig>> hwTables_;
  std::size_t decoded_ = 0;
  HitTracker hits_;
  std::vector<Pipeline> pipelines_;  ///< Those of hwTables_.

  /// Rows of which no pipeline said what they hold, and that no entry was written into since. They
  /// may hold entries that were withdrawn meanwhile.
  DoubtfulRows undecided_;
  /// Rows to be cleared.
  DoubtfulRows stale_;
  /// Entries whose hardware key another entry holds or waits for, by their rows and in order of
  /// arrival.
  std::map<U64, Entries> duplicates_;
  /// Entries whose tables are to handle them again once the operation under way is done.
  Entries revisit_;
  /// Entries that came in while others went: their tables are to be told.
  Entries cameIn_;
  Entries mended_;        ///< Marked entries whose rows were written: likewise, to take the marks.
  bool cleared_ = false;  ///< Rows were stale and are no more: someone may wait for them.
  bool pending_ = false;  ///< Any of these: they are to be told, or tried.
  HwIndex stageable_ = noRow;  ///< The row of the entry that was found to be.
  /// In the order in which their rows were added to the run.
  std::vector<Staged> staged_;
  std::size_t failed_ = 0;  ///< The one whose row failed last.
  Entries missing_;         ///< Entries that should be in hardware and are in no row.
  bool revisiting_ = false;
  /// The entry that the operation under way wrote last: when the next write fails, its old row may
  /// still hold it.
  HashBaseCuckooEntry* lastWritten_ = nullptr;
  /// The row that it lay in before, until the next write takes that.
  Location vacated_;
};

}  // namespace VelaSwitchApi
