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
///   portRegisters       or, where they have a register for each port, a PortRegister each
///   layer2Registers     or, where they are those of the layer-2 processors, a Layer2Registers; the
///                       row's field "control" is then packed from it
///
/// and, where it is not like the others,
///
///   packMore(at, key, result, row)     writes the rest of the row; with handPacked, see Row.h
///   unpackMore(at, key, row, result)   adds what only that says, and judges the row
///   sample(table, bits, key, result)   makes a result of the table of one with the bits in its
///                       fields, for the checks when the table is made
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

/// One key with its result.
template <class F>
using PlainFamilyEntry = EntryRecord<typename F::Key, typename F::Result, IndexedEntry>;

/// The base of a family's convertors. It knows no hardware; reaching its programming call is an
/// internal error.
template <class F>
class VELA_EXPORT PlainFamilyConvertor
    : public IndexedFamilyConvertor<F, PlainConvertor, PlainFamilyEntry<F>> {
  static_assert(plainTablesChecked<F>());

 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  /// Writes the key's row into every hardware table, where it differs. False when a write failed.
  virtual bool hwTableEntryIs(const Key& key, const Result& result) {
    F::trace(0, "hwTableEntryIs ", key, " ", result);
    ORB_ASSERT(false);
    return false;
  }
};

template <class F>
class VELA_EXPORT PlainFamilyTable : public IndexedFamilyTable<F, PlainTable, PlainFamilyEntry<F>> {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;
  using IndexedFamilyTable<F, PlainTable, PlainFamilyEntry<F>>::IndexedFamilyTable;

  void doSetProfileConvertor(Orb::Ptr<VelaSwitchApi::SwTableTypes> types) override {
    this->typesIs(std::move(types));
    this->profileConvertorPtrIs(Orb::make<typename ClassesOf<F>::LayerConvertor>());
  }

  void handleEntry(const Key& key) override {
    const Result* desired = this->entry(key);
    if (!desired) this->unreadForget(key);
    if (!this->initialized()) {
      F::trace(8, " Skipped as not yet initialized - key:", key);
      return;
    }
    F::trace(8, this->fwkType().name(), "::handleEntry ", key);
    if constexpr (F::traits.tracesHandling) {
      F::trace(9, "void ", this->fwkType().name(), "::handleEntry(const ", Key::typeName, "&) ",
               key);
    }
    F::trace(1, desired ? "Programming Entry " : "Removing Entry ", key);
    // A copy: the convertor may meet observers that change the entry.
    const Result result = desired ? *desired : F::absentResult();
    this->hwInconsistentEntryIs(key, !profileConvertor().hwTableEntryIs(key, result));
  }

  PlainFamilyConvertor<F>& profileConvertor() const {
    return static_cast<PlainFamilyConvertor<F>&>(*this->profileConvertorPtr());
  }

  void entryIsByRow(const IndexedEntry& row) override {
    const auto& entry = this->of(row);
    F::trace(5, "Set sw table entry for key: ", entry.key(), " value: ", entry.result());
    entryIsByHwRow(entry.key(), entry.result());
  }
  void entryDelByRow(const IndexedEntry& row) override { this->entryForget(this->of(row).key()); }
  /// Takes over what rows of hardware hold.
  virtual void entryIsByHwRow(const Key& key, const Result& result) {
    this->entryIsFromHw(key, result);
  }
};

/// What of a plain family's convertor depends on its rows.
template <class F>
class VELA_EXPORT PlainFamilyLayerConvertor : public ClassesOf<F>::Convertor {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  bool hwTableEntryIs(const Key& key, const Result& result) override {
    return rowsAre(key, result, Part::all);
  }
  /// Writes the rows in the pipelines' tables alone, or in the CPU's.
  bool ingressPipelineHwTableEntryIs(const Key& key, const Result& result) {
    return rowsAre(key, result, Part::pipelines);
  }
  bool cpuPipelineHwTableEntryIs(const Key& key, const Result& result) {
    return rowsAre(key, result, Part::cpu);
  }

 protected:
  using Entry = PlainFamilyEntry<F>;
  using Part = PlainConvertor::Part;
  using PlainFamilyConvertor<F>::of;

  bool rowsAre(const Key& key, const Result& result, Part part) {
    Entry entry(key);
    entry.resultIs(result);
    return PlainConvertor::rowsAre(entry, part);
  }

