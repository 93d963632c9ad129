#pragma once

#include <algorithm>
#include <functional>
#include <map>

#include "DirectBase/TableConstants.h"
#include "VelaSwitchApi/SwTable.h"
#include "VelaSwitchTable/VelaRegPrefixUtil.h"
#include "VelaSwitchTable/family/EntryStore.h"
#include "VelaSwitchTable/family/Family.h"

/// What all plain families share: tables whose row is named by the key and written straight from
/// the result. A family is a struct F, derived from PlainFamilyTypes, that says what is its own:
///
///   sourceUnit, trace            the unit's name and the trace handle called after it
///   traits                       a PlainFamilyTraits
///   hwIndex(key), keyOf(index)   which row is the key's
///   absentResult()               what the row of a key without an entry is made from
///   layout(profile, table)       the row's fields in one hardware table
///
/// and, where it is not like the others,
///
///   absentByIndex                a row that was never written is traced by its index, not its key
///   traceAbsent(table, index)    or in the family's own words
///   tracesHandling               handleEntry and writes are traced
///   ignoresRows                  rows that say nothing are left out of audits as well
///   rebuildsDefaults             rows that are as without an entry are taken over
///   announced(result)            the part of a result that shows in rows
///   tableText                    what a missing hardware table is reported as
///   marks(entry, row)            whether an audit marks the key, whose entry may be null, for what
///                                the row says
///
/// and a LayerConvertor that derives from PlainFamilyLayerConvertor<F> and knows the hardware
/// tables: doCreateHwTables(state), packRow() and unpackRow(). Where the tables can be listed, the
/// LayerConvertor derives from DeclaredLayerConvertor<F>, and F says
///
///   hwTables(profile)                  the hardware tables, a PlainHwTable each
///   copies(profile)                    how often each row stands in a table, unless once
///   pack(table, key, result, row)      writes the row of one of them
///   unpack(table, row, result)         adds what the row holds to the result
namespace VelaSwitchTable {

using VelaSwitchApi::HwIndex;
using VelaSwitchApi::HwTableId;

/// The types of a family. The named classes need only be declared where the family is.
template <class K, class R, class TableType, class ConvertorType, class LayerConvertorType>
struct PlainFamilyTypes {
  using Key = K;
  using Result = R;
  using Table = TableType;
  using Convertor = ConvertorType;
  using LayerConvertor = LayerConvertorType;
};

struct PlainFamilyTraits {
  TableIndex index;
  /// Bits of each word that depend on the row alone; where the control word of a row is so, only
  /// its data decide whether it is written.
  VelaSwitchApi::StaticWords staticWords{};
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
  const char* suffix;  ///< Part of its name.
  HwIndex first;
  HwIndex last;
  U8 rowWords;
  /// The registers of a row. Those of row `first` serve all rows unless `registersPerRow`.
  std::function<VelaSwitchApi::HwAddressColl(HwIndex)> registers;
  bool registersPerRow = false;
  bool cpu = false;  ///< Whether it is the CPU's.
  /// Says which rows use which registers, where `registers` is not enough.
  Orb::PtrConst<VelaSwitchApi::HwTableRegisterMapping> mapping{};
};

/// What a row is packed and unpacked with.
struct PlainRowContext {
  const VelaSwitch::ProfileInfo& profile;
  const PlainHwTable& table;
  const VelaSwitchApi::SwTable& swTable;
};

/// Whether the family traces what it handles and writes.
template <class F>
inline constexpr bool tracesHandling = requires {
  F::tracesHandling;
};

/// What an assertion says of a hardware table that is missing.
template <class F>
constexpr const char* tableText() {
  if constexpr (requires { F::tableText; }) return F::tableText;
  return "table";
}

/// The base of a family's convertors. It knows no hardware; reaching its programming call is an
/// internal error.
template <class F>
class VELA_EXPORT PlainFamilyConvertor : public VelaSwitchApi::SwTableProfileConvertor {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  /// Writes the key's row into every hardware table, where it differs. False when a write failed.
  virtual bool hwTableEntryIs(const Key& key, const Result& result) {
    F::trace(0, "hwTableEntryIs ", key, " ", result);
    ORB_ASSERT(false);
    return false;
  }
  /// The key is withdrawn: its rows that could not be read are as if they had never been. Returns
  /// whether there were such rows.
  virtual bool unreadForget(const Key&) { return false; }
};

template <class F>
class VELA_EXPORT PlainFamilyTable : public VelaSwitchApi::SwTable,
                                     public EntryStore<typename F::Key, typename F::Result> {
 public:
  using Family = F;
  using Key = typename F::Key;
  using Result = typename F::Result;

  explicit PlainFamilyTable(std::string name) : SwTable(std::move(name)) {}

  void doSetProfileConvertor(Orb::Ptr<VelaSwitchApi::SwTableTypes> types) override {
    typesIs(std::move(types));
    profileConvertorPtrIs(Orb::make<typename F::LayerConvertor>());
  }

  void handleEntry(const Key& key) override {
    if (!initialized()) {
      F::trace(8, " Skipped as not yet initialized - key:", key);
      if (profileConvertorPtr() && !this->entry(key)) profileConvertor().unreadForget(key);
      return;
    }
    F::trace(8, fwkType().name(), "::handleEntry ", key);
    if constexpr (tracesHandling<F>) {
      F::trace(9, "void ", fwkType().name(), "::handleEntry(const ", Key::typeName, "&) ", key);
    }
    const Result* desired = this->entry(key);
    F::trace(1, desired ? "Programming Entry " : "Removing Entry ", key);
    // A copy: the convertor may meet observers that change the collection.
    const Result result = desired ? *desired : F::absentResult();
    if (!desired) profileConvertor().unreadForget(key);
    if (profileConvertor().hwTableEntryIs(key, result)) {
      this->hwInconsistentEntryDel(key);
    } else {
      this->hwInconsistentEntryIs(key, true);
    }
  }

  PlainFamilyConvertor<F>& profileConvertor() const {
    return static_cast<PlainFamilyConvertor<F>&>(*profileConvertorPtr());
  }

  /// Takes over what rows of hardware hold.
  void entryIsByHwRow(const Key& key, const Result& result) { this->entryIsFromHw(key, result); }
  /// They hold no entry after all.
  void entryDelByHwRow(const Key& key) { this->entryForget(key); }

 protected:
  void handleInitialized() override {
    this->forEachAnnouncedKey([&](const Key& key) { handleEntry(key); });
  }
  void handleAbsent(const Key& key) override {
    if (profileConvertorPtr() && profileConvertor().unreadForget(key)) handleEntry(key);
  }
};

template <class F>
class VELA_EXPORT PlainFamilyLayerConvertor : public F::Convertor {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;
  using HwTableConfig = VelaSwitchApi::HwTableConfig;
  using Finding = VelaSwitchApi::AuditFinding;
  using Read = VelaSwitchApi::RegisterBus::Read;

