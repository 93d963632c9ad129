#pragma once

#include "DirectBase/IndexedRows.h"

/// Base of the tables whose row is a fixed function of the key.
namespace VelaSwitchTable {

class DirectBaseConvertor;

/// Which blocks of the switch hold a direct family's rows.
enum class DirectPlacement : U8 {
  everyPipeline,         ///< The same rows in every ingress pipeline's processor.
  everyEgressProcessor,  ///< The same rows in every egress processor.
  sharedOut,             ///< One table whose rows are shared out among the egress processors.
};

/// The index of a key that no row can be for.
inline constexpr HwIndex noRow = ~HwIndex{0};

/// What a direct family says of its tables.
struct DirectFamilyTraits {
  TableIdentity table;
  DirectPlacement placement;
  const char* prefix;  ///< Register prefix with a place for the block's number.
  U8 rowWords;         ///< Words of the row image, those without a register included.
  U8 parityWords = 0;  ///< Words whose bits are even in number by the field "parity".
  /// Bits of each word that depend on the row alone, declared once the table is initialized.
  VelaSwitchApi::StaticWords staticWords{};
  U32 rowsPerBlock = 0;  ///< When rows are shared out.
};

/// One row's key and result.
class VELA_EXPORT DirectBaseEntry : public IndexedEntry {
 public:
  /// Text form for traces.
  virtual std::string toStrep() const = 0;

 protected:
  using IndexedEntry::IndexedEntry;
};

/// Base of the tables: what is asked of entries by their items.
class VELA_EXPORT DirectBaseTable : public IndexedTable {
 public:
  void doSetProfileConvertor(Orb::Ptr<VelaSwitchApi::SwTableTypes> types) override;

  virtual Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const = 0;
  /// Whether the item's key is among the entries.
  virtual bool entryHasByDirectItem(const DirectBaseEntry& item) const;
  /// Takes an entry over that hardware holds. The item must be valid.
  virtual void entryIsByDirectItem(const DirectBaseEntry& item) = 0;
  /// Whether the item's key is among the entries with the same result.
  virtual bool entryEqualByDirectItem(const DirectBaseEntry& item) const;
  /// Makes the item what the entries say of its key: its result and valid, or not valid.
  virtual void updateDirectItem(DirectBaseEntry& item) const;
  /// Whether the row of the item's key is known to differ from what is desired.
  virtual bool hwInconsistentEntryFromDirectItem(const DirectBaseEntry& item) const;
  virtual void hwInconsistentEntryDelFromDirectItem(const DirectBaseEntry& item);

  /// Whether the table has said how many rows it has, which its capacity counters need.
  bool capacitySupported() const { return numEntries_ != 0; }
  /// Rows of the table.
  U32 numEntries() const { return numEntries_; }

  /// The row of the item's key was found different, or could not be written.
  virtual void hwInconsistentEntryIsFromDirectItem(const DirectBaseEntry& item);

 protected:
  using IndexedTable::IndexedTable;

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
  ~DirectBaseConvertor() override;
  void doInitTableStats() override;
  void doCreateHwTables(VelaSwitchApi::TableState state) override;
  void handleInitialized() override { staticWordsAre(traits_.staticWords); }
  const VelaSwitchApi::RowLayout& rowLayout(HwTableId, HwIndex) const override { return layout_; }
  const VelaSwitchApi::RowLayout& layout() const { return layout_; }

  virtual HwIndex hwIndexFromItem(const DirectBaseEntry& entry) const;
  /// Writes the bits of a row that depend on its place alone.
  virtual void setStaticBuffer(HwIndex index, U8* image) const = 0;
  /// Packs the entry into a row image that is all zero.
  virtual void setHwBuffer(const DirectBaseEntry& entry, U8* image) const = 0;
  /// The row's key with the default result, not valid.
  virtual Orb::Ptr<DirectBaseEntry> nullDirectEntry(HwIndex index) const;
  /// Unpacks the row's image; null when it cannot be one of this table's rows, or there is no such
  /// row. An index beyond what the key can say raises the key's range error.
  virtual Orb::Ptr<DirectBaseEntry> decodeHwEntry(HwIndex index) const;
  /// Which capacity counter the entry counts in.
  virtual U32 capacityIndexFromEntry(const DirectBaseEntry& entry) const;

  U32 entriesUsed(U32 counter) const override;
  U32 entriesPeak(U32 counter) const override;

 protected:
  friend class DirectBaseTable;

  DirectBaseConvertor(const DirectFamilyTraits& traits, const Trace::Handle& trace)
      : IndexedRowsConvertor(trace, "not decoding entry: row ", traits.parityWords),
        traits_(traits) {}

  virtual VelaSwitchApi::RowLayout makeLayout() const = 0;
  /// Egress processors of the switch.
  virtual U32 egressBlocks() const = 0;
  /// The registers of a row in a block.
  virtual VelaSwitchApi::HwAddressColl registers(U32 block) const = 0;
  /// The row's number within its block.
  HwIndex indexInBlock(HwIndex index) const {
    return index - blockOf(index) * traits_.rowsPerBlock;
  }

  DirectBaseTable* directTable() const { return static_cast<DirectBaseTable*>(swTable()); }
  /// Starts one capacity counter for each of `counters` parts of the table.
  void initTableStatsPerEgressPort(U32 counters);

  Image pack(const IndexedEntry& entry, HwTableId table, HwIndex index) const override;
  void takeRow(HwTableConfig& table, HwIndex index, bool late) override;
  std::optional<Finding::Kind> judge(const HwTableConfig& table, HwIndex index,
                                     bool differs) override;

 private:
  bool rowIs(const DirectBaseEntry& entry, HwIndex index);
  bool isFirstSound(HwTableId id, HwIndex index) const;
  bool isEmpty(const HwTableConfig& table, HwIndex index) const;
  bool sharedOut() const { return traits_.placement == DirectPlacement::sharedOut; }
  U32 blockOf(HwIndex index) const { return sharedOut() ? index / traits_.rowsPerBlock : 0; }
  std::string hwTableName(HwTableId id) const;
  void createRows(HwTableId id, Orb::PtrConst<VelaSwitchApi::HwTableRegisterMapping> mapping,
                  VelaSwitchApi::TableState state);

  const DirectFamilyTraits& traits_;
  VelaSwitchApi::RowLayout layout_;
  HwTableId decoded_ = 0;  ///< The hardware table whose rows are decoded.
};

}  // namespace VelaSwitchTable
