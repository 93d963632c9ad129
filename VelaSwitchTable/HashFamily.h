#pragma once

#include <optional>

#include "DirectBase/TableConstants.h"
#include "VelaSwitchTable/EntryStore.h"
#include "VelaSwitchTable/Family.h"
#include "VelaSwitchTable/VelaHitBitUtil.h"
#include "VelaSwitchTable/VelaRegPrefixUtil.h"
#include "VelaSwitchTable/VelaTableHashHelper.h"

/// What all exact-match hash families share. A family is a struct F, derived from HashFamilyTypes,
/// that says what is its own:
///
///   sourceUnit, trace                the unit's name and the trace handle called after it
///   traits                           a HashFamilyTraits
///   decodedText                      what the trace of a decoded row begins with
///   tableId(tableIdx)                which physical table holds the rows
///   dataWords(profile)               data registers; the control register follows them
///   copyKeyToBuffer(key, buffer, size)   packs what is hashed; returns its length in bits
///   hash(buffer, way, bits)          the row in a way
///   layout(profile)                  the row's fields
///   pack(key, result, valid, location, row)   writes all of them but the static ones
///   packStatic(location, tableIdx, row)       writes the static ones
///   unpack(row, location)            the entry of a row, or nothing
namespace VelaSwitchTable {

/// The types of a family. The named classes need only be declared where the family is.
template <class K, class R, class TableType, class ConvertorType, class HelperType,
          class CuckooEntryType, class PropertiesType, class TableStatusType, class EntryStatusType>
struct HashFamilyTypes {
  using Key = K;
  using Result = R;
  using Table = TableType;
  using Convertor = ConvertorType;
  using Helper = HelperType;
  using CuckooEntry = CuckooEntryType;
  using PhysicalHashProperties = PropertiesType;
  using TableStatus = TableStatusType;
  using EntryStatus = EntryStatusType;
};

/// Which pipelines hold a family's rows.
enum class HashPlacement : U8 {
  everyPipeline,  ///< The same rows in every ingress pipeline's processor.
  ownPipeline,    ///< One table per pipeline; each serves its own.
  once,           ///< One table in the whole switch.
};

inline constexpr U32 noHitTable = 0xffffffff;

struct HashFamilyTraits {
  TableIndex index;
  HashPlacement placement;
  const char* prefix;  ///< Register prefix with a place for the pipeline's number.
  U8 rowWords;         ///< Words of the row image, those without a register included.
  U8 hashBits;         ///< A way has 2 to the power of this rows.
  U8 ways;
  U8 keyBytes;   ///< Size of the packed key.
  bool hitBits;  ///< Whether the software table declares hit bits.
  U32 hitTableOffset = noHitTable;
  int staticWord = -1;  ///< Word declared static once the table is initialized; -1 for none.
};

/// Status of one entry, as a value type of the family's own name derives it.
template <class EntryStatus>
class HashFamilyTableStatus : public Orb::PtrInterface {
 public:
  using Key = typename decltype(EntryStatus::key)::Type;
  struct KeyOf {
    const Key& operator()(const EntryStatus& status) const { return status.key(); }
  };
  using Statuses = Orb::Collection<Key, EntryStatus, KeyOf>;

  void entryStatusIs(const EntryStatus& status) { entryStatus_.is(status.key(), status); }
  void entryStatusDel(const Key& key) { entryStatus_.del(key); }
  /// The key's status, or null. Valid until the next change.
  const EntryStatus* entryStatus(const Key& key) const { return entryStatus_.find(key); }
  const Statuses& entryStatuses() const { return entryStatus_; }
  Statuses& entryStatuses() { return entryStatus_; }

