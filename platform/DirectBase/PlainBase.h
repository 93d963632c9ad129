#pragma once

#include <functional>
#include <map>

#include "DirectBase/IndexedRows.h"
#include "Trace/Trace.h"

/// What the convertors of plain families need not know key and result for.
namespace VelaSwitchTable {

/// How a row that was never written is traced.
enum class AbsentTrace : U8 { byKey, byIndex, byTableAndIndex };

struct PlainFamilyTraits {
  TableIdentity table;
  U8 rowWords = 0;     ///< Words of the row image; the CPU's tables may have fewer.
  U8 parityWords = 0;  ///< Words whose bits are even in number by the field "parity".
  /// Bits of each word that depend on the row alone; where the control word of a row is so, only
  /// its data decide whether it is written.
  VelaSwitchApi::StaticWords staticWords{};
  AbsentTrace absentTrace = AbsentTrace::byIndex;
  bool tracesHandling = false;      ///< handleEntry and writes are traced.
  bool ignoresRows = false;         ///< Rows that say nothing are left out of audits as well.
  bool rebuildsDefaults = false;    ///< Rows that are as without an entry are taken over.
  const char* tableText = "table";  ///< What a missing hardware table is reported as.
};

/// One hardware table of a plain family.
struct PlainHwTable {
  HwTableId id;
  const char* suffix = "";  ///< Part of its name.
  HwIndex first = 0;
  HwIndex last;
  U8 rowWords;
  /// The registers of a row. Those of row `first` serve all rows unless `registersPerRow`.
  std::function<VelaSwitchApi::HwAddressColl(HwIndex)> registers{};
  bool registersPerRow = false;
  bool cpu = false;  ///< Whether it is the CPU's.
  /// Says which rows use which registers, where `registers` is not enough.
  Orb::PtrConst<VelaSwitchApi::HwTableRegisterMapping> mapping{};
};

/// The entries of a plain table as its convertor finds them in hardware.
class VELA_EXPORT PlainTable : public IndexedTable {
 public:
  using IndexedTable::IndexedTable;

  /// Takes over what rows of hardware hold.
  virtual void entryIsByRow(const IndexedEntry& row) = 0;
  /// They hold no entry after all.
  virtual void entryDelByRow(const IndexedEntry& row) = 0;
};

/// Base of the convertors of plain families: their hardware tables, and what becomes of entries in
/// them.
class VELA_EXPORT PlainConvertor : public IndexedRowsConvertor {
 public:
  ~PlainConvertor() override;
  void doInitTableStats() override;
  void doCreateHwTables(VelaSwitchApi::TableState state) override;
  /// The pipelines' tables alone, or the CPU's.
  void getIngressPipelineHwTables(VelaSwitchApi::TableState state) {
    createHwTables(state, Part::pipelines);
  }
  void getCpuPipelineHwTables(VelaSwitchApi::TableState state) { createHwTables(state, Part::cpu); }
  void syncEntries(U32 table) override;
  U32 entriesUsed(U32 counter) const override;
  U32 entriesPeak(U32 counter) const override;
  void handleInitialized() override { staticWordsAre(traits_.staticWords); }
  const VelaSwitchApi::RowLayout& rowLayout(HwTableId table, HwIndex) const override {
    return layout(table);
  }
  const VelaSwitchApi::RowLayout& layout(HwTableId table) const { return layouts_.at(table); }
  /// Of tables that lie in the pipelines: whether one is the CPU pipeline's, the last one on
  /// profiles that have it.
  bool isCpuPipeline(U32 tableIndex, U32 numTables) const {
    return profile().cpuPipeline() && tableIndex == numTables - 1;
  }

 protected:
  PlainConvertor(const PlainFamilyTraits& traits, const Trace::Handle& trace)
      : IndexedRowsConvertor(trace, " index ", traits.parityWords), traits_(traits) {}

  /// The family's hardware tables.
  virtual std::vector<PlainHwTable> plainTables() const = 0;
  virtual VelaSwitchApi::RowLayout makeLayout(const PlainHwTable& table) const = 0;

  /// Which of the hardware tables.
  enum class Part : U8 { all, pipelines, cpu };
  void createHwTables(VelaSwitchApi::TableState state, Part part);
  /// Writes the entry's rows; all of them when hardware table 0 is active. False when a write
  /// failed.
  bool rowsAre(const IndexedEntry& entry, Part part);
  /// A hardware table that was created.
  const PlainHwTable& declared(HwTableId table) const { return declared_.at(table); }

  bool writeRow(HwTableConfig& table, HwIndex index) override;
  void takeRow(HwTableConfig& table, HwIndex index, bool late) override;
  bool ignored(HwTableId table, HwIndex index) const override;
  std::optional<Finding::Kind> judge(const HwTableConfig& table, HwIndex index,
                                     bool differs) override;
  void traceUnread(const HwTableConfig& table, HwIndex index, Read read) const override;

 private:
  /// The key of a row, made when it is traced.
  struct KeyOfRow {
    const PlainConvertor& convertor;
    HwIndex index;
    void append(Orb::TextSink& sink) const { convertor.entries().appendKeyAt(sink, index); }
    friend void appendText(Orb::TextSink& sink, const KeyOfRow& key) { key.append(sink); }
  };

  bool writeRow(HwTableConfig& table, HwIndex index, const IndexedEntry& entry);
  void rebuildKey(HwIndex index);
  bool isPart(HwTableId table, Part part) const {
    return part == Part::all || declared(table).cpu == (part == Part::cpu);
  }

  const PlainFamilyTraits& traits_;
  std::map<HwTableId, VelaSwitchApi::RowLayout> layouts_;
  std::map<HwTableId, PlainHwTable> declared_;
};

}  // namespace VelaSwitchTable