  void doInitTableStats() override {
    HwIndex first = ~HwIndex{0};
    HwIndex end = 0;
    for (const auto& [id, hwTable] : this->hwTables()) {
      first = std::min(first, hwTable->descriptor().first);
      end = std::max(end, hwTable->descriptor().last + 1);
    }
    if (end != 0) this->initEntryCounter(table()->name(), (end - first) / copies(), 0);
  }
  U32 entriesUsed(U32) const override { return table()->entries().size(); }
  U32 entriesPeak(U32) const override { return table()->peak(); }

  bool hwTableEntryIs(const Key& key, const Result& result) override {
    if (!programs(key)) return true;
    bool good = true;
    for (const auto& [id, hwTable] : this->hwTables()) {
      good = writeRows(*hwTable, key, result) && good;
    }
    return good;
  }
  bool unreadForget(const Key& key) override {
    bool unread = false;
    forEachRow(key, [&](HwTableConfig& hwTable, HwIndex index) {
      if (hwTable.state(index) != HwTableConfig::Row::unread) return;
      hwTable.entryForget(index);
      unread = true;
    });
    return unread;
  }

  /// Without `overwrite`, only rows that belong to no entry: one that could not be read before is
  /// read again, and left alone when it still cannot be; what it holds is taken over. Keys whose
  /// rows are as they should be lose their marks.
  void initHwEntries(bool overwrite, U32 start) override {
    if (!overwrite) readUnread(start);
    for (const auto& [id, hwTable] : this->hwTables()) {
      const auto& descriptor = hwTable->descriptor();
      for (HwIndex index = std::max(start, descriptor.first); index <= descriptor.last; ++index) {
        const Key key = F::keyOf(index);
        if (overwrite) {
          hwTable->entryForget(index);
        } else if (!takesDefault(*hwTable, index, key)) {
          continue;
        }
        if (!writeRow(*hwTable, index, key, desired(key))) {
          table()->hwInconsistentEntryIs(key, true);
        }
      }
    }
    for (const Key& key : table()->hwInconsistentKeys()) {
      if (everyTableHolds(key)) table()->hwInconsistentEntryDel(key);
    }
  }