 private:
  Statuses entryStatus_;
};

template <class F>
class HashFamilyProperties : public VelaSwitchApi::PhysicalHashProperties {
 public:
  explicit HashFamilyProperties(U32 tableId)
      : PhysicalHashProperties({.tableId = tableId,
                                .rowWords = F::traits.rowWords,
                                .rowsPerWay = 1u << F::traits.hashBits,
                                .hashBits = F::traits.hashBits,
                                .ways = F::traits.ways,
                                .banks = 1,
                                .hitBits = F::traits.hitBits,
                                .hitBitsClearOnRead = F::traits.hitBits}) {}
};

/// An entry of the family as the cuckoo engine sees it.
template <class F>
class HashFamilyEntry : public VelaSwitchApi::HashBaseCuckooEntry {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  HashFamilyEntry(VelaSwitchApi::HashBaseTable* table, const Key& key)
      : HashBaseCuckooEntry(table), key_(key) {
    U8 buffer[F::traits.keyBytes];
    const U8 bits = F::copyKeyToBuffer(key_, buffer, sizeof buffer);
    U32 rows[F::traits.ways];
    for (U8 way = 0; way < F::traits.ways; ++way) rows[way] = F::hash(buffer, way, bits);
    this->rowsAre(rows);
  }

  U32 getHash(U8 way) const override {
    U8 buffer[F::traits.keyBytes];
    const U8 bits = copyKeyToBuffer(buffer, sizeof buffer);
    return F::hash(buffer, way, bits);
  }
  std::string toStrep() const override {
    return Orb::text(F::CuckooEntry::shortName, "(", key_, valid() ? ", " : "",
                     valid() ? Orb::text(result_) : std::string(), ")");
  }
  U8 copyKeyToBuffer(U8* buffer, U8 bufSize) const override {
    return F::copyKeyToBuffer(key_, buffer, bufSize);
  }

  const Key& key() const { return key_; }
  const Result& result() const { return result_; }
  void resultIs(const Result& result) { result_ = result; }

 private:
  Key key_;
  Result result_{};
};

template <class F>
class HashFamilyHelper : public VelaTableHashHelper {
 public:
  using Entry = typename F::CuckooEntry;

  explicit HashFamilyHelper(U8 tableIdx = 0) : tableIdx_(tableIdx) {}

  Orb::Ptr<VelaSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override {
    return Orb::make<typename F::PhysicalHashProperties>(F::tableId(tableIdx_));
  }
  void setStaticBuffer(CuckooLocation location, U8* image) const override {
    RowWriter writer(layout(), image, F::trace, "setStaticBuffer");
    F::packStatic(location, tableIdx_, writer);
  }
  void setHwBuffer(const VelaSwitchApi::HashBaseCuckooEntry& entry, CuckooLocation location,
                   U8* image) const override {
    const Entry& packed = static_cast<const Entry&>(entry);
    RowWriter writer(layout(), image, F::trace, "setHwBuffer");
    F::pack(packed.key(), packed.result(), packed.valid(), location, writer);
    setStaticBuffer(location, image);
  }
  Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> decodeHwEntry(HwIndex index) const override {
    // Rows come from hardware: whatever they hold must not do more harm than be refused.
    try {
      const auto unpacked = F::unpack(RowReader(layout(), hwRow(index)), location(index));
      if (!unpacked) return nullHashEntry();
      auto entry = Orb::make<Entry>(swTable(), unpacked->first);
      entry->resultIs(unpacked->second);
      entry->validIs(true);
      F::trace(8, F::decodedText, entry->toStrep());
      return entry;
    } catch (const Orb::RangeException& error) {
      F::trace(3, "not decoding entry: row ", index, ": ", error.what());
      return nullHashEntry();
    }
  }

 protected:
  RowLayout makeLayout(const VelaSwitch::ProfileInfo& profile) const override {
    return F::layout(profile);
  }
  Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> makeNullEntry() const override {
    return Orb::make<Entry>(swTable(), typename F::Key{});
  }
  U8 tableIdx() const { return tableIdx_; }

