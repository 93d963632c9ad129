#pragma once

#include "DirectBase/DirectBase.h"
#include "VelaSwitchTable/VelaRegPrefixUtil.h"
#include "VelaSwitchTable/family/IndexedFamily.h"

/// What all direct families share: tables whose row is a fixed function of the key. A family is a
/// struct F, derived from IndexedFamily, that says what is its own:
///
///   traits           a DirectFamilyTraits
///   fields           the row; see Row.h. What depends on the result alone is packed by name, a
///                    field "valid" says whether there is an entry, "index" is the row's place
///   rows(profile)    rows of the table
///   registers()      the registers of words 0, 1, …; further words have none
///
/// and, where it is not like the others,
///
///   packMore(profile, result, row)      writes the rest of the row, but what is in every row;
///                                       with handPacked, see Row.h
///   packPlace(index, row)               and what depends on the place alone
///   isSound(row)                        whether a row can be one of the table, its parity aside
///   unpackMore(profile, row, result)    adds what only that says
///   sample(table, bits, key, result)    makes a result of the table of one with the bits in its
///                                       fields, for the checks when the table is made
///   hwIndex(key), keyOf(index)          noRow or one beyond the last for a key without a row
///   describe(result)                    the result within the text form of an entry
namespace VelaSwitchTable {

/// Of the families whose rows are a port mask in the layer-3 processors.
constexpr DirectFamilyTraits layer3MaskTraits(TableIdentity table) {
  return {.table = table,
          .placement = DirectPlacement::everyPipeline,
          .prefix = "ingress/processor_l3[%d]/",
          .rowWords = 3,
          .parityWords = 2,
          .staticWords = {0, 0, 0xffffffff}};
}

/// One row's key and result.
template <class F>
class VELA_EXPORT DirectFamilyEntry
    : public EntryRecord<typename F::Key, typename F::Result, DirectBaseEntry> {
 public:
  using EntryRecord<typename F::Key, typename F::Result, DirectBaseEntry>::EntryRecord;

  std::string toStrep() const override {
    return Orb::text(ClassesOf<F>::Entry::shortName, "(", this->valid(), ", ", this->key(), ", ",
                     describe(), ")");
  }

 private:
  std::string describe() const {
    if constexpr (requires { &F::describe; }) return F::describe(this->result());
    return Orb::fieldsText(this->result());
  }
};

template <class F>
class VELA_EXPORT DirectFamilyTable
    : public IndexedFamilyTable<F, DirectBaseTable, DirectFamilyEntry<F>> {
 public:
  using Key = typename F::Key;
  using Entry = typename ClassesOf<F>::Entry;
  using IndexedFamilyTable<F, DirectBaseTable, DirectFamilyEntry<F>>::IndexedFamilyTable;

  void doCreateHwTable() override {
    this->numEntriesIs(F::rows(this->profile()));
    DirectBaseTable::doCreateHwTable();
  }
  Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const override {
    return Orb::make<typename ClassesOf<F>::Convertor>();
  }
  void entryIsByDirectItem(const DirectBaseEntry& item) override {
    ORB_ASSERT_TEXT(item.valid(), "item->valid()");
    const auto& entry = static_cast<const Entry&>(item);
    this->entryIsFromHw(entry.key(), entry.result());
  }

  void handleEntry(const Key& key) override {
    if (!this->initialized()) {
      if (!this->entry(key)) this->unreadForget(key);
      return;
    }
    F::trace(8, this->fwkType().name(), "::handleEntry ", key);
    // The first to look at the key: one that is no key of the table stops here.
    if (F::hwIndex(key) >= this->numEntries()) {
      F::trace(3, "handleEntry ", key, noRowText);
      return;
    }
    Entry entry(key);
    this->updateDirectItem(entry);
    if (F::trace.enabled(1)) F::trace(1, "Programming Entry ", entry.toStrep());
    this->handleDirectEntry(entry, 0);
  }

 protected:
  DirectFamilyEntry<F>* newRecord(const Key& key, U32 tag) override {
    return new (this->slab()) Entry(key, tag);
  }
};

template <class F>
class VELA_EXPORT DirectFamilyConvertor
    : public IndexedFamilyConvertor<F, DirectBaseConvertor, typename ClassesOf<F>::Entry> {
  static_assert(VelaSwitchApi::processorPlaceChecked<F>());
  static_assert(VelaSwitchApi::placesBehindParity<F>());

 public:
  using Key = typename F::Key;

  HwIndex hwIndexFromKey(const Key& key) const { return F::hwIndex(key); }
  Key keyFromHwIndex(HwIndex index) const { return F::keyOf(index); }

  void setStaticBuffer(HwIndex index, U8* image) const override {
    RowWriterOf<F> row(this->layout(), image, "setStaticBuffer");
    if constexpr (findField<F>("index")) row.template set<"index">(this->indexInBlock(index));
    if constexpr (requires { &F::packPlace; }) F::packPlace(index, row);
    row.setPlace(index);
  }
  void setHwBuffer(const DirectBaseEntry& entry, U8* image) const override {
    const auto& packed = this->of(entry);
    RowWriterOf<F> row(this->layout(), image, "setHwBuffer");
    row.setNamed(packed.result());
    if constexpr (validBit) row.template set<"valid">(packed.valid());
    if constexpr (requires { &F::packMore; }) F::packMore(this->profile(), packed.result(), row);
    if constexpr (F::traits.parityWords != 0) row.template setParity<F::traits.parityWords>();
  }

 protected:
  static constexpr bool validBit = findField<F>("valid").has_value();

  RowSays unpack(U32* image, HwTableId, HwIndex, IndexedEntry& entry) const override {
    const RowReaderOf<F> row(this->layout(), image);
    if constexpr (requires { &F::isSound; }) {
      if (!F::isSound(row)) return RowSays::unsound;
    }
    auto& result = this->of(entry).ownResult();
    row.getNamed(result);
    if constexpr (requires { &F::unpackMore; }) F::unpackMore(this->profile(), row, result);
    if constexpr (validBit) {
      entry.validIs(row.template flag<"valid">());
    } else {
      entry.validIs(result != typename F::Result{});
    }
    return RowSays::result;
  }
  RowLayout makeLayout() const override {
    return VelaSwitchApi::rowLayout<F>(F::traits.rowWords, rowShape<F>(this->profile()));
  }
  U32 egressBlocks() const override { return egressProcessors(this->profile()); }
  VelaSwitchApi::HwAddressColl registers(U32 block) const override {
    return regAddresses(regPrefix(F::traits.prefix, block), F::registers());
  }
};

}  // namespace VelaSwitchTable

