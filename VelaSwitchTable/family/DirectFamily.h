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
///   packMore(profile, result, row)      writes the rest of the row, but what is in every row
///   packPlace(index, row)               and what depends on the place alone
///   isSound(row)                        whether a row can be one of the table, its parity aside
///   unpackMore(profile, row, result)    adds what only that says
///   hwIndex(key), keyOf(index)          noRow or one beyond the last for a key without a row
///   describe(result)                    the result within the text form of an entry
namespace VelaSwitchTable {

/// Which blocks of the switch hold a direct family's rows.
enum class DirectPlacement : U8 {
  everyPipeline,         ///< The same rows in every ingress pipeline's processor.
  everyEgressProcessor,  ///< The same rows in every egress processor.
  sharedOut,             ///< One table whose rows are shared out among the egress processors.
};

/// The index of a key that no row can be for.
inline constexpr HwIndex noRow = ~HwIndex{0};

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
class VELA_EXPORT DirectFamilyEntry : public DirectBaseEntry {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  explicit DirectFamilyEntry(const Key& key) : key_(key) {}

  std::string toStrep() const override {
    return Orb::text(ClassesOf<F>::Entry::shortName, "(", valid(), ", ", key_, ", ", describe(),
                     ")");
  }

  const Key& key() const { return key_; }
  const Result& result() const { return result_; }
  void resultIs(const Result& result) { result_ = result; }

 private:
  std::string describe() const {
    if constexpr (requires { &F::describe; }) return F::describe(result_);
    std::string text;
    Orb::forEachField(result_, [&](const auto& field) {
      text += Orb::text(text.empty() ? "" : " ", field.name, ":", field());
    });
    return text;
  }

  Key key_;
  Result result_{};
};

template <class F>
class VELA_EXPORT DirectFamilyTable : public IndexedFamilyTable<F, DirectBaseTable> {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;
  using Entry = typename ClassesOf<F>::Entry;
  using IndexedFamilyTable<F, DirectBaseTable>::IndexedFamilyTable;

  void doCreateHwTable() override {
    this->numEntriesIs(F::rows(this->profile()));
    DirectBaseTable::doCreateHwTable();
  }
  Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const override {
    return Orb::make<typename ClassesOf<F>::Convertor>();
  }
  bool entryHasByDirectItem(const DirectBaseEntry& item) const override {
    return this->entry(entryOf(item).key()) != nullptr;
  }
  void entryIsByDirectItem(const DirectBaseEntry& item) override {
    ORB_ASSERT_TEXT(item.valid(), "item->valid()");
    this->entryIsFromHw(entryOf(item).key(), entryOf(item).result());
  }
  bool entryEqualByDirectItem(const DirectBaseEntry& item) const override {
    const Result* desired = this->entry(entryOf(item).key());
    return desired && *desired == entryOf(item).result();
  }
  void updateDirectItem(DirectBaseEntry& item) const override {
    Entry& entry = static_cast<Entry&>(item);
    const Result* desired = this->entry(entry.key());
    entry.resultIs(desired ? *desired : Result{});
    entry.validIs(desired != nullptr);
  }
  bool hwInconsistentEntryFromDirectItem(const DirectBaseEntry& item) const override {
    return this->hwInconsistentEntry(entryOf(item).key());
  }
  void hwInconsistentEntryDelFromDirectItem(const DirectBaseEntry& item) override {
    this->hwInconsistentEntryDel(entryOf(item).key());
  }
  void hwInconsistentEntryIsFromDirectItem(const DirectBaseEntry& item) override {
    this->hwInconsistentEntryIs(entryOf(item).key(), true);
  }

  void handleEntry(const Key& key) override {
    if (!this->initialized()) {
      if (!this->entry(key)) this->unreadForget(key);
      return;
    }
    F::trace(8, this->fwkType().name(), "::handleEntry ", key);
    // The first to look at the key: one that is no key of the table stops here.
    if (F::hwIndex(key) >= F::rows(this->profile())) {
      F::trace(3, "handleEntry ", key, noRowText);
      return;
    }
    Entry entry(key);
    updateDirectItem(entry);
    if (F::trace.enabled(1)) F::trace(1, "Programming Entry ", entry.toStrep());
    this->handleDirectEntry(entry, 0);
  }

 private:
  static const Entry& entryOf(const DirectBaseEntry& item) {
    return static_cast<const Entry&>(item);
  }
};

template <class F>
class VELA_EXPORT DirectFamilyConvertor : public DirectBaseConvertor {
 public:
  using Key = typename F::Key;
  using Entry = typename ClassesOf<F>::Entry;

