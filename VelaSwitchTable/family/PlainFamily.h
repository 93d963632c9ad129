#pragma once

#include "VelaSwitchTable/VelaRegPrefixUtil.h"
#include "VelaSwitchTable/family/IndexedFamily.h"
#include "VelaSwitchTable/family/PlainTables.h"

/// What all plain families share: tables whose row is named by the key and written straight from
/// the result. A family is a struct F, derived from IndexedFamily, that says what is its own:
///
///   traits              a PlainFamilyTraits
///   fields              the row; see Row.h. What depends on the result alone is packed by name
///   hwTables(profile)   the hardware tables, a PlainHwTable each
///
/// and, where it is not like the others,
///
///   packMore(at, key, result, row)     writes the rest of the row
///   unpackMore(at, key, row, result)   adds what only that says, and judges the row
///   shape(profile, table)              what the fields' places depend on, unless a RowShape
///   hwIndex(key), keyOf(index), absentResult()
///   copies(profile)                    how often each row stands in a hardware table, unless once
///   announced(result)                  the part of a result that shows in rows
///   marks(entry, row)                  whether an audit marks the key, whose entry may be null,
///                                      for what the row says
///   joinRow(at, row, result)           adds to the result, which another table's row gave, what of
///                                      a table's row no other has
namespace VelaSwitchTable {

/// What a row is packed and unpacked with.
struct PlainRowContext {
  const VelaSwitch::ProfileInfo& profile;
  const PlainHwTable& table;
  const VelaSwitchApi::SwTable& swTable;
};

/// The base of a family's convertors. It knows no hardware; reaching its programming call is an
/// internal error.
template <class F>
class VELA_EXPORT PlainFamilyConvertor : public PlainConvertor {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  PlainFamilyConvertor() : PlainConvertor(F::traits, F::trace) {}

  /// Writes the key's row into every hardware table, where it differs. False when a write failed.
  virtual bool hwTableEntryIs(const Key& key, const Result& result) {
    F::trace(0, "hwTableEntryIs ", key, " ", result);
    ORB_ASSERT(false);
    return false;
  }
};

template <class F>
class VELA_EXPORT PlainFamilyTable : public IndexedFamilyTable<F, VelaSwitchApi::SwTable> {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;
  using IndexedFamilyTable<F, VelaSwitchApi::SwTable>::IndexedFamilyTable;

  void doSetProfileConvertor(Orb::Ptr<VelaSwitchApi::SwTableTypes> types) override {
    this->typesIs(std::move(types));
    this->profileConvertorPtrIs(Orb::make<typename ClassesOf<F>::LayerConvertor>());
  }

  void handleEntry(const Key& key) override {
    if (!this->initialized()) {
      F::trace(8, " Skipped as not yet initialized - key:", key);
      if (!this->entry(key)) this->unreadForget(key);
      return;
    }
    F::trace(8, this->fwkType().name(), "::handleEntry ", key);
    if constexpr (F::traits.tracesHandling) {
      F::trace(9, "void ", this->fwkType().name(), "::handleEntry(const ", Key::typeName, "&) ",
               key);
    }
    const Result* desired = this->entry(key);
    F::trace(1, desired ? "Programming Entry " : "Removing Entry ", key);
    // A copy: the convertor may meet observers that change the entry.
    const Result result = desired ? *desired : F::absentResult();
    if (!desired) this->unreadForget(key);
    if (profileConvertor().hwTableEntryIs(key, result)) {
      this->hwInconsistentEntryDel(key);
    } else {
      this->hwInconsistentEntryIs(key, true);
    }
  }

  PlainFamilyConvertor<F>& profileConvertor() const {
    return static_cast<PlainFamilyConvertor<F>&>(*this->profileConvertorPtr());
  }

  /// Takes over what rows of hardware hold.
  void entryIsByHwRow(const Key& key, const Result& result) { this->entryIsFromHw(key, result); }
  /// They hold no entry after all.
  void entryDelByHwRow(const Key& key) { this->entryForget(key); }
};

template <class F>
class VELA_EXPORT PlainFamilyLayerConvertor : public ClassesOf<F>::Convertor {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;
  using HwTableConfig = VelaSwitchApi::HwTableConfig;

  U32 entriesUsed(U32) const override { return table()->entries().size(); }
  U32 entriesPeak(U32) const override { return table()->peak(); }

  void doCreateHwTables(VelaSwitchApi::TableState state) override {
    createHwTables(state, [](const PlainHwTable&) { return true; });
  }
  bool hwTableEntryIs(const Key& key, const Result& result) override {
    if (!programs(key)) return true;
    bool good = true;
    for (const auto& [id, hwTable] : this->hwTables()) {
      good = writeRows(*hwTable, key, result) && good;
    }
    return good;
  }
  bool rowSound(HwTableId id, HwIndex index) const override {
    Result result{};
    return says(id, index, result) != RowSays::unsound;
  }