// The classes of a direct family are named after it: of the family Xxx, the struct XxxFamily,
//
//   VELA_DIRECT_FAMILY(Xxx);         in the header, behind the struct
//   VELA_DIRECT_FAMILY_DEFINE(Xxx)   in the source file
//
// make XxxTable, XxxConvertor, XxxEntry, the templates behind them, which are compiled in that
// source file alone, and the factories XxxTableIs(name), XxxConvertorIs() and XxxEntryIs(key).

#define VELA_DIRECT_LIST(Do, Family, Table_, Convertor_, Entry_)                   \
  Do(Family, Table, Table_, DirectFamilyTable, (const std::string& name), (name)); \
  Do(Family, Convertor, Convertor_, DirectFamilyConvertor, (), ());                \
  Do(Family, Entry, Entry_, DirectFamilyEntry, (const Family::Key& key), (key))

#define VELA_DIRECT_FAMILY(Xxx)                                                        \
  VELA_NAMES(Xxx##Family, , VELA_DIRECT_LIST, Xxx##Family, Xxx##Table, Xxx##Convertor, \
             Xxx##Entry);                                                              \
  VELA_DIRECT_LIST(VELA_DECLARE, Xxx##Family, Xxx##Table, Xxx##Convertor, Xxx##Entry); \
  VELA_DIRECT_LIST(VELA_WHOLE, Xxx##Family, Xxx##Table, Xxx##Convertor, Xxx##Entry)

#define VELA_DIRECT_FAMILY_DEFINE(Xxx)                                         \
  static const TableRegistration Xxx##Registration{Xxx##Family::traits.table}; \
  VELA_DIRECT_LIST(VELA_DEFINE, Xxx##Family, Xxx##Table, Xxx##Convertor, Xxx##Entry)
