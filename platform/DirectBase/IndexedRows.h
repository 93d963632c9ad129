#pragma once

#include <array>
#include <optional>

#include "VelaSwitchApi/RowCheck.h"
#include "VelaSwitchApi/SwTable.h"
#include "VelaSwitchApi/TableConstants.h"

/// What direct and plain tables have in common: a key's row follows from the key.
namespace VelaSwitchTable {

using VelaSwitchApi::HwIndex;
using VelaSwitchApi::HwTableId;

/// What is desired of a row's key, or what a row says of it.
class VELA_EXPORT IndexedEntry : public Orb::PtrInterface, public VelaSwitchApi::KeyRecord {
 public:
  /// Whether the entry is desired; the row of one that is not has its default content.
  bool valid() const { return valid_; }
  void validIs(bool valid) { valid_ = valid; }

 protected:
  using KeyRecord::KeyRecord;

 private:
  void taken() final { referenceAdd(); }
  void given() final { referenceDel(); }

  bool valid_ = false;
};

/// What a row that was read back says.
enum class RowSays : U8 {
  result,   ///< Something of the result.
  nothing,  ///< Nothing that counts; it is neither taken over nor compared.
  unsound,  ///< What no row of the table can say.
};

class IndexedRowsConvertor;

/// Base of such tables: their entries, by rows.
class VELA_EXPORT IndexedTable : public VelaSwitchApi::SwTable {
 public:
  VelaSwitchApi::EntryProgrammedStatus statusOf(
      const VelaSwitchApi::KeyRecord* record) const override;

  /// The record of the row's key, or null.
  virtual const VelaSwitchApi::KeyRecord* recordAt(HwIndex index) const = 0;
  /// Marks the row's key as having a row that is not what it should be, or takes the mark off.
  virtual void markAtIs(HwIndex index, bool marked) = 0;
  /// Brings the entry of the row's key into hardware.
  virtual void handleRow(HwIndex index) = 0;
  /// The text form of the row's key.
  virtual void appendKeyAt(Orb::TextSink& sink, HwIndex index) const = 0;

 protected:
  using SwTable::SwTable;

  /// Null before the table has one.
  IndexedRowsConvertor* rows() const;