  void handleRebuilt() override {
    for (const auto& [id, hwTable] : this->hwTables()) {
      const auto& descriptor = hwTable->descriptor();
      for (HwIndex index = descriptor.first; index <= descriptor.last; ++index) {
        if (hwTable->mapped(index).empty() || holds(*hwTable, index)) continue;
        const Key key = F::keyOf(index);
        const bool held = hwTable->state(index) == HwTableConfig::Row::held;
        // A row that says nothing is wrong only where another one gave an entry.
        if (!table()->entry(key) && (!held || ignored(id, index))) continue;
        table()->hwInconsistentEntryIs(key, true);
      }
    }
  }

  void expectedImage(HwTableId id, HwIndex index, U32* image) const override {
    const Key key = F::keyOf(index);
    const Image expected = rowImage(id, key, desired(key));
    std::copy(expected.begin(), expected.end(), image);
  }

  bool rowSound(HwTableId id, HwIndex index) const override {
    Result result{};
    return says(id, index, result) != RowSays::unsound;
  }

  void repair(const Finding& finding) override {
    if (finding.kind == Finding::Kind::unreadable) return;
    const Key key = F::keyOf(finding.index);
    if (table()->entry(key)) {
      table()->handleEntry(key);
    } else {
      // Nobody withdrew it: rows that could not be read may hold an entry.
      markIs(key, !this->hwTableEntryIs(key, F::absentResult()));
    }
  }

  void syncEntries(U32 id) override {
    const Orb::Ptr<HwTableConfig> hwTable = this->hwTable(id);
    ORB_ASSERT_TEXT(hwTable, tableText<F>());
    const auto& descriptor = hwTable->descriptor();
    for (HwIndex index = descriptor.first; index <= descriptor.last; ++index) {
      if (hwTable->mapped(index).empty()) continue;
      if (table()->initialized()) {
        auditRow(*hwTable, index);
      } else {
        readRow(*hwTable, index);
        rebuildKey(F::keyOf(index));
      }
    }
    if (!table()->initialized() || id != this->hwTables().rbegin()->first) return;
    for (const Key& key : table()->hwInconsistentKeys()) {
      if (everyTableHolds(key) && !familyMarks(key)) table()->hwInconsistentEntryDel(key);
    }
  }

 protected:
  using Image = std::array<U32, VelaSwitchApi::maxRowWords>;

  /// Packs the row of one hardware table into an image that is all zero.
  virtual void packRow(HwTableId table, const Key& key, const Result& result,
                       Image& image) const = 0;
  /// Adds what one hardware table's row holds to the result.
  virtual RowSays unpackRow(HwTableId table, HwIndex index, U32* image, Result& result) const = 0;
  /// Adds to the result, which another table's row gave, what of a table's row no other has.
  virtual void joinRow(HwTableId, const Result&, Result&) const {}
  /// How often each row stands in a hardware table, one block of rows behind the other.
  virtual U32 copies() const { return 1; }

