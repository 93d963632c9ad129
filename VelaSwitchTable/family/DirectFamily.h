#pragma once

#include <optional>

#include "DirectBase/DirectBase.h"
#include "VelaSwitchTable/VelaRegPrefixUtil.h"
#include "VelaSwitchTable/family/EntryStore.h"
#include "VelaSwitchTable/family/Family.h"

/// What all direct families share: tables whose row is a fixed function of the key. A family is a
/// struct F, derived from DirectFamilyTypes, that says what is its own:
///
///   sourceUnit, trace            the unit's name and the trace handle called after it
///   traits                       a DirectFamilyTraits
///   rows(profile)                rows of the table
///   registers()                  the registers of words 0, 1, …; further words have none
///   hwIndex(key), keyOf(index)   which row is the key's; noRow or one beyond the last for none
///   layout(profile)              the row's fields
///   pack(profile, key, result, valid, row)   writes all of them but the static ones
///   packStatic(index, row)       writes the static ones
///   unpack(profile, row)         result and whether there is an entry; nothing for an unsound row
///   describe(sink, result)       the result within the text form of an entry
namespace VelaSwitchTable {

using VelaSwitchApi::RowLayout;
using VelaSwitchApi::RowReader;
using VelaSwitchApi::RowWriter;

/// The types of a family. The named classes need only be declared where the family is.
template <class K, class R, class TableType, class ConvertorType, class EntryType>
struct DirectFamilyTypes {
  using Key = K;
  using Result = R;
  using Table = TableType;
  using Convertor = ConvertorType;
  using Entry = EntryType;
};

/// Which blocks of the switch hold a direct family's rows.
enum class DirectPlacement : U8 {
  everyPipeline,         ///< The same rows in every ingress pipeline's processor.
  everyEgressProcessor,  ///< The same rows in every egress processor.
  sharedOut,             ///< One table whose rows are shared out among the egress processors.
};

/// The index of a key that no row can be for.
inline constexpr HwIndex noRow = ~HwIndex{0};

/// Each egress processor serves this many chip ports.
inline constexpr U32 portsPerEgressProcessor = 2;

inline U32 egressProcessors(const VelaSwitch::ProfileInfo& profile) {
  return (profile.ports() + portsPerEgressProcessor - 1) / portsPerEgressProcessor;
}

struct DirectFamilyTraits {
  TableIndex index;
  DirectPlacement placement;
  const char* prefix;  ///< Register prefix with a place for the block's number.
  U8 rowWords;         ///< Words of the row image, those without a register included.
  /// Bits of each word that depend on the row alone, declared once the table is initialized.
  VelaSwitchApi::StaticWords staticWords{};
  U32 rowsPerBlock = 0;  ///< When rows are shared out.
};

/// One row's key and result.
template <class F>
class VELA_EXPORT DirectFamilyEntry : public DirectBaseEntry {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  explicit DirectFamilyEntry(const Key& key) : key_(key) {}

  std::string toStrep() const override {
    Orb::StringSink sink;
    sink.append(F::Entry::shortName);
    sink.append("(");
    appendText(sink, valid());
    sink.append(", ");
    appendText(sink, key_);
    sink.append(", ");
    F::describe(sink, result_);
    sink.append(")");
    return sink.take();
  }

  const Key& key() const { return key_; }
  const Result& result() const { return result_; }
  void resultIs(const Result& result) { result_ = result; }

 private:
  Key key_;
  Result result_{};
};

template <class F>
class VELA_EXPORT DirectFamilyTable : public DirectBaseTable,
                                      public EntryStore<typename F::Key, typename F::Result> {
 public:
  using Family = F;
  using Key = typename F::Key;
  using Result = typename F::Result;
  using Entry = typename F::Entry;

  explicit DirectFamilyTable(std::string name) : DirectBaseTable(std::move(name)) {}

  /// The row's fields.
  RowLayout rowLayout() const { return F::layout(profile()); }

  void doCreateHwTable() override {
    numEntriesIs(F::rows(profile()));
    DirectBaseTable::doCreateHwTable();
  }
  Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const override {
    return Orb::make<typename F::Convertor>();
  }
  bool entryHasByDirectItem(const DirectBaseEntry& item) const override {
    return this->entry(of(item).key()) != nullptr;
  }
  void entryIsByDirectItem(const DirectBaseEntry& item) override {
    ORB_ASSERT_TEXT(item.valid(), "item->valid()");
    this->entryIsFromHw(of(item).key(), of(item).result());
  }
  bool entryEqualByDirectItem(const DirectBaseEntry& item) const override {
    const Result* desired = this->entry(of(item).key());
    return desired && *desired == of(item).result();
  }
  void updateDirectItem(DirectBaseEntry& item) const override {
    Entry& entry = static_cast<Entry&>(item);
    const Result* desired = this->entry(entry.key());
    entry.resultIs(desired ? *desired : Result{});
    entry.validIs(desired != nullptr);
  }
  bool hwInconsistentEntryFromDirectItem(const DirectBaseEntry& item) const override {
    return this->hwInconsistentEntry(of(item).key());
  }
  void hwInconsistentEntryDelFromDirectItem(const DirectBaseEntry& item) override {
    this->hwInconsistentEntryDel(of(item).key());
  }
  void hwInconsistentEntryIsFromDirectItem(const DirectBaseEntry& item) override {
    this->hwInconsistentEntryIs(of(item).key(), true);
  }

  void handleEntry(const Key& key) override {
    if (!initialized()) {
      if (!this->entry(key)) unreadForget(key);
      return;
    }
    F::trace(8, fwkType().name(), "::handleEntry ", key);
    // The first to look at the key: one that is no key of the table stops here.
    if (F::hwIndex(key) >= F::rows(profile())) {
      F::trace(3, "handleEntry ", key, noRowText);
      return;
    }
    Entry entry(key);
    updateDirectItem(entry);
    if (F::trace.enabled(1)) F::trace(1, "Programming Entry ", entry.toStrep());
    handleDirectEntry(entry, 0);
  }

 protected:
  void handleInitialized() override {
    this->forEachAnnouncedKey([&](const Key& key) { handleEntry(key); });
  }
  void handleAbsent(const Key& key) override {
    if (unreadForget(key)) handleEntry(key);
  }

 private:
  bool unreadForget(const Key& key) {
    if (!profileConvertorPtr() || F::hwIndex(key) >= F::rows(profile())) return false;
    return static_cast<DirectBaseConvertor&>(*profileConvertorPtr()).unreadForget(F::hwIndex(key));
  }
  static const Entry& of(const DirectBaseEntry& item) { return static_cast<const Entry&>(item); }
};

template <class F>
class VELA_EXPORT DirectFamilyConvertor : public DirectBaseConvertor {
 public:
  using Key = typename F::Key;
  using Entry = typename F::Entry;