  HwIndex hwIndexFromKey(const Key& key) const { return F::hwIndex(key); }
  Key keyFromHwIndex(HwIndex index) const { return F::keyOf(index); }

  void doInitTableStats() override {
    ORB_ASSERT_TEXT(directTable()->capacitySupported(), "capacitySupported()");
    initTableStatsPerEgressPort(sharedOut ? egressProcessors(profile()) : 1);
  }
  U32 capacityIndexFromEntry(const DirectBaseEntry& entry) const override {
    return blockOf(hwIndexFromItem(entry));
  }
  U32 entriesPeak(U32 counter) const override {
    // Of a part of the table only its present use is known.
    if (this->entryCounters().size() > 1) return entriesUsed(counter);
    return static_cast<const TableOf<F>*>(swTable())->peak();
  }

  void doCreateHwTables(VelaSwitchApi::TableState state) override {
    using namespace VelaSwitchApi;
    ORB_ASSERT_TEXT(swTable(), "table");
    layout_ = VelaSwitchTable::rowLayout<F>(F::traits.rowWords, rowShape<F>(profile()));
    const auto registers = [](U32 block) {
      return regAddresses(regPrefix(F::traits.prefix, block), F::registers());
    };
    if constexpr (sharedOut) {
      const auto rows = Orb::make<HwTableRegisterMappingRange>(hwTableName(0));
      for (U32 block = 0; block < egressProcessors(profile()); ++block) {
        rows->regsIs(block * F::traits.rowsPerBlock, registers(block));
      }
      createRows(0, rows, state);
    } else {
      const U32 blocks = F::traits.placement == DirectPlacement::everyPipeline
                             ? profile().pipelines()
                             : egressProcessors(profile());
      for (U32 block = 0; block < blocks; ++block) {
        createRows(block,
                   Orb::make<HwTableRegisterMappingConst>(hwTableName(block), registers(block)),
                   state);
      }
    }
  }

  void handleInitialized() override { staticWordsAre(F::traits.staticWords); }

  HwIndex hwIndexFromItem(const DirectBaseEntry& entry) const override {
    return F::hwIndex(static_cast<const Entry&>(entry).key());
  }
  void setStaticBuffer(HwIndex index, U8* image) const override {
    RowWriterOf<F> row(layout_, image, "setStaticBuffer");
    if constexpr (findField<F>("index")) {
      row.template set<"index">(index - blockOf(index) * F::traits.rowsPerBlock);
    }
    if constexpr (requires { &F::packPlace; }) F::packPlace(index, row);
    row.setPlace(index);
  }
  void setHwBuffer(const DirectBaseEntry& entry, U8* image) const override {
    const Entry& packed = static_cast<const Entry&>(entry);
    RowWriterOf<F> row(layout_, image, "setHwBuffer");
    row.setNamed(packed.result());
    if constexpr (validBit) row.template set<"valid">(packed.valid());
    if constexpr (packsMore) F::packMore(profile(), packed.result(), row);
    if constexpr (F::traits.parityWords != 0) row.setParity(F::traits.parityWords);
  }
  Orb::Ptr<DirectBaseEntry> nullDirectEntry(HwIndex index) const override {
    return Orb::make<Entry>(F::keyOf(index));
  }
  Orb::Ptr<DirectBaseEntry> decodeHwEntry(HwIndex index) const override {
    const Key key = F::keyOf(index);
    if (index >= F::rows(profile())) {
      F::trace(3, "row ", index, noRowText);
      return nullptr;
    }
    const auto unpacked = unpack(hwRow(index), index);
    if (!unpacked) return nullptr;
    auto entry = Orb::make<Entry>(key);
    entry->resultIs(unpacked->first);
    entry->validIs(unpacked->second);
    if (F::trace.enabled(8)) F::trace(8, "Decoded entry is ", entry->toStrep());
    return entry;
  }
  bool rowSound(HwTableId table, HwIndex index) const override {
    return unpack(this->hwTable(table)->image(index), index).has_value();
  }
  const RowLayout& rowLayout(HwTableId, HwIndex) const override { return layout_; }

 private:
  static constexpr bool sharedOut = F::traits.placement == DirectPlacement::sharedOut;
  static constexpr bool validBit = findField<F>("valid").has_value();
  static constexpr bool packsMore = requires { &F::packMore; };
  static_assert(rowChecked<F, F::traits.rowWords, packsMore>());
  static_assert(F::traits.parityWords == 0 || findField<F>("parity"),
                "a row with parity has a field \"parity\"");