  bool stageable(const VelaSwitchApi::KeyRecord&, bool) const override { return true; }
  void flush() override;
  void settle(VelaSwitchApi::KeyRecord& record) override;
};

/// Base of the convertors of such tables. It knows rows by their index alone, and when they are
/// written, read back, compared and repaired; what they say is the derived class's to know.
class VELA_EXPORT IndexedRowsConvertor : public VelaSwitchApi::SwTableProfileConvertor,
                                         private VelaSwitchApi::RowRun::Owner {
 public:
  /// Without `overwrite`, only rows that belong to no entry: one that could not be read before is
  /// read again, and left alone when it still cannot be; what it holds is taken over. Keys whose
  /// rows are as they should be lose their marks.
  void initHwEntries(bool overwrite, U32 start) override;
  void syncEntries(U32 id) override;
  void handleRebuilt() override;
  void expectedImage(HwTableId table, HwIndex index, U32* image) const override;
  bool rowSound(HwTableId table, HwIndex index) const override;
  void repair(const VelaSwitchApi::AuditFinding& finding) override;

  /// While one exists, rows are not written but staged; then flush() writes them, and marks the
  /// keys whose rows could not be written.
  class Staging {
   public:
    /// Of no convertor it is of no use.
    explicit Staging(IndexedRowsConvertor* convertor) : convertor_(convertor) { is(true); }
    ~Staging() { is(false); }
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;

   private:
    void is(bool staging) {
      if (convertor_) convertor_->staging_ = staging;
    }

    IndexedRowsConvertor* convertor_;
  };
  /// The key is withdrawn whose first row has the index: rows of it that could not be read are as
  /// if they had never been. Returns whether there were any.
  bool unreadForget(HwIndex index);

 protected:
  using Finding = VelaSwitchApi::AuditFinding;
  using HwTableConfig = VelaSwitchApi::HwTableConfig;
  using Read = VelaSwitchApi::RegisterBus::Read;
  using Row = HwTableConfig::Row;

  using Image = VelaSwitchApi::RowImage;

  /// @param trace        the family's
  /// @param refusal      begins the trace of a row that cannot be unpacked; its index follows
  /// @param parityWords  words of a row whose bits are even in number; 0: none
  IndexedRowsConvertor(const Trace::Handle& trace, const char* refusal, U8 parityWords)
      : trace_(trace), refusal_(refusal), parityWords_(parityWords) {}

  /// The first row of the entry's key.
  virtual HwIndex indexOf(const IndexedEntry& entry) const = 0;
  /// An entry of the row's key as it is without being desired.
  virtual Orb::Ptr<IndexedEntry> newEntry(HwIndex index) const = 0;
  /// Fills in the entry's result with `bits`, for rows of the layout.
  virtual void sampleIs(IndexedEntry& entry, const VelaSwitchApi::RowLayout& layout,
                        U64 bits) const = 0;
  /// Expects of an entry that was packed and unpacked that its result is the same.
  virtual void expectSame(const VelaSwitchApi::RowCheck& check, const IndexedEntry& entry,
                          const IndexedEntry& again) const = 0;
  /// The row of an entry.
  virtual Image pack(const IndexedEntry& entry, HwTableId table, HwIndex index) const = 0;
  /// Fills in what a row of the image says, whose parity is right; may throw what odd values throw.
  virtual RowSays unpack(U32* image, HwTableId table, HwIndex index, IndexedEntry& entry) const = 0;

  /// Of a row: what is desired of its key, or what it holds without an entry.
  enum class Content : U8 { desired, empty };
  Image rowImage(HwTableId table, HwIndex index, Content content) const;
  /// What a row that was read says, and what of it in `entry`.
  RowSays says(HwTableId table, HwIndex index, IndexedEntry& entry) const;
  /// Adds to an entry, which another table's row gave, what of a table's row no other has.
  virtual void joinRow(HwTableId, const IndexedEntry&, IndexedEntry&) const {}
  /// Fails unless empty rows and those of sample entries are sound and come back as what they were.
  void checkRows() const;

  const Trace::Handle& trace() const { return trace_; }
  /// The table by its rows.
  IndexedTable& entries() const { return static_cast<IndexedTable&>(*swTable()); }
  /// The record of the row's key if it has the flag, or null.
  const VelaSwitchApi::KeyRecord* record(VelaSwitchApi::KeyRecord::Flag flag, HwIndex index) const {
    if (swTable()->count(flag) == 0) return nullptr;
    const auto* known = entries().recordAt(index);
    return known && known->has(flag) ? known : nullptr;
  }
  bool hasEntry(HwIndex index) const { return record(VelaSwitchApi::KeyRecord::desired, index); }
  bool marked(HwIndex index) const { return record(VelaSwitchApi::KeyRecord::marked, index); }
  void markIs(HwIndex index, bool marked) { entries().markAtIs(index, marked); }
  /// Takes over what a row says that was read. It is `late` when others of its key may have been
  /// taken before, or the key announced; an entry that counts more than the row is left alone.
  virtual void takeRow(HwTableConfig& table, HwIndex index, bool late) = 0;
  /// A row that was read differs from what it should be, or is marked for what it says. Marks the
  /// key, and returns what an audit reports.
  virtual std::optional<Finding::Kind> judge(const HwTableConfig& table, HwIndex index,
                                             bool differs) = 0;
  /// Brings the row to the image, or stages that; calls `before()` when hardware has to be told.
  template <class Before>
  bool writeImage(HwTableConfig& table, HwIndex index, const Image& image, const Before& before) {
    return table.entryIs(index, image.data(), before,
                         {staging_ ? &swTable()->types().run() : nullptr, this});
  }
  /// Writes what is desired of the row. False when that failed.
  virtual bool writeRow(HwTableConfig& table, HwIndex index);
  /// Whether the row says nothing, so that it is neither compared nor overwritten by a default.
  virtual bool ignored(HwTableId, HwIndex) const { return false; }
  /// Whether an audit marks the key for what a row says that is as it should be.
  virtual bool marksSound(HwTableId, HwIndex) const { return false; }
  /// A row was not read: there is none, or it cannot be.
  virtual void traceUnread(const HwTableConfig&, HwIndex, Read) const {}
  /// How often each row stands in a hardware table, one block of rows behind the other.
  virtual U32 copies() const { return 1; }

  /// Declares a hardware table, with its descriptor.
  void createHwTable(const VelaSwitchApi::HwTableIdentity& identity,
                     VelaSwitchApi::TableState state, HwIndex first, HwIndex last, U8 rowWords,
                     Orb::PtrConst<VelaSwitchApi::HwTableRegisterMapping> mapping);
  /// Declares the bits of each word that depend on the row alone.
  void staticWordsAre(const VelaSwitchApi::StaticWords& words);

  /// Calls `visit(hwTable, row)` for each row of the key whose first row has the index.
  template <class Visitor>
  void forEachRow(HwIndex index, const Visitor& visit) const {
    for (const auto& [id, table] : hwTables()) forEachRow(*table, index, visit);
  }
  template <class Visitor>
  void forEachRow(HwTableConfig& table, HwIndex index, const Visitor& visit) const {
    const auto& rows = table.descriptor();
    const HwIndex block = (rows.last - rows.first + 1) / copies();
    if (index < rows.first || index - rows.first >= block) return;
    for (U32 copy = 0; copy < copies(); ++copy, index += block) visit(table, index);
  }
  /// A row that no row of the table can be is known as another, since static words are not
  /// compared.
  void unsoundForget(HwTableConfig& table, HwIndex index);

 private:
  RowSays says(U32* image, HwTableId table, HwIndex index, IndexedEntry& entry) const;
  bool checkRow(const VelaSwitchApi::RowCheck& check, HwTableId id, HwIndex index,
                const IndexedEntry& packed) const;
  HwIndex firstRow(const HwTableConfig& table, HwIndex index) const;
  bool holds(const HwTableConfig& table, HwIndex index) const;
  bool everyRowHolds(HwIndex first) const;
  bool anyRowMarks(HwIndex first) const;
  void recheck(U32 start, bool audited);
  void readUnread(U32 start);
  void takeLate(HwTableConfig& table, HwIndex index);
  bool takesDefault(const HwTableConfig& table, HwIndex index) const;
  void auditRow(HwTableConfig& table, HwIndex index, Read read, bool late);

  void rowWritten(HwTableConfig&, HwIndex index, bool good) override {
    if (!good) markIs(index, true);
  }

  const Trace::Handle& trace_;
  const char* refusal_;
  U8 parityWords_;
  bool staging_ = false;
};

}  // namespace VelaSwitchTable