  std::vector<PlainHwTable> plainTables() const override {
    if constexpr (requires { F::portRegisters; }) {
      return portRegisterTables(this->profile(), F::traits.rowWords, F::portRegisters);
    } else if constexpr (requires { F::layer2Registers; }) {
      return layer2PortTables(this->profile(), F::layer2Registers);
    } else {
      return F::hwTables(this->profile());
    }
  }
  RowLayout makeLayout(const PlainHwTable& table) const override {
    if constexpr (requires { &F::shape; }) {
      return rowLayout<F>(table.rowWords, F::shape(this->profile(), table));
    } else {
      return rowLayout<F>(table.rowWords, rowShape<F>(this->profile(), {.cpu = table.cpu}));
    }
  }
  U32 copies() const override {
    if constexpr (requires { &F::copies; }) return F::copies(this->profile());
    return 1;
  }
  RowImage pack(const IndexedEntry& entry, HwTableId id, HwIndex) const override {
    RowImage image{};
    RowWriterOf<F> row(this->layout(id), image.data(), "hwTableEntryIs");
    row.setNamed(announced<F>(of(entry).result()));
    row.setPlace(this->indexOf(entry));
    if constexpr (requires { F::layer2Registers; }) {
      row.template set<"control">(
          layer2Control(this->declared(id), F::layer2Registers, of(entry).key().portId()));
    }
    if constexpr (requires { &F::packMore; }) {
      F::packMore(context(id), of(entry).key(), of(entry).result(), row);
    }
    if constexpr (F::traits.parityWords != 0) row.template setParity<F::traits.parityWords>();
    return image;
  }
  RowSays unpack(U32* image, HwTableId id, HwIndex, IndexedEntry& entry) const override {
    const RowReaderOf<F> row(this->layout(id), image);
    Result& result = of(entry).ownResult();
    row.getNamed(result);
    if constexpr (requires { &F::unpackMore; }) {
      return F::unpackMore(context(id), of(entry).key(), row, result);
    }
    return RowSays::result;
  }
  bool marksSound(HwTableId id, HwIndex index) const override {
    if constexpr (requires { &F::marks; }) {
      Entry row(F::keyOf(index));
      const KeyRecord* entry = this->record(KeyRecord::desired, index);
      return this->says(id, index, row) == RowSays::result &&
             F::marks(entry ? &of(*entry).result() : nullptr, row.result());
    }
    return false;
  }
  void joinRow(HwTableId id, const IndexedEntry& row, IndexedEntry& into) const override {
    if constexpr (requires { &F::joinRow; }) {
      F::joinRow(context(id), of(row).result(), of(into).ownResult());
    }
  }

 private:
  PlainRowContext context(HwTableId table) const {
    return {this->profile(), this->declared(table), *this->swTable()};
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

#define VELA_PLAIN_LIST(Do, Family, Table_, LayerConvertor_)                      \
  Do(Family, Table, Table_, PlainFamilyTable, (const std::string& name), (name)); \
  Do(Family, LayerConvertor, LayerConvertor_, PlainFamilyLayerConvertor, (), ())

#define VELA_PLAIN_CLASSES(Family, Table_, Convertor_, LayerConvertor_) \
  class Convertor_;                                                     \
  VELA_NAMES(Family, using Convertor = Convertor_;                      \
             , VELA_PLAIN_LIST, Family, Table_, LayerConvertor_);       \
  VELA_BASE_CLASS(Family, Convertor_, PlainFamilyConvertor);            \
  extern template class PlainFamilyConvertor<Family>;                   \
  VELA_PLAIN_LIST(VELA_DECLARE, Family, Table_, LayerConvertor_)

#define VELA_PLAIN_CLASSES_DEFINE(Family, Table_, Convertor_, LayerConvertor_) \
  static const TableRegistration Family##Registration{Family::traits.table};   \
  template class PlainFamilyConvertor<Family>;                                 \
  VELA_REGISTERED_DEFINE(Convertor_)                                           \
  VELA_PLAIN_LIST(VELA_DEFINE, Family, Table_, LayerConvertor_)

#define VELA_PLAIN_FAMILY(Xxx, Layer)                                                 \
  VELA_PLAIN_CLASSES(Xxx##Family, Xxx##Table, Xxx##Convertor, Xxx##Convertor##Layer); \
  VELA_PLAIN_LIST(VELA_WHOLE, Xxx##Family, Xxx##Table, Xxx##Convertor##Layer)

#define VELA_PLAIN_FAMILY_DEFINE(Xxx, Layer) \
  VELA_PLAIN_CLASSES_DEFINE(Xxx##Family, Xxx##Table, Xxx##Convertor, Xxx##Convertor##Layer)