  /// Whether there is anything to write for the key: hardware table 0 is active, and the key has a
  /// row in the profile.
  bool programs(const Key& key) const {
    const auto first = this->hwTables().find(0);
    if (first == this->hwTables().end() || !first->second->active()) return false;
    bool row = false;
    forEachRow(key, [&](const HwTableConfig&, HwIndex) { row = true; });
    if (!row) F::trace(3, "hwTableEntryIs ", key, noRowText);
    return row;
  }
  /// Writes the key's rows in one hardware table, if that has any. False when a write failed.
  bool writeRows(HwTableConfig& hwTable, const Key& key, const Result& result) {
    bool good = true;
    forEachRow(hwTable, key, [&](HwTableConfig&, HwIndex index) {
      good = writeRow(hwTable, index, key, result) && good;
    });
    return good;
  }

  typename F::Table* table() const { return static_cast<typename F::Table*>(this->swTable()); }

 private:
  Result desired(const Key& key) const {
    const Result* result = table()->entry(key);
    return result ? *result : F::absentResult();
  }

  Image rowImage(HwTableId id, const Key& key, const Result& result) const {
    Image image{};
    packRow(id, key, result, image);
    return image;
  }

  /// Calls `visit(hwTable, index)` for each row of the key.
  template <class Visitor>
  void forEachRow(const Key& key, const Visitor& visit) const {
    for (const auto& [id, hwTable] : this->hwTables()) forEachRow(*hwTable, key, visit);
  }
  template <class Visitor>
  void forEachRow(HwTableConfig& hwTable, const Key& key, const Visitor& visit) const {
    const auto& descriptor = hwTable.descriptor();
    const HwIndex rows = (descriptor.last - descriptor.first + 1) / copies();
    HwIndex index = F::hwIndex(key);
    if (index < descriptor.first || index - descriptor.first >= rows) return;
    for (U32 copy = 0; copy < copies(); ++copy, index += rows) visit(hwTable, index);
  }

  bool writeRow(HwTableConfig& hwTable, HwIndex index, const Key& key, const Result& result) {
    // What could not be read is not lost to what nobody asked for: a default, or what other tables'
    // rows say of it.
    if (hwTable.state(index) == HwTableConfig::Row::unread &&
        (table()->entry(key) ? table()->unclaimed(key) : sameRows(result, F::absentResult()))) {
      return false;
    }
    const Image image = rowImage(hwTable.descriptor().identity.id, key, result);
    return hwTable.entryIs({index, image.data(), VelaSwitchApi::maxRowWords}, [&] {
      if constexpr (tracesHandling<F>) F::trace(9, "Set hwTableEntry key: ", key);
    });
  }

  /// Whether hardware is known to hold what is desired in the row.
  bool holds(const HwTableConfig& hwTable, HwIndex index) const {
    if (hwTable.state(index) != HwTableConfig::Row::held) return false;
    Image expected;
    expectedImage(hwTable.descriptor().identity.id, index, expected.data());
    return hwTable.same(index, expected.data(), hwTable.image(index));
  }
  bool everyTableHolds(const Key& key) const {
    bool all = true;
    forEachRow(key, [&](const HwTableConfig& hwTable, HwIndex index) {
      all = all && (hwTable.mapped(index).empty() || holds(hwTable, index));
    });
    return all;
  }

  /// Takes up what rows hold that could not be read before.
  void readUnread(U32 start) {
    using Row = HwTableConfig::Row;
    for (const auto& [id, hwTable] : this->hwTables()) {
      const auto& descriptor = hwTable->descriptor();
      for (HwIndex index = std::max(start, descriptor.first); index <= descriptor.last; ++index) {
        const Row state = hwTable->state(index);
        if (hwTable->mapped(index).empty() || (state != Row::unread && state != Row::unknown)) {
          continue;
        }
        if (readRow(*hwTable, index) != Read::failed) takeLate(F::keyOf(index));
      }
    }
  }
  /// A row of the key answers that did not before.
  void takeLate(const Key& key) {
    if (!table()->entry(key) || table()->unclaimed(key)) rebuildKey(key);
    if (table()->entry(key)) markIs(key, !everyTableHolds(key));
  }
  void markIs(const Key& key, bool marked) {
    if (marked) {
      table()->hwInconsistentEntryIs(key, true);
    } else {
      table()->hwInconsistentEntryDel(key);
    }
  }
  /// Whether a row belongs to no entry and may be written: hardware has said what it holds.
  bool takesDefault(const HwTableConfig& hwTable, HwIndex index, const Key& key) const {
    using Row = HwTableConfig::Row;
    if (hwTable.mapped(index).empty() || table()->entry(key)) return false;
    const Row state = hwTable.state(index);
    return state != Row::unread &&
           !(state == Row::held && ignored(hwTable.descriptor().identity.id, index));
  }