  HwIndex hwIndexFromKey(const Key& key) const { return F::hwIndex(key); }
  Key keyFromHwIndex(HwIndex index) const { return F::keyOf(index); }

  void doInitTableStats() override { initTableStatsPerEgressPort(1); }
  U32 entriesPeak(U32 counter) const override {
    // Of a part of the table only its present use is known.
    if (this->entryCounters().size() > 1) return entriesUsed(counter);
    return static_cast<const typename F::Table*>(swTable())->peak();
  }

  void doCreateHwTables(VelaSwitchApi::TableState state) override {
    using namespace VelaSwitchApi;
    ORB_ASSERT_TEXT(swTable(), "table");
    layout_ = F::layout(profile());
    const auto registers = [](U32 block) {
      return regAddresses(regPrefix(F::traits.prefix, block), F::registers());
    };
    if constexpr (F::traits.placement == DirectPlacement::sharedOut) {
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
    RowWriter writer(layout_, image, F::trace, "setStaticBuffer");
    F::packStatic(index, writer);
  }
  void setHwBuffer(const DirectBaseEntry& entry, U8* image) const override {
    const Entry& packed = static_cast<const Entry&>(entry);
    RowWriter writer(layout_, image, F::trace, "setHwBuffer");
    F::pack(profile(), packed.key(), packed.result(), packed.valid(), writer);
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
  /// Rows come from hardware: whatever they hold must not do more harm than be refused.
  std::optional<std::pair<typename F::Result, bool>> unpack(U32* row, HwIndex index) const {
    try {
      return F::unpack(profile(), RowReader(layout_, row));
    } catch (const Orb::RangeException& error) {
      F::trace(3, "not decoding entry: row ", index, ": ", error.what());
    } catch (const Orb::AssertionFailed& error) {
      F::trace(3, "not decoding entry: row ", index, ": ", error.what());
    }
    return std::nullopt;
  }

  static std::string hwTableName(HwTableId id) {
    return VelaSwitchApi::SwTable::hwTableName(TableConstants::tableName(F::traits.index), "", "",
                                               id);
  }
  void createRows(HwTableId id, Orb::PtrConst<VelaSwitchApi::HwTableRegisterMapping> mapping,
                  VelaSwitchApi::TableState state) {
    const std::string family = TableConstants::tableName(F::traits.index);
    createHwTable({family, 0, id, hwTableName(id)}, state, 0, F::rows(profile()) - 1,
                  F::traits.rowWords, std::move(mapping));
  }

  RowLayout layout_;
};

}  // namespace VelaSwitchTable

// The classes of a direct family, their factories (table by name, entry by key) and their
// templates, which are compiled in the family's source file alone. A family whose convertor adds
// something of its own writes it by hand and has VELA_CLASS for the others, between
// VELA_DIRECT_TEMPLATES and VELA_DIRECT_FACTORIES.

/// `instantiate` is extern, or nothing where they are compiled.
#define VELA_DIRECT_TEMPLATES(instantiate, Family)          \
  instantiate template class DirectFamilyTable<Family>;     \
  instantiate template class DirectFamilyConvertor<Family>; \
  instantiate template class DirectFamilyEntry<Family>

#define VELA_DIRECT_FACTORIES(Family, Table, Convertor, Entry) \
  VELA_FACTORY(Table, Table##Is, (const std::string& name));   \
  VELA_FACTORY(Convertor, Convertor##Is, ());                  \
  VELA_FACTORY(Entry, Entry##Is, (const Family::Key& key))

#define VELA_DIRECT_FAMILY(Family, Table, Convertor, Entry) \
  VELA_DIRECT_TEMPLATES(extern, Family);                    \
  VELA_CLASS(Family, Table, DirectFamilyTable);             \
  VELA_CLASS(Family, Convertor, DirectFamilyConvertor);     \
  VELA_CLASS(Family, Entry, DirectFamilyEntry);             \
  VELA_DIRECT_FACTORIES(Family, Table, Convertor, Entry)

#define VELA_DIRECT_FAMILY_DEFINE(Family, Table, Convertor, Entry)         \
  VELA_DIRECT_TEMPLATES(, Family);                                         \
  VELA_REGISTERED_DEFINE(Table)                                            \
  VELA_REGISTERED_DEFINE(Convertor)                                        \
  VELA_REGISTERED_DEFINE(Entry)                                            \
  VELA_FACTORY_DEFINE(Table, Table##Is, (const std::string& name), (name)) \
  VELA_FACTORY_DEFINE(Convertor, Convertor##Is, (), ())                    \
  VELA_FACTORY_DEFINE(Entry, Entry##Is, (const Family::Key& key), (key))
