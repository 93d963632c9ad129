#pragma once

#include <set>

#include "Keel/Cuckoo.h"
#include "VelaSwitchApi/PhysicalHashTable.h"
#include "VelaSwitchApi/SwTable.h"

namespace VelaSwitchApi {

using HashItem = Keel::Cuckoo::HashItem;
using CuckooLocation = Keel::Cuckoo::CuckooLocation;

class PhysicalHashTableConvertor;

/// Base of the software tables whose hardware is a cuckoo hash table.
class VELA_EXPORT HashBaseTable : public SwTable {
 public:
  ~HashBaseTable() override;
  /// Makes convertor and helper through the factories below and joins the physical hash table.
  void doSetProfileConvertor(Orb::Ptr<SwTableTypes> types) override;
  void doCreateHwTable() override;
  void syncEntries() override;

  virtual void doInitStatus() = 0;  ///< Makes the table's status, when the table is made.
  /// A convertor for this table alone.
  virtual Orb::Ptr<SwTableProfileConvertor> profileConvertorFactory() const = 0;
  /// What packs and reads the table's rows.
  virtual Orb::Ptr<HashBaseHelper> hashBaseHelperFactory() const = 0;
  /// Whether the item's key is among the entries.
  virtual bool entryHasByHashItem(const HashItem& item) const = 0;
  /// Takes an entry over that hardware holds. The item must be valid.
  virtual void entryIsByHashItem(HashItem& item) = 0;
  /// Whether the item's key is among the entries with the same result.
  virtual bool entryEqualByHashItem(const HashItem& item) const = 0;
  /// Records that the entry was hit. The framework's version, for tables without hit bits, does
  /// nothing.
  virtual void lastHitByHashItemIs(HashItem& item, Orb::Seconds time);
  virtual Orb::Ptr<HashBaseCuckooEntry> cachedCuckooEntry(const HashItem& item) const = 0;
  /// Copies the entry's current result into the item.
  virtual void updateHashItem(HashItem& item) const = 0;
  /// Whether an audit found the row of the item's key different.
  virtual bool hwInconsistentEntryFromHashItem(const HashItem& item) const = 0;
  /// It is right again, or is to be written.
  virtual void hwInconsistentEntryDelFromHashItem(const HashItem& item) = 0;
  /// Drops the cached item.
  virtual void hashItemDelFromHashItem(const HashItem& item) = 0;

  /// An audit found the row of the item's key different.
  virtual void hwInconsistentEntryIsFromHashItem(const HashItem& item) = 0;
  /// Something that stood in the item's way is gone: handle its key again.
  virtual void handleHashItem(const HashItem& item) = 0;
  /// The item's programmedStatus() changed by other entries' doing: it came in from waiting, or its
  /// row could not be written.
  virtual void entryStatusIsByHashItem(HashItem& item) = 0;
  /// Whether the entry was read from hardware and nobody announced it since.
  virtual bool entryUnclaimedByHashItem(const HashItem& item) const = 0;
  /// Another spelling of such an entry's key has taken its row over: forgets it.
  virtual void entryReleaseByHashItem(const HashItem& item) = 0;

  /// Which instance of its feature the table is.
  U8 tableIdx() const { return tableIdx_; }
  /// The pipeline that this instance serves, where tables serve one each.
  U8 pipeline() const { return pipeline_; }

  /// Whether statuses are kept; said by the constructor of a kind.
  void statusSupportedIs(bool supported) { statusSupported_ = supported; }
  bool statusSupported() const { return statusSupported_; }  ///< As it was said.
  /// Whether hit bits are declared; said likewise.
  void hitBitsSupportedIs(bool supported) { hitBitsSupported_ = supported; }
  bool hitBitsSupported() const { return hitBitsSupported_; }  ///< As it was said.

  /// The rows of the entries that leave a refused item none; one fewer than they are with it. None
  /// for an item that is placed, or null.
  std::vector<Competitor> competing(const HashBaseCuckooEntry* item) const;
  /// The rows alone, without memory of their own: valid until the table is asked or changed.
  std::span<const HwIndex> competingRows(const HashBaseCuckooEntry* item) const;
  /// Those of them that the item comes in for when they go: for the others, if any, somebody comes
  /// in who waited longer or needs fewer moves.
  std::vector<Competitor> yielding(const HashBaseCuckooEntry* item) const;
  U32 placed() const { return placed_; }          ///< Entries that lie in rows.
  U32 placedPeak() const { return placedPeak_; }  ///< The most that ever did.