  Read readRow(HwTableConfig& hwTable, HwIndex index) {
    const Read read = hwTable.readEntry(index);
    if (read == Read::held) {
      unsoundForget(hwTable, index);
    } else if (read == Read::failed) {
      traceUnreadable(hwTable, F::keyOf(index));
    } else {
      traceAbsent(hwTable, F::keyOf(index), index);
    }
    return read;
  }

  /// Static words are not compared: a row that says nonsense there must be known as another.
  void unsoundForget(HwTableConfig& hwTable, HwIndex index) {
    if (hwTable.state(index) != HwTableConfig::Row::held) return;
    if (!rowSound(hwTable.descriptor().identity.id, index)) hwTable.entryForget(index);
  }

  /// Takes over what the key's rows hold. They may disagree when a writer stopped amid a change:
  /// the first that is sound counts, and of the others only what it cannot say.
  void rebuildKey(const Key& key) {
    const Result nothing = F::absentResult();
    Result result = nothing;
    bool said = false;
    forEachRow(key, [&](const HwTableConfig& hwTable, HwIndex index) {
      if (hwTable.state(index) != HwTableConfig::Row::held) return;
      const HwTableId id = hwTable.descriptor().identity.id;
      Result row = nothing;
      if (says(id, index, row) != RowSays::result) return;
      if (said) {
        joinRow(id, row, result);
      } else {
        result = row;
      }
      said = true;
    });
    if (!said) return;
    const Result* taken = table()->entry(key);
    if (taken && sameRows(*taken, result)) return;
    if (rebuildsDefaults || !sameRows(result, nothing)) {
      F::trace(5, "Set sw table entry for key: ", key, " value: ", result);
      table()->entryIsByHwRow(key, result);
    } else if (taken) {
      table()->entryDelByHwRow(key);
    }
  }

  /// Whether two results show alike in rows.
  static bool sameRows(const Result& a, const Result& b) {
    return announced<F>(a) == announced<F>(b);
  }

  static void traceAbsent(const HwTableConfig& hwTable, const Key& key, HwIndex index) {
    const auto& identity = hwTable.descriptor().identity;
    if constexpr (requires { &F::traceAbsent; }) {
      F::traceAbsent(identity.id, index);
    } else if constexpr (requires { F::absentByIndex; }) {
      F::trace(5, " index ", index, " does not exist.");
    } else {
      F::trace(3, "Missing hw table entry for key: ", key, ", table ", identity.name);
    }
  }
  static void traceUnreadable(const HwTableConfig& hwTable, const Key& key) {
    F::trace(3, "Unreadable hw table entry for key: ", key, ", table ",
             hwTable.descriptor().identity.name);
  }

  /// Whether rows that say nothing are left out of audits as well.
  static constexpr bool ignoresRows = requires { F::ignoresRows; };
  static constexpr bool rebuildsDefaults = requires { F::rebuildsDefaults; };

  bool ignored(HwTableId id, HwIndex index) const {
    Result result{};
    return ignoresRows && says(id, index, result) == RowSays::nothing;
  }

  /// Rows come from hardware: whatever they hold must not do more harm than be refused.
  RowSays says(HwTableId id, HwIndex index, Result& result) const {
    try {
      return unpackRow(id, index, this->hwTable(id)->image(index), result);
    } catch (const Orb::RangeException& error) {
      F::trace(3, " index ", index, ": ", error.what());
    } catch (const Orb::AssertionFailed& error) {
      F::trace(3, " index ", index, ": ", error.what());
    }
    return RowSays::unsound;
  }