  static U32 blockOf(HwIndex index) {
    if constexpr (sharedOut) return index / F::traits.rowsPerBlock;
    return 0;
  }

  /// The result that a row has, and whether there is an entry; nothing for an unsound row.
  using Unpacked = std::optional<std::pair<typename F::Result, bool>>;
  Unpacked unpack(U32* image, HwIndex index) const {
    return readSafely(F::trace, "not decoding entry: row ", index, Unpacked(), [&]() -> Unpacked {
      const RowReaderOf<F> row(layout_, image);
      if (!row.paritySound(F::traits.parityWords)) return std::nullopt;
      if constexpr (requires { &F::isSound; }) {
        if (!F::isSound(row)) return std::nullopt;
      }
      typename F::Result result{};
      row.getNamed(result);
      if constexpr (requires { &F::unpackMore; }) F::unpackMore(profile(), row, result);
      if constexpr (validBit) return std::pair{result, row.template flag<"valid">()};
      return std::pair{result, result != typename F::Result{}};
    });
  }

  static std::string hwTableName(HwTableId id) {
    return VelaSwitchApi::SwTable::hwTableName(F::traits.table.name, "", "", id);
  }
  void createRows(HwTableId id, Orb::PtrConst<VelaSwitchApi::HwTableRegisterMapping> mapping,
                  VelaSwitchApi::TableState state) {
    const std::string family = F::traits.table.name;
    createHwTable({family, 0, id, hwTableName(id)}, state, 0, F::rows(profile()) - 1,
                  F::traits.rowWords, std::move(mapping));
  }

  RowLayout layout_;
};

}  // namespace VelaSwitchTable

// The classes of a direct family are named after it: of the family Xxx, the struct XxxFamily,
//
//   VELA_DIRECT_FAMILY(Xxx);         in the header, behind the struct
//   VELA_DIRECT_FAMILY_DEFINE(Xxx)   in the source file
//
// make XxxTable, XxxConvertor, XxxEntry, the templates behind them, which are compiled in that
// source file alone, and the factories XxxTableIs(name), XxxConvertorIs() and XxxEntryIs(key).

/// `instantiate` is extern, or nothing where they are compiled.
#define VELA_DIRECT_TEMPLATES(instantiate, Family)          \
  instantiate template class DirectFamilyTable<Family>;     \
  instantiate template class DirectFamilyConvertor<Family>; \
  instantiate template class DirectFamilyEntry<Family>

#define VELA_DIRECT_FAMILY(Xxx)                                      \
  class Xxx##Table;                                                  \
  class Xxx##Convertor;                                              \
  class Xxx##Entry;                                                  \
  template <>                                                        \
  struct ClassesOf<Xxx##Family> {                                    \
    using Table = Xxx##Table;                                        \
    using Convertor = Xxx##Convertor;                                \
    using Entry = Xxx##Entry;                                        \
  };                                                                 \
  VELA_DIRECT_TEMPLATES(extern, Xxx##Family);                        \
  VELA_CLASS(Xxx##Family, Xxx##Table, DirectFamilyTable);            \
  VELA_CLASS(Xxx##Family, Xxx##Convertor, DirectFamilyConvertor);    \
  VELA_CLASS(Xxx##Family, Xxx##Entry, DirectFamilyEntry);            \
  VELA_FACTORY(Xxx##Table, Xxx##TableIs, (const std::string& name)); \
  VELA_FACTORY(Xxx##Convertor, Xxx##ConvertorIs, ());                \
  VELA_FACTORY(Xxx##Entry, Xxx##EntryIs, (const Xxx##Family::Key& key))

#define VELA_DIRECT_FAMILY_DEFINE(Xxx)                                             \
  static const TableRegistration Xxx##Registration{Xxx##Family::traits.table};     \
  VELA_DIRECT_TEMPLATES(, Xxx##Family);                                            \
  VELA_REGISTERED_DEFINE(Xxx##Table)                                               \
  VELA_REGISTERED_DEFINE(Xxx##Convertor)                                           \
  VELA_REGISTERED_DEFINE(Xxx##Entry)                                               \
  VELA_FACTORY_DEFINE(Xxx##Table, Xxx##TableIs, (const std::string& name), (name)) \
  VELA_FACTORY_DEFINE(Xxx##Convertor, Xxx##ConvertorIs, (), ())                    \
  VELA_FACTORY_DEFINE(Xxx##Entry, Xxx##EntryIs, (const Xxx##Family::Key& key), (key))