 private:
  U8 tableIdx_;
};

template <class F>
class HashFamilyTable : public VelaSwitchApi::HashBaseTable,
                        public EntryStore<typename F::Key, typename F::Result> {
 public:
  using Family = F;
  using Key = typename F::Key;
  using Result = typename F::Result;
  using Entry = typename F::CuckooEntry;
  using EntryStatus = typename F::EntryStatus;
  using TableStatus = typename F::TableStatus;
  using HashItem = VelaSwitchApi::HashItem;

  explicit HashFamilyTable(std::string name, U8 tableIdx = 0, U8 pipeline = 0)
      : HashBaseTable(std::move(name)), tableIdx_(tableIdx), pipeline_(pipeline) {
    hwTablesDuplicateIs(F::traits.placement == HashPlacement::everyPipeline);
    statusSupportedIs(true);
    hitBitsSupportedIs(F::traits.hitBits);
  }

  const Orb::Type& fwkType() const override { return Orb::registeredType<typename F::Table>; }
  static constexpr const char* sourceUnit = F::sourceUnit;
  void reactorTeardown() override {
    if (profileConvertorPtr()) profileConvertor().physicalTable().swTableDel(this);
  }

  void doInitStatus() override {
    tableStatusIs();
    // A full table's worth of everything, so that programming an entry allocates its item alone.
    const U32 capacity = profileConvertor().physicalTable().engine().capacity();
    this->entries().reserve(capacity);
    cachedItem_.reserve(capacity);
    tableStatus_->entryStatuses().reserve(capacity);
  }
  Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const override {
    return Orb::make<typename F::Convertor>();
  }
  Orb::Ptr<VelaSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override {
    return Orb::make<typename F::Helper>(tableIdx_);
  }
  bool entryHasByHashItem(const HashItem& item) const override {
    return this->entry(keyOf(item)) != nullptr;
  }
  void entryIsByHashItem(HashItem& hashItem) override {
    Entry& item = static_cast<Entry&>(hashItem);
    ORB_ASSERT_TEXT(item.valid(), "hashItem->valid()");
    F::trace(8, "entryIsByHashItem ", item.toStrep());
    *cachedItem_.insert(item.key()).first = Orb::Ptr<Entry>(&item);
    recordStatus(item);
    this->entryIsFromHw(item.key(), item.result());
  }
  bool entryEqualByHashItem(const HashItem& item) const override {
    const Result* desired = this->entry(keyOf(item));
    return desired && *desired == static_cast<const Entry&>(item).result();
  }
  void lastHitByHashItemIs(HashItem& hashItem, Orb::Seconds time) override {
    if (!hitBitsHandled()) return HashBaseTable::lastHitByHashItemIs(hashItem, time);
    const auto item = cachedCuckooEntry(hashItem);
    if (!item || time < item->lastHit()) return;
    item->lastHitIs(time);
    recordStatus(static_cast<Entry&>(*item));
    const EntryStatus& status = *tableStatus()->entryStatus(keyOf(hashItem));
    ORB_ASSERT(item->lastHit() == status.lastHit());
  }
  Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> cachedCuckooEntry(
      const HashItem& item) const override {
    return cachedItem(keyOf(item));
  }
  void updateHashItem(HashItem& hashItem) const override {
    Entry& item = static_cast<Entry&>(hashItem);
    resultIs(item, this->entry(item.key()));
  }
  bool hwInconsistentEntryFromHashItem(const HashItem& item) const override {
    return this->hwInconsistentEntry(keyOf(item));
  }
  void hwInconsistentEntryDelFromHashItem(const HashItem& item) override {
    this->hwInconsistentEntryDel(keyOf(item));
  }
  void hashItemDelFromHashItem(const HashItem& item) override { hashItemDel(keyOf(item)); }
  void hwInconsistentEntryIsFromHashItem(const HashItem& item) override {
    this->hwInconsistentEntryIs(keyOf(item), true);
  }
  void handleHashItem(const HashItem& item) override { handleEntry(Key(keyOf(item))); }
  bool entryReleaseByHashItem(const HashItem& item) override {
    const Key key = keyOf(item);
    if (!this->unclaimed(key)) return false;
    this->entryForget(key);
    tableStatus()->entryStatusDel(key);
    hashItemDel(key);
    return true;
  }

  U8 tableIdx() const { return tableIdx_; }
  U8 pipeline() const { return pipeline_; }
  const Orb::Ptr<TableStatus>& tableStatus() const { return tableStatus_; }
  /// The table's status, created on first use.
  const Orb::Ptr<TableStatus>& tableStatusIs() {
    if (!tableStatus_) tableStatus_ = Orb::make<TableStatus>();
    return tableStatus_;
  }
  void tableStatusDel() { tableStatus_ = nullptr; }

  /// The item of a key that is programmed or waits to be; null when there is none.
  Orb::Ptr<Entry> cachedItem(const Key& key) const {
    const Orb::Ptr<Entry>* item = cachedItem_.find(key);
    return item ? *item : nullptr;
  }
  void hashItemDel(const Key& key) { cachedItem_.erase(key); }

  /// The key's item: the cached one, or else a new one. With `withResult` it takes the key's
  /// current result, and is cached when there is one.
  Orb::Ptr<Entry> createHashEntry(const Key& key, bool withResult) {
    const Result* desired = withResult ? this->entry(key) : nullptr;
    Orb::Ptr<Entry> item;
    if (desired) {
      Orb::Ptr<Entry>& cached = *cachedItem_.insert(key).first;
      if (!cached) cached = Orb::make<Entry>(this, key);
      item = cached;
    } else {
      item = cachedItem(key);
      if (!item) item = Orb::make<Entry>(this, key);
    }
    if (withResult) resultIs(*item, desired);
    return item;
  }

  void handleEntry(const Key& key) override {
    if (!initialized()) return;
    traceStatus(key);
    const Orb::Ptr<Entry> item = createHashEntry(key, true);
    profileConvertor().updateHashEntryCounter(*item, false);
    if (item->valid()) {
      F::trace(1, "Programming Entry ", key);
      profileConvertor().handleHashEntry(*item);
      recordStatus(*item);
    } else {
      F::trace(1, "Removing Entry ", key);
      const bool success = profileConvertor().handleHashEntry(*item);
      ORB_ASSERT(success);
      hashItemDel(key);
      // A row that could not be cleared still answers lookups: the status says so until it is.
      if (item->programmedStatus() == VelaSwitchApi::EntryProgrammedStatus::hardwareError) {
        recordStatus(*item);
      } else if (statusSupported()) {
        tableStatus()->entryStatusDel(key);
      }
    }
    this->hwInconsistentEntryDel(key);
  }

 protected:
  void handleInitialized() override {
    for (const Key& key : this->entries().keys()) handleEntry(key);
  }

 private:
  static const Key& keyOf(const HashItem& item) { return static_cast<const Entry&>(item).key(); }
  static void resultIs(Entry& item, const Result* desired) {
    item.resultIs(desired ? *desired : Result{});
    item.validIs(desired != nullptr);
  }
  /// A family may record hits although its table does not declare hit bits.
  static constexpr bool hitBitsHandled() { return F::traits.hitTableOffset != noHitTable; }

  void recordStatus(const Entry& item) {
    if (!statusSupported()) return;
    tableStatus()->entryStatusIs(EntryStatus{item.key(), item.programmedStatus(), item.lastHit()});
  }

  void traceStatus(const Key& key) const {
    if (!F::trace.enabled(8)) [[likely]]
      return;
    F::trace(8, "handleEntry ", key);
    if (const EntryStatus* status = tableStatus()->entryStatus(key)) {
      F::trace(8, "entry has status: ", *status);
    } else {
      F::trace(8, "entry has no status");
    }
  }

  U8 tableIdx_;
  U8 pipeline_;
  struct KeyOfItem {
    const Key& operator()(const Orb::Ptr<Entry>& item) const { return item->key(); }
  };

  Orb::Map<Key, Orb::Ptr<Entry>, KeyOfItem> cachedItem_;
  Orb::Ptr<TableStatus> tableStatus_;
};

template <class F>
class HashFamilyConvertor : public VelaSwitchApi::PhysicalHashTableConvertor {
 public:
  const Orb::Type& fwkType() const override { return Orb::registeredType<typename F::Convertor>; }
  static constexpr const char* sourceUnit = F::sourceUnit;