  /// There is none before doSetProfileConvertor.
  PhysicalHashTableConvertor& profileConvertor() const { return *hashConvertor_; }
  /// Null before doSetProfileConvertor.
  const Orb::Ptr<HashBaseHelper>& helper() const { return helper_; }

 protected:
  explicit HashBaseTable(std::string name, U8 tableIdx = 0, U8 pipeline = 0)
      : SwTable(std::move(name)), tableIdx_(tableIdx), pipeline_(pipeline) {}

 private:
  friend class PhysicalHashTable;

  U8 tableIdx_;
  U8 pipeline_;
  U32 placed_ = 0;
  U32 placedPeak_ = 0;
  Orb::Ptr<HashBaseHelper> helper_;
  PhysicalHashTableConvertor* hashConvertor_ = nullptr;
  bool statusSupported_ = false;
  bool hitBitsSupported_ = false;
};

/// Base of the convertors of hash tables.
class VELA_EXPORT PhysicalHashTableConvertor : public SwTableProfileConvertor {
 public:
  using HwTables = std::map<HwTableId, Orb::Ptr<HwTableConfig>>;

  ~PhysicalHashTableConvertor() override;
  void handleHitBitEntry(HwTableId table, HwIndex index) override;
  void doInitTableStats() override;
  bool pollHitBits(Orb::Seconds now) override;
  U32 entriesUsed(U32 index) const override;
  U32 entriesPeak(U32 index) const override;
  void initHwEntries(bool overwrite, U32 start) override;
  void syncEntries(U32 id) override;
  /// The same of several; `tables` are some of hwTables().
  void audit(const HwTables& tables);
  void expectedImage(HwTableId table, HwIndex index, U32* image) const override;
  const RowLayout& rowLayout(HwTableId table, HwIndex index) const override;
  bool rowSound(HwTableId table, HwIndex index) const override;
  void repair(const AuditFinding& finding) override;
  void takePlacement() override;

  /// Places the entry (valid) or removes it (not valid), and writes the rows that change. How a
  /// placement went is the entry's programmedStatus(); false is an internal error.
  bool handleHashEntry(HashBaseCuckooEntry& entry) {
    Orb::Ptr<HashItem> held;
    return handleHashEntry(entry, held);
  }
  /// The same. Where others may have dropped the entry meanwhile, the caller gets a handle of it.
  bool handleHashEntry(HashBaseCuckooEntry& entry, Orb::Ptr<HashItem>& held) {
    held = entry.valid() ? physical_->place(entry) : physical_->remove(entry);
    return entry.valid() || held;
  }
  /// Before an entry is handled. The counters ask the placement, so there is nothing to keep.
  void updateHashEntryCounter(const HashBaseCuckooEntry& /*entry*/, bool /*removed*/) {}

  /// Which physical table holds the rows of a software table with these properties.
  virtual U32 physicalTableId(const PhysicalHashProperties& properties) const;
  void physicalTableIs(Orb::Ptr<PhysicalHashTable> table) { physical_ = std::move(table); }
  PhysicalHashTable& physicalTable() const { return *physical_; }
  /// The software table goes: the physical table, if it was joined, forgets it.
  void swTableDel(HashBaseTable* table) {
    if (physical_) physical_->swTableDel(table);
  }

 protected:
  PhysicalHashTableConvertor() = default;

  /// Number of software tables that share the physical table.
  U32 swTables() const { return physical_ ? physical_->swTables() : 0; }

 private:
  /// What an audit finds out.
  struct Audit {
    std::set<std::pair<HwTableId, HwIndex>> unread;
    std::vector<AuditFinding> found;
    std::vector<HwIndex> different;  ///< Rows of entries.
  };
  std::vector<HwIndex> rowsToAudit() const;
  static void readRows(const HwTables& tables, const std::vector<HwIndex>& rows, Audit& audit);
  void auditRow(const HwTableConfig& table, HwIndex index, const U32* expected, Audit& audit) const;
  std::optional<AuditFinding::Kind> judge(const HwTableConfig& table, HwIndex index) const;

  Orb::Ptr<PhysicalHashTable> physical_;
};

}  // namespace VelaSwitchApi
