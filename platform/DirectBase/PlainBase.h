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

/// What a row that was read back says.
enum class RowSays : U8 {
  result,   ///< Something of the result.
  nothing,  ///< Nothing that counts; it is neither taken over nor compared.
  unsound,  ///< What no row of the table can say.
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

/// Base of the convertors of plain families: their hardware tables, and what they trace.
class VELA_EXPORT PlainConvertor : public IndexedRowsConvertor {
 public:
  ~PlainConvertor() override;
  void doInitTableStats() override;
  void syncEntries(U32 table) override;
  void handleInitialized() override { staticWordsAre(traits_.staticWords); }
  const VelaSwitchApi::RowLayout& rowLayout(HwTableId table, HwIndex) const override {
    return layout(table);
  }
  const VelaSwitchApi::RowLayout& layout(HwTableId table) const { return layouts_.at(table); }

 protected:
  PlainConvertor(const PlainFamilyTraits& traits, const Trace::Handle& trace)
      : traits_(traits), trace_(trace) {}

  void createHwTable(const PlainHwTable& table, VelaSwitchApi::RowLayout layout,
                     VelaSwitchApi::TableState state);
  /// A hardware table that was created.
  const PlainHwTable& declared(HwTableId table) const { return declared_.at(table); }

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

  const PlainFamilyTraits& traits_;
  const Trace::Handle& trace_;
  std::map<HwTableId, VelaSwitchApi::RowLayout> layouts_;
  std::map<HwTableId, PlainHwTable> declared_;
};

}  // namespace VelaSwitchTable
