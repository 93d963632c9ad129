#pragma once

#include "DirectBase/IndexedRows.h"

/// Base of the tables whose row is a fixed function of the key.
namespace VelaSwitchTable {

class DirectBaseConvertor;

/// One row's key and result.
class VELA_EXPORT DirectBaseEntry : public Orb::PtrInterface {
 public:
  /// Text form for traces.
  virtual std::string toStrep() const = 0;

  /// Whether the entry is desired; the row of one that is not has its default content.
  bool valid() const { return valid_; }
  void validIs(bool valid) { valid_ = valid; }

 private:
  bool valid_ = false;
};

class VELA_EXPORT DirectBaseTable : public VelaSwitchApi::SwTable {
 public:
  void doSetProfileConvertor(Orb::Ptr<VelaSwitchApi::SwTableTypes> types) override;

  virtual Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const = 0;
  /// Whether the item's key is among the entries.
  virtual bool entryHasByDirectItem(const DirectBaseEntry& item) const = 0;
  /// Takes an entry over that hardware holds. The item must be valid.
  virtual void entryIsByDirectItem(const DirectBaseEntry& item) = 0;
  /// Whether the item's key is among the entries with the same result.
  virtual bool entryEqualByDirectItem(const DirectBaseEntry& item) const = 0;
  /// Makes the item what the entries say of its key: its result and valid, or not valid.
  virtual void updateDirectItem(DirectBaseEntry& item) const = 0;
  /// Whether the row of the item's key is known to differ from what is desired.
  virtual bool hwInconsistentEntryFromDirectItem(const DirectBaseEntry& item) const = 0;
  virtual void hwInconsistentEntryDelFromDirectItem(const DirectBaseEntry& item) = 0;

  /// Whether the table has said how many rows it has, which its capacity counters need.
  bool capacitySupported() const { return numEntries_ != 0; }

  /// The row of the item's key was found different, or could not be written.
  virtual void hwInconsistentEntryIsFromDirectItem(const DirectBaseEntry& item) = 0;

 protected:
  using SwTable::SwTable;

  /// Writes the entry's row, or its null form when it is not valid. False when a write failed; the
  /// key is then marked inconsistent.
  bool handleDirectEntry(const DirectBaseEntry& entry, U32 hwTables);
  /// Number of rows of the table; for the capacity counters.
  void numEntriesIs(U32 entries) { numEntries_ = entries; }

 private:
  friend class DirectBaseConvertor;
  U32 numEntries_ = 0;
};

/// Base of the convertors of direct tables. Every hardware table holds the same rows.
class VELA_EXPORT DirectBaseConvertor : public IndexedRowsConvertor {
 public:
  virtual HwIndex hwIndexFromItem(const DirectBaseEntry& entry) const = 0;
  /// Writes the bits of a row that depend on its place alone.
  virtual void setStaticBuffer(HwIndex index, U8* image) const = 0;
  /// Packs the entry into a row image that is all zero.
  virtual void setHwBuffer(const DirectBaseEntry& entry, U8* image) const = 0;
  /// The row's key with the default result, not valid.
  virtual Orb::Ptr<DirectBaseEntry> nullDirectEntry(HwIndex index) const = 0;
  /// Unpacks the row's image; null when it cannot be one of this table's rows, or there is no such
  /// row. An index beyond what the key can say raises the key's range error.
  virtual Orb::Ptr<DirectBaseEntry> decodeHwEntry(HwIndex index) const = 0;
  /// Which capacity counter the entry counts in.
  virtual U32 capacityIndexFromEntry(const DirectBaseEntry& entry) const;

  U32 entriesUsed(U32 index) const override;

 protected:
  friend class DirectBaseTable;

  DirectBaseTable* directTable() const { return static_cast<DirectBaseTable*>(swTable()); }
  /// Starts one capacity counter for each of `counters` parts of the table.
  void initTableStatsPerEgressPort(U32 counters);

  /// The image of a row in the hardware table that is decoded: the first, but while entries are
  /// rebuilt.
  U32* hwRow(HwIndex index) const { return hwTable(decoded_)->image(index); }

  Image rowImage(HwTableId table, HwIndex index, Content content) const override;
  bool hasEntry(HwIndex index) const override;
  bool marked(HwIndex index) const override;
  void markIs(HwIndex index, bool marked) override;
  void program(HwIndex index) override;
  void takeRow(HwTableConfig& table, HwIndex index, bool late) override;
  std::optional<Finding::Kind> judge(const HwTableConfig& table, HwIndex index,
                                     bool differs) override;

 private:
  Image rowImage(const DirectBaseEntry& entry, HwIndex index) const;
  bool rowIs(const DirectBaseEntry& entry, HwIndex index);
  bool isFirstSound(HwTableId id, HwIndex index) const;
  bool isEmpty(const HwTableConfig& table, HwIndex index) const;

  HwTableId decoded_ = 0;
};

}  // namespace VelaSwitchTable