  void auditRow(HwTableConfig& hwTable, HwIndex index) {
    const HwTableId id = hwTable.descriptor().identity.id;
    const Key key = F::keyOf(index);
    const bool late = hwTable.state(index) == HwTableConfig::Row::unread;
    const Read read = hwTable.readEntry(index);
    if (read == Read::failed) {
      traceUnreadable(hwTable, key);
      this->auditFindingIs({Finding::Kind::unreadable, id, index});
      return;
    }
    if (late) {
      unsoundForget(hwTable, index);
      takeLate(key);
    }
    const Result* entry = table()->entry(key);
    if (read == Read::absent) {
      traceAbsent(hwTable, key, index);
      if (!entry || rowImage(id, key, *entry) == rowImage(id, key, F::absentResult())) return;
      this->auditFindingIs({Finding::Kind::missing, id, index});
      table()->hwInconsistentEntryIs(key, true);
      return;
    }
    if (ignored(id, index)) return;
    const bool differs = !holds(hwTable, index);
    if (!differs && !familyMarks(hwTable, index)) return;
    F::trace(3, "Inconsistent hw table entry for key: ", key);
    table()->hwInconsistentEntryIs(key, true);
    if (entry) {
      this->auditFindingIs({Finding::Kind::inconsistent, id, index});
    } else if (differs) {
      this->auditFindingIs({Finding::Kind::unexpected, id, index});
    }
  }

  /// Whether the family marks the key for what a row says that is as it should be.
  bool familyMarks(const HwTableConfig& hwTable, HwIndex index) const {
    if constexpr (requires { &F::marks; }) {
      Result row = F::absentResult();
      return says(hwTable.descriptor().identity.id, index, row) == RowSays::result &&
             F::marks(table()->entry(F::keyOf(index)), row);
    }
    return false;
  }
  bool familyMarks(const Key& key) const {
    bool marked = false;
    forEachRow(key, [&](const HwTableConfig& hwTable, HwIndex index) {
      marked = marked || familyMarks(hwTable, index);
    });
    return marked;
  }
};

/// The convertor of a family that lists its hardware tables.
template <class F>
class VELA_EXPORT DeclaredLayerConvertor : public PlainFamilyLayerConvertor<F> {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  void doCreateHwTables(VelaSwitchApi::TableState state) override {
    createHwTables(state, [](const PlainHwTable&) { return true; });
  }

  void handleInitialized() override {
    for (U8 word = 0; word < VelaSwitchApi::maxRowWords; ++word) {
      if (F::traits.staticWords[word] != 0) this->hwStaticWordIs(word, F::traits.staticWords[word]);
    }
  }

 protected:
  using Image = typename PlainFamilyLayerConvertor<F>::Image;

  /// Creates those of the family's hardware tables that are wanted.
  template <class Wanted>
  void createHwTables(VelaSwitchApi::TableState state, Wanted wanted) {
    using namespace VelaSwitchApi;
    const std::string family = TableConstants::tableName(F::traits.index);
    for (PlainHwTable& declared : F::hwTables(this->profile())) {
      if (!wanted(declared)) continue;
      const std::string name = SwTable::hwTableName(family, "", declared.suffix, declared.id);
      const auto descriptor = HwTableDescriptorConfig::hwTableDescIs(
          {family, 0, declared.id, name}, state, declared.first, declared.last, declared.rowWords,
          mapping(name, declared));
      const auto hwTable = Orb::make<HwTableConfig>(descriptor, this->swTable()->types().bus());
      ORB_ASSERT_TEXT(hwTable, tableText<F>());
      this->hwTableIs(declared.id, hwTable);
      this->descriptorIs(declared.id, descriptor);
      layouts_[declared.id] = F::layout(this->profile(), declared.id);
      declared_.emplace(declared.id, std::move(declared));
    }
  }

  const PlainHwTable& declared(HwTableId table) const { return declared_.at(table); }