 protected:
  using Image = IndexedRowsConvertor::Image;

  /// Creates those of the family's hardware tables that are wanted.
  template <class Wanted>
  void createHwTables(VelaSwitchApi::TableState state, const Wanted& wanted) {
    for (const PlainHwTable& each : F::hwTables(this->profile())) {
      if (wanted(each)) this->createHwTable(each, makeLayout(each), state);
    }
  }

  /// Whether there is anything to write for the key: hardware table 0 is active, and the key has a
  /// row in the profile.
  bool programs(const Key& key) const {
    const auto first = this->hwTables().find(0);
    if (first == this->hwTables().end() || !first->second->active()) return false;
    bool row = false;
    this->forEachRow(F::hwIndex(key), [&](const HwTableConfig&, HwIndex) { row = true; });
    if (!row) F::trace(3, "hwTableEntryIs ", key, noRowText);
    return row;
  }
  /// Writes the key's rows in one hardware table, if that has any. False when a write failed.
  bool writeRows(HwTableConfig& hwTable, const Key& key, const Result& result) {
    bool good = true;
    this->forEachRow(hwTable, F::hwIndex(key), [&](HwTableConfig&, HwIndex index) {
      good = writeRow(hwTable, index, key, result) && good;
    });
    return good;
  }

  TableOf<F>* table() const { return static_cast<TableOf<F>*>(this->swTable()); }

  Image rowImage(HwTableId id, HwIndex index,
                 IndexedRowsConvertor::Content content) const override {
    const Key key = F::keyOf(index);
    const bool desires = content == IndexedRowsConvertor::Content::desired;
    return rowImage(id, key, desires ? desired(key) : F::absentResult());
  }
  bool writeRow(HwTableConfig& hwTable, HwIndex index) override {
    const Key key = F::keyOf(index);
    return writeRow(hwTable, index, key, desired(key));
  }
  void takeRow(HwTableConfig& hwTable, HwIndex index, bool late) override {
    const Key key = F::keyOf(index);
    this->unsoundForget(hwTable, index);
    if (!late || !table()->entry(key) || table()->unclaimed(key)) rebuildKey(key);
  }
  bool ignored(HwTableId id, HwIndex index) const override {
    Result result{};
    return F::traits.ignoresRows && says(id, index, result) == RowSays::nothing;
  }
  bool marksSound(HwTableId id, HwIndex index) const override {
    if constexpr (requires { &F::marks; }) {
      Result row = F::absentResult();
      return says(id, index, row) == RowSays::result &&
             F::marks(table()->entry(F::keyOf(index)), row);
    }
    return false;
  }
  U32 copies() const override {
    if constexpr (requires { &F::copies; }) return F::copies(this->profile());
    return 1;
  }

 private:
  static constexpr bool packsMore = requires { &F::packMore; };
  static_assert(rowChecked<F, F::traits.rowWords, packsMore>());
  static_assert(F::traits.parityWords == 0 || findField<F>("parity"),
                "a row with parity has a field \"parity\"");

  VelaSwitchApi::RowLayout makeLayout(const PlainHwTable& table) const {
    if constexpr (requires { &F::shape; }) {
      return rowLayout<F>(table.rowWords, F::shape(this->profile(), table));
    } else {
      return rowLayout<F>(table.rowWords, rowShape<F>(this->profile(), {.cpu = table.cpu}));
    }
  }
  PlainRowContext context(HwTableId table) const {
    return {this->profile(), this->declared(table), *this->swTable()};
  }

  Result desired(const Key& key) const {
    const Result* result = table()->entry(key);
    return result ? *result : F::absentResult();
  }

  Image rowImage(HwTableId id, const Key& key, const Result& result) const {
    Image image{};
    RowWriterOf<F> row(this->layout(id), image.data(), "hwTableEntryIs");
    row.setNamed(announced<F>(result));
    row.setPlace(F::hwIndex(key));
    if constexpr (packsMore) F::packMore(context(id), key, result, row);
    if constexpr (F::traits.parityWords != 0) row.setParity(F::traits.parityWords);
    return image;
  }

  bool writeRow(HwTableConfig& hwTable, HwIndex index, const Key& key, const Result& result) {
    // What could not be read is not lost to what nobody asked for: a default, or what other tables'
    // rows say of it.
    if (hwTable.state(index) == HwTableConfig::Row::unread &&
        (table()->entry(key) ? table()->unclaimed(key) : sameRows(result, F::absentResult()))) {
      return false;
    }
    const Image image = rowImage(hwTable.descriptor().identity.id, key, result);
    return this->writeImage(hwTable, index, image, [&] {
      if constexpr (F::traits.tracesHandling) F::trace(9, "Set hwTableEntry key: ", key);
    });
  }