  void doCreateHwTables(VelaSwitchApi::TableState state) override {
    const auto* table = static_cast<const typename F::Table*>(swTable());
    ORB_ASSERT(table);
    if (!table->hwTablesDuplicate()) {
      createHwTable(*table, 0, table->tableIdx(), state);
      return;
    }
    for (U32 pipeline = 0; pipeline < profile().pipelines(); ++pipeline) {
      createHwTable(*table, pipeline, pipeline, state);
    }
  }

  void handleInitialized() override {
    if constexpr (F::traits.staticWord >= 0) {
      hwStaticWordIs(static_cast<U8>(F::traits.staticWord), 0xFFFFFFFF);
    }
  }

 private:
  void createHwTable(const typename F::Table& swTable, VelaSwitchApi::HwTableId id, U32 processor,
                     VelaSwitchApi::TableState state) {
    using namespace VelaSwitchApi;
    Orb::Ptr<HwTableConfig> table = physicalTable().hwTable(id);
    if (!table) {
      const auto& properties = physicalTable().properties();
      const U32 tableSize = properties.rowsPerWay * properties.ways * properties.banks;
      ORB_ASSERT(tableSize != 0);
      const std::string family = TableConstants::tableName(F::traits.index);
      const std::string prefix = regPrefix(F::traits.prefix, processor);
      const std::string name =
          SwTable::hwTableName(family, std::to_string(swTable.tableIdx()), "", id);
      const auto mapping = Orb::make<HwTableRegisterMappingConst>(
          name, regAddresses(prefix, hashRegisters(F::dataWords(profile()))));
      const auto descriptor = HwTableDescriptorConfig::hwTableDescIs(
          {family, swTable.tableIdx(), id, name}, state, 0, tableSize - 1,
          static_cast<U8>(properties.rowWords), mapping);
      table = Orb::make<HwTableConfig>(descriptor, types().bus());
      physicalTable().hwTableIs(table);
      descriptorIs(id, descriptor);
      if constexpr (F::traits.hitTableOffset != noHitTable) {
        createHitTable(*table, descriptor, prefix, state);
      }
    }
    hwTableIs(id, table);
  }

  void createHitTable(const VelaSwitchApi::HwTableConfig& table,
                      const Orb::PtrConst<VelaSwitchApi::HwTableDescriptor>& descriptor,
                      const std::string& prefix, VelaSwitchApi::TableState state) {
    using namespace VelaSwitchApi;
    /// Each read returns 64 hit bits, in two registers.
    constexpr U32 hitBitsPerRead = 64;
    const auto hitDescriptor = HwTableDescriptorConfig::hitBitTableDescIs(
        descriptor, SwTable::hitBitAccessModeMapping(state), F::traits.hitTableOffset,
        getHitBitMapping(prefix, descriptor->last + 1, hitBitsPerRead, F::traits.hitTableOffset));
    const auto hitTable = Orb::make<HitBitTableConfig>(hitDescriptor, table, types().bus());
    ORB_ASSERT(hitTable);
    hitBitTableIs(descriptor->identity.id, hitTable);
    hitDescriptorIs(descriptor->identity.id, hitDescriptor);
  }

  VelaSwitchApi::SwTableTypes& types() const { return swTable()->types(); }
};

}  // namespace VelaSwitchTable