  void packRow(HwTableId table, const Key& key, const Result& result, Image& image) const override {
    VelaSwitchApi::RowWriter row(layouts_.at(table), reinterpret_cast<U8*>(image.data()), F::trace,
                                 "hwTableEntryIs");
    F::pack(context(table), key, result, row);
  }
  RowSays unpackRow(HwTableId table, HwIndex index, U32* image, Result& result) const override {
    return F::unpack(context(table), F::keyOf(index),
                     VelaSwitchApi::RowReader(layouts_.at(table), image), result);
  }

  const VelaSwitchApi::RowLayout& rowLayout(HwTableId table, HwIndex) const override {
    return layouts_.at(table);
  }
  U32 copies() const override {
    if constexpr (requires { &F::copies; }) return F::copies(this->profile());
    return 1;
  }

 private:
  PlainRowContext context(HwTableId table) const {
    return {this->profile(), declared_.at(table), *this->swTable()};
  }

  static Orb::PtrConst<VelaSwitchApi::HwTableRegisterMapping> mapping(const std::string& name,
                                                                      const PlainHwTable& table) {
    using namespace VelaSwitchApi;
    if (table.mapping) return table.mapping;
    if (!table.registersPerRow) {
      return Orb::make<HwTableRegisterMappingConst>(name, table.registers(table.first));
    }
    const auto rows = Orb::make<HwTableRegisterMappingColl>(name);
    for (HwIndex index = table.first; index <= table.last; ++index) {
      rows->regsIs(index, table.registers(index));
    }
    return rows;
  }

  std::map<HwTableId, VelaSwitchApi::RowLayout> layouts_;
  std::map<HwTableId, PlainHwTable> declared_;
};

}  // namespace VelaSwitchTable

// The classes of a plain family, their factories (table by name) and their templates, which are
// compiled in the family's source file alone. The base of the convertors has no factory: it knows
// no hardware. A family whose classes add something of their own writes those by hand and has
// VELA_CLASS for the others, between VELA_PLAIN_TEMPLATES and VELA_PLAIN_FACTORIES.

/// `instantiate` is extern, or nothing where they are compiled.
#define VELA_PLAIN_TEMPLATES(instantiate, Family)          \
  instantiate template class PlainFamilyTable<Family>;     \
  instantiate template class PlainFamilyConvertor<Family>; \
  instantiate template class PlainFamilyLayerConvertor<Family>

#define VELA_PLAIN_FACTORIES(Table, LayerConvertor)          \
  VELA_FACTORY(Table, Table##Is, (const std::string& name)); \
  VELA_FACTORY(LayerConvertor, LayerConvertor##Is, ())

#define VELA_PLAIN_FAMILY(Family, Table, Convertor, LayerConvertor) \
  VELA_CLASS(Family, Table, PlainFamilyTable);                      \
  VELA_BASE_CLASS(Family, Convertor, PlainFamilyConvertor);         \
  VELA_PLAIN_TEMPLATES(extern, Family);                             \
  extern template class DeclaredLayerConvertor<Family>;             \
  VELA_CLASS(Family, LayerConvertor, DeclaredLayerConvertor);       \
  VELA_PLAIN_FACTORIES(Table, LayerConvertor)

/// For a family whose layer convertor is not a DeclaredLayerConvertor.
#define VELA_PLAIN_CLASSES_DEFINE(Family, Table, Convertor, LayerConvertor) \
  VELA_PLAIN_TEMPLATES(, Family);                                           \
  VELA_REGISTERED_DEFINE(Table)                                             \
  VELA_REGISTERED_DEFINE(Convertor)                                         \
  VELA_REGISTERED_DEFINE(LayerConvertor)                                    \
  VELA_FACTORY_DEFINE(Table, Table##Is, (const std::string& name), (name))  \
  VELA_FACTORY_DEFINE(LayerConvertor, LayerConvertor##Is, (), ())

#define VELA_PLAIN_FAMILY_DEFINE(Family, Table, Convertor, LayerConvertor) \
  template class DeclaredLayerConvertor<Family>;                           \
  VELA_PLAIN_CLASSES_DEFINE(Family, Table, Convertor, LayerConvertor)