  /// Takes over what the key's rows hold. They may disagree when a writer stopped amid a change:
  /// the first that is sound counts, and of the others only what it cannot say.
  void rebuildKey(const Key& key) {
    const Result nothing = F::absentResult();
    Result result = nothing;
    bool said = false;
    this->forEachRow(F::hwIndex(key), [&](const HwTableConfig& hwTable, HwIndex index) {
      if (hwTable.state(index) != HwTableConfig::Row::held) return;
      const HwTableId id = hwTable.descriptor().identity.id;
      Result row = nothing;
      if (says(id, index, row) != RowSays::result) return;
      if (!said) {
        result = row;
      } else if constexpr (requires { &F::joinRow; }) {
        F::joinRow(context(id), row, result);
      }
      said = true;
    });
    if (!said) return;
    const Result* taken = table()->entry(key);
    if (taken && sameRows(*taken, result)) return;
    if (F::traits.rebuildsDefaults || !sameRows(result, nothing)) {
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

  RowSays says(HwTableId id, HwIndex index, Result& result) const {
    return readSafely(F::trace, " index ", index, RowSays::unsound, [&] {
      const RowReaderOf<F> row(this->layout(id), this->hwTable(id)->image(index));
      if (!row.paritySound(F::traits.parityWords)) return RowSays::unsound;
      row.getNamed(result);
      if constexpr (requires { &F::unpackMore; }) {
        return F::unpackMore(context(id), F::keyOf(index), row, result);
      }
      return RowSays::result;
    });
  }
};

}  // namespace VelaSwitchTable

// The classes of a plain family are named after it: of the family Xxx, the struct XxxFamily,
//
//   VELA_PLAIN_FAMILY(Xxx, Layer2All);         in the header, behind the struct
//   VELA_PLAIN_FAMILY_DEFINE(Xxx, Layer2All)   in the source file
//
// make XxxTable, XxxConvertor, which knows no hardware, XxxConvertorLayer2All, the templates behind
// them, which are compiled in that source file alone, and the factories XxxTableIs(name) and
// XxxConvertorLayer2AllIs(). A family that adds something to its table or layer convertor writes
// VELA_PLAIN_CLASSES, that class, and VELA_CLASS for the other.

/// `instantiate` is extern, or nothing where they are compiled.
#define VELA_PLAIN_TEMPLATES(instantiate, Family)          \
  instantiate template class PlainFamilyTable<Family>;     \
  instantiate template class PlainFamilyConvertor<Family>; \
  instantiate template class PlainFamilyLayerConvertor<Family>

#define VELA_PLAIN_CLASSES(Family, Table_, Convertor_, LayerConvertor_) \
  class Table_;                                                         \
  class Convertor_;                                                     \
  class LayerConvertor_;                                                \
  template <>                                                           \
  struct ClassesOf<Family> {                                            \
    using Table = Table_;                                               \
    using Convertor = Convertor_;                                       \
    using LayerConvertor = LayerConvertor_;                             \
  };                                                                    \
  VELA_BASE_CLASS(Family, Convertor_, PlainFamilyConvertor);            \
  VELA_PLAIN_TEMPLATES(extern, Family);                                 \
  VELA_FACTORY(Table_, Table_##Is, (const std::string& name));          \
  VELA_FACTORY(LayerConvertor_, LayerConvertor_##Is, ())

#define VELA_PLAIN_CLASSES_DEFINE(Family, Table, Convertor, LayerConvertor)  \
  static const TableRegistration Family##Registration{Family::traits.table}; \
  VELA_PLAIN_TEMPLATES(, Family);                                            \
  VELA_REGISTERED_DEFINE(Table)                                              \
  VELA_REGISTERED_DEFINE(Convertor)                                          \
  VELA_REGISTERED_DEFINE(LayerConvertor)                                     \
  VELA_FACTORY_DEFINE(Table, Table##Is, (const std::string& name), (name))   \
  VELA_FACTORY_DEFINE(LayerConvertor, LayerConvertor##Is, (), ())

#define VELA_PLAIN_FAMILY(Xxx, Layer)                                                 \
  VELA_PLAIN_CLASSES(Xxx##Family, Xxx##Table, Xxx##Convertor, Xxx##Convertor##Layer); \
  VELA_CLASS(Xxx##Family, Xxx##Table, PlainFamilyTable);                              \
  VELA_CLASS(Xxx##Family, Xxx##Convertor##Layer, PlainFamilyLayerConvertor)

#define VELA_PLAIN_FAMILY_DEFINE(Xxx, Layer) \
  VELA_PLAIN_CLASSES_DEFINE(Xxx##Family, Xxx##Table, Xxx##Convertor, Xxx##Convertor##Layer)
