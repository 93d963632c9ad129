#pragma once

#include <optional>

#include "DirectBase/TableConstants.h"
#include "VelaSwitch/HashInverse.h"
#include "VelaSwitch/Parity.h"
#include "VelaSwitchTable/VelaHitBitUtil.h"
#include "VelaSwitchTable/VelaRegPrefixUtil.h"
#include "VelaSwitchTable/VelaTableHashHelper.h"
#include "VelaSwitchTable/family/EntryStore.h"
#include "VelaSwitchTable/family/Family.h"

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
///   layout(helper)                   the row's fields
///   pack(helper, key, result, valid, location, row)   writes all of them but the static ones
///   packStatic(helper, location, row)                 writes the static ones
///   unpack(helper, row, location)    the entry of a row, or nothing
///
/// A family that does not store the key bits which the row implies says in addition
///
///   impliedBits(helper)              where they stand in the packed key, lowest first
///   keyBits(helper)                  length of the packed key
///   impliedBitsAre(key, bits)        completes a key that unpack() left without them
///   compareEncoding(key)             the key without them, where entries are to tell it
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
  U8 parityWords = 0;  ///< Words whose bits are even in number, the parity bit among them; 0: none.
};

/// The statuses of a table's entries.
template <class F>
class VELA_EXPORT HashFamilyTableStatus : public Orb::PtrInterface {
 public:
  using Key = typename F::Key;
  using EntryStatus = typename F::EntryStatus;
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
class VELA_EXPORT HashFamilyProperties : public VelaSwitchApi::PhysicalHashProperties {
 public:
  explicit HashFamilyProperties(U32 tableId, U8 hashBits = F::traits.hashBits)
      : PhysicalHashProperties({.tableId = tableId,
                                .rowWords = F::traits.rowWords,
                                .rowsPerWay = 1u << hashBits,
                                .hashBits = hashBits,
                                .ways = F::traits.ways,
                                .banks = 1,
                                .hitBits = F::traits.hitBits,
                                .hitBitsClearOnRead = F::traits.hitBits}) {}
};

/// An entry of the family as the cuckoo engine sees it.
template <class F>
class VELA_EXPORT HashFamilyEntry : public VelaSwitchApi::HashBaseCuckooEntry {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  /// An entry of no table.
  explicit HashFamilyEntry(const Key& key) : HashFamilyEntry(nullptr, key) {}
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
  /// The key and, of a valid entry, each field of the result by its name.
  std::string toStrep() const override {
    Orb::StringSink sink;
    sink.append(F::CuckooEntry::shortName);
    sink.append("(");
    appendText(sink, key_);
    if (valid()) {
      Orb::forEachField(result_, [&](const auto& field) {
        sink.append(" ");
        sink.append(field.name);
        sink.append("=");
        appendText(sink, field());
      });
    }
    sink.append(")");
    return sink.take();
  }
  U8 copyKeyToBuffer(U8* buffer, U8 bufSize) const override {
    return F::copyKeyToBuffer(key_, buffer, bufSize);
  }
  bool isSpelledAs(const VelaSwitchApi::HashBaseCuckooEntry& other) const override {
    return &other.table() == &this->table() &&
           static_cast<const HashFamilyEntry&>(other).key_ == key_;
  }
  /// The key without the bits that the row implies, in a family that says which those are.
  template <class Family = F>
  U64 hwCompareEncoding() const {
    return Family::compareEncoding(key_);
  }

  const Key& key() const { return key_; }
  const Result& result() const { return result_; }
  void resultIs(const Result& result) { result_ = result; }

 private:
  Key key_;
  Result result_{};
};

template <class F>
class VELA_EXPORT HashFamilyHelperBase : public VelaTableHashHelper {
 public:
  using Entry = typename F::CuckooEntry;

  explicit HashFamilyHelperBase(U8 tableIdx = 0) : tableIdx_(tableIdx) {}

  /// Which instance of the family the rows belong to.
  U8 tableIdx() const { return tableIdx_; }

  void doInit() override {
    VelaTableHashHelper::doInit();
    if constexpr (impliesBits) {
      inverse_ = VelaSwitch::HashInverse(&F::hash, F::traits.ways, F::keyBits(self()),
                                         F::impliedBits(self()));
    }
  }
  void setStaticBuffer(CuckooLocation location, U8* image) const override {
    ORB_ASSERT_TEXT(swTable(), "swTable()");
    RowWriter writer(layout(), image, F::trace, "setStaticBuffer");
    F::packStatic(self(), location, writer);
  }
  void setHwBuffer(const VelaSwitchApi::HashBaseCuckooEntry& entry, CuckooLocation location,
                   U8* image) const override {
    ORB_ASSERT_TEXT(swTable(), "swTable()");
    const Entry& packed = static_cast<const Entry&>(entry);
    RowWriter writer(layout(), image, F::trace, "setHwBuffer");
    F::pack(self(), packed.key(), packed.result(), packed.valid(), location, writer);
    setStaticBuffer(location, image);
  }
  Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> decodeHwEntry(HwIndex index) const override {
    ORB_ASSERT_TEXT(swTable(), "swTable()");
    if (!hasRow(index)) {
      F::trace(3, "row ", index, noRowText);
      return nullHashEntry();
    }
    // Rows come from hardware: whatever they hold must not do more harm than be refused.
    try {
      std::optional<std::pair<typename F::Key, typename F::Result>> unpacked;
      if (rowSound(hwRow(index))) {
        unpacked = F::unpack(self(), RowReader(layout(), hwRow(index)), location(index));
      }
      if (!unpacked) {
        F::trace(9, "not decoding entry: row ", index);
        return nullHashEntry();
      }
      auto& [key, result] = *unpacked;
      if constexpr (impliesBits) {
        U8 stored[F::traits.keyBytes];
        F::copyKeyToBuffer(key, stored, sizeof stored);
        const CuckooLocation at = location(index);
        F::impliedBitsAre(key, inverse_.implied(at.way, at.row, stored));
      }
      const Orb::Ptr<Entry> entry = table().newItem(key);
      entry->resultIs(result);
      entry->validIs(true);
      if (F::trace.enabled(8)) F::trace(8, F::decodedText, entry->toStrep());
      return entry;
    } catch (const Orb::RangeException& error) {
      F::trace(3, "not decoding entry: row ", index, ": ", error.what());
    } catch (const Orb::AssertionFailed& error) {
      F::trace(3, "not decoding entry: row ", index, ": ", error.what());
    }
    return nullHashEntry();
  }
  bool rowSound(const U32* image) const override {
    return VelaSwitch::parityU32Array(image, F::traits.parityWords) == 0;
  }

 protected:
  RowLayout makeLayout() const override { return F::layout(self()); }
  Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> makeNullEntry() const override {
    return table().newItem(table().nullKey());
  }

 private:
  static constexpr bool impliesBits = requires { &F::impliedBits; };

  const typename F::Helper& self() const { return static_cast<const typename F::Helper&>(*this); }
  typename F::Table& table() const { return static_cast<typename F::Table&>(*swTable()); }

  U8 tableIdx_;
  VelaSwitch::HashInverse inverse_;
};

/// The helper of a family whose physical tables differ by their number alone.
template <class F>
class VELA_EXPORT HashFamilyHelper : public HashFamilyHelperBase<F> {
 public:
  using HashFamilyHelperBase<F>::HashFamilyHelperBase;

  Orb::Ptr<VelaSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override {
    return Orb::make<typename F::PhysicalHashProperties>(F::tableId(this->tableIdx()));
  }
};

template <class F>
class VELA_EXPORT HashFamilyTableBase : public VelaSwitchApi::HashBaseTable,
                                        public EntryStore<typename F::Key, typename F::Result> {
 public:
  using Family = F;
  using Key = typename F::Key;
  using Result = typename F::Result;
  using Entry = typename F::CuckooEntry;
  using EntryStatus = typename F::EntryStatus;
  using TableStatus = typename F::TableStatus;
  using HashItem = VelaSwitchApi::HashItem;

  explicit HashFamilyTableBase(std::string name, U8 tableIdx = 0, U8 pipeline = 0)
      : HashBaseTable(std::move(name), tableIdx, pipeline) {
    hwTablesDuplicateIs(F::traits.placement == HashPlacement::everyPipeline);
    statusSupportedIs(true);
    hitBitsSupportedIs(F::traits.hitBits);
  }

  void reactorTeardown() override {
    if (profileConvertorPtr()) profileConvertor().swTableDel(this);
  }

  void doInitStatus() override {
    tableStatusIs();
    // A full table's worth of everything, so that programming an entry allocates its item alone.
    const U32 capacity = profileConvertor().physicalTable().engine().capacity();
    this->entries().reserve(capacity);
    cachedItem_.reserve(capacity);
    tableStatus_->entryStatuses().reserve(capacity);
  }

  bool entryHasByHashItem(const HashItem& item) const override {
    return this->entry(keyOf(item)) != nullptr;
  }
  void entryIsByHashItem(HashItem& hashItem) override {
    Entry& item = static_cast<Entry&>(hashItem);
    ORB_ASSERT_TEXT(item.valid(), "hashItem->valid()");
    if (F::trace.enabled(8)) F::trace(8, "entryIsByHashItem ", item.toStrep());
    *cachedItem_.insert(item.key()).first = Orb::Ptr<Entry>(&item);
    this->entryIsFromHw(item.key(), item.result());
    if (isCurrent(item)) recordStatus(item);
  }
  bool entryEqualByHashItem(const HashItem& item) const override {
    const Result* desired = this->entry(keyOf(item));
    return desired && *desired == static_cast<const Entry&>(item).result();
  }
  void lastHitByHashItemIs(HashItem& hashItem, Orb::Seconds time) override {
    if (!hitBitsHandled()) return HashBaseTable::lastHitByHashItemIs(hashItem, time);
    Entry& item = static_cast<Entry&>(hashItem);
    if (!isCurrent(item) || time < item.lastHit()) return;
    item.lastHitIs(time);
    if (!statusSupported()) return;
    recordStatus(item);
    // Whoever heard of it may have withdrawn the entry, or announced it anew.
    if (!isCurrent(item)) return;
    const EntryStatus& status = *tableStatusIs()->entryStatus(item.key());
    ORB_ASSERT(item.lastHit() == status.lastHit());
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
  bool entryUnclaimedByHashItem(const HashItem& item) const override {
    return this->unclaimed(keyOf(item));
  }
  void entryReleaseByHashItem(const HashItem& item) override {
    const Key key = keyOf(item);
    this->entryForget(key);
    // Whoever heard of it may have announced the key.
    if (this->entry(key)) return;
    hashItemDel(key);
    this->hwInconsistentEntryDel(key);
    tableStatusIs()->entryStatusDel(key);
  }
  void entryStatusIsByHashItem(HashItem& hashItem) override {
    const Entry& item = static_cast<const Entry&>(hashItem);
    if (!isCurrent(item)) return;
    using Status = VelaSwitchApi::EntryProgrammedStatus;
    if (item.programmedStatus() == Status::programmed) traceItem("Programming Entry ", item);
    recordStatus(item);
  }

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
  /// The same by its other name.
  Orb::Ptr<Entry> hashItem(const Key& key) const { return cachedItem(key); }
  /// The cached item, made and cached when there is none.
  Orb::Ptr<Entry> hashItemIs(const Key& key) {
    Orb::Ptr<Entry>& cached = *cachedItem_.insert(key).first;
    if (!cached) cached = knownItem(newItem(key));
    return cached;
  }
  void hashItemDel(const Key& key) { cachedItem_.erase(key); }
  /// Drops the items, not what the physical table has: those are found there again.
  void hashItemDelAll() { cachedItem_.clear(); }

  /// A new item of the key, in no table's hands yet.
  virtual Orb::Ptr<Entry> newItem(const Key& key) = 0;
  /// A key that an item which stands for an empty row may carry.
  virtual Key nullKey() const { return Key{}; }

  /// With `withResult` the key's cached item, made when there is none, with the key's current
  /// result; it is valid when there is one. Else a new item that nobody knows of.
  Orb::Ptr<Entry> createHashEntry(const Key& key, bool withResult) {
    if (!withResult) return newItem(key);
    const Orb::Ptr<Entry> item = hashItemIs(key);
    updateHashItem(*item);
    return item;
  }
  /// The same, with a trace of its own.
  Orb::Ptr<Entry> createHashItem(const Key& key, bool cached = true) {
    F::trace(8, this->fwkType().name(), "::createHashItem ", key);
    return createHashEntry(key, cached);
  }

  void handleEntry(const Key& key) override {
    if (!initialized()) return;
    traceStatus(key);
    if constexpr (requires { &F::check; }) {
      // Before anything moves: a row that cannot be packed must not cost others their place.
      const Result* desired = this->entry(key);
      if (desired) F::check(static_cast<const typename F::Helper&>(*helper()), key, *desired);
    }
    const Orb::Ptr<Entry> item = itemToHandle(key);
    profileConvertor().updateHashEntryCounter(*item, false);
    if (item->valid()) {
      traceItem("Programming Entry ", *item);
      profileConvertor().handleHashEntry(*item);
      // Whoever heard of other entries' statuses meanwhile may have withdrawn this one.
      if (!isCurrent(*item)) return;
      recordStatus(*item);
      if (item->programmedStatus() != VelaSwitchApi::EntryProgrammedStatus::programmed) {
        F::trace(2, "Not programmed, ", item->programmedStatus(), ": ", key);
      }
    } else {
      traceItem("Removing Entry ", *item);
      const bool success = profileConvertor().handleHashEntry(*item);
      ORB_ASSERT(success);
      // Or announced it again.
      if (this->entry(key)) return;
      hashItemDel(key);
      // A row that could not be cleared still answers lookups: the status says so until it is.
      // Asked of the rows, not of the item: clearing others may have cleared it meanwhile.
      if (profileConvertor().physicalTable().mayLinger(*item)) {
        recordStatus(*item);
      } else if (statusSupported()) {
        tableStatusIs()->entryStatusDel(key);
      }
    }
    this->hwInconsistentEntryDel(key);
  }

 protected:
  void handleInitialized() override {
    // So far there are items of what was read from hardware, and of what was withdrawn since.
    std::vector<Key> withdrawn;
    cachedItem_.forEach([&](const Key& key, const Orb::Ptr<Entry>&) {
      if (!this->entry(key)) withdrawn.push_back(key);
    });
    for (const Key& key : withdrawn) handleEntry(key);
    this->forEachAnnouncedKey([&](const Key& key) { handleEntry(key); });
  }
  void handleAbsent(const Key& key) override {
    if (!profileConvertorPtr()) return;
    const Orb::Ptr<Entry> item = newItem(key);
    if (!profileConvertor().physicalTable().mayHold(*item)) return;
    if (initialized()) {
      handleEntry(key);
    } else {
      *cachedItem_.insert(key).first = item;
    }
  }

 private:
  static const Key& keyOf(const HashItem& item) { return static_cast<const Entry&>(item).key(); }
  static void resultIs(Entry& item, const Result* desired) {
    item.resultIs(desired ? *desired : Result{});
    item.validIs(desired != nullptr);
  }
  /// The item of the same key that the physical table has, or else the given one.
  Orb::Ptr<Entry> knownItem(Orb::Ptr<Entry> item) const {
    if (!profileConvertorPtr()) return item;
    for (const auto& known : profileConvertor().physicalTable().equals(*item)) {
      if (&known->table() != this || keyOf(*known) != item->key()) continue;
      return Orb::Ptr<Entry>(static_cast<Entry*>(known.get()));
    }
    return item;
  }
  /// A family may record hits although its table does not declare hit bits.
  static constexpr bool hitBitsHandled() { return F::traits.hitTableOffset != noHitTable; }

  /// Whether the item is its key's entry, not one that was withdrawn.
  bool isCurrent(const Entry& item) const {
    if (!this->entry(item.key())) return false;
    const Orb::Ptr<Entry>* cached = cachedItem_.find(item.key());
    return !cached || !*cached || cached->get() == &item;
  }

  void recordStatus(const Entry& item) {
    if (!statusSupported()) return;
    tableStatusIs()->entryStatusIs(
        EntryStatus{item.key(), item.programmedStatus(), item.lastHit()});
  }

  void traceStatus(const Key& key) const {
    if (!F::trace.enabled(8)) [[likely]]
      return;
    F::trace(8, fwkType().name(), "::handleEntry ", key);
    if (const EntryStatus* status = tableStatus() ? tableStatus()->entryStatus(key) : nullptr) {
      F::trace(8, "entry has status: ", *status);
    } else {
      F::trace(8, "entry has no status");
    }
  }

  /// The key's item, as the family makes it.
  Orb::Ptr<Entry> itemToHandle(const Key& key) {
    if constexpr (requires { F::tracesItem; }) return createHashItem(key, true);
    return createHashEntry(key, true);
  }
  /// A family says whether its item's text tells more than its key's.
  static void traceItem(const char* what, const Entry& item) {
    if constexpr (requires { F::tracesItem; }) {
      if (F::trace.enabled(1)) F::trace(1, what, item.toStrep());
    } else {
      F::trace(1, what, item.key());
    }
  }

  struct KeyOfItem {
    const Key& operator()(const Orb::Ptr<Entry>& item) const { return item->key(); }
  };

  Orb::Map<Key, Orb::Ptr<Entry>, KeyOfItem> cachedItem_;
  Orb::Ptr<TableStatus> tableStatus_;
};

/// The table of a family whose tables all have one convertor, helper and entry class.
template <class F>
class VELA_EXPORT HashFamilyTable : public HashFamilyTableBase<F> {
 public:
  using HashFamilyTableBase<F>::HashFamilyTableBase;

  Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const override {
    return Orb::make<typename F::Convertor>();
  }
  Orb::Ptr<VelaSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override {
    return Orb::make<typename F::Helper>(this->tableIdx());
  }
  Orb::Ptr<typename F::CuckooEntry> newItem(const typename F::Key& key) override {
    return Orb::make<typename F::CuckooEntry>(this, key);
  }
};

template <class F>
class VELA_EXPORT HashFamilyConvertor : public VelaSwitchApi::PhysicalHashTableConvertor {
 public:
  void doCreateHwTables(VelaSwitchApi::TableState state) override {
    const VelaSwitchApi::SwTable* swTblBase = swTable();
    ORB_ASSERT(swTblBase);
    const auto* swTbl = dynamic_cast<const VelaSwitchApi::HashBaseTable*>(swTblBase);
    ORB_ASSERT(swTbl);
    const VelaSwitchApi::HashBaseTable* table = swTbl;
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

 protected:
  /// The table that the rows belong to.
  virtual TableIndex tableIndex() const { return F::traits.index; }
  /// Where the hit bits lie, in a family that has them.
  virtual U32 hitTableOffset() const { return F::traits.hitTableOffset; }

 private:
  /// The number that the rows go by; tables that share them go by that of the first.
  static U32 instanceOf(U8 tableIdx) {
    if constexpr (requires { F::instance(tableIdx); }) {
      return F::instance(tableIdx);
    } else {
      return tableIdx;
    }
  }

  void createHwTable(const VelaSwitchApi::HashBaseTable& swTable, VelaSwitchApi::HwTableId id,
                     U32 processor, VelaSwitchApi::TableState state) {
    using namespace VelaSwitchApi;
    Orb::Ptr<HwTableConfig> table = physicalTable().hwTable(id);
    if (!table) {
      const auto& properties = physicalTable().properties();
      const U32 tableSize = properties.rowsPerWay * properties.ways * properties.banks;
      ORB_ASSERT(tableSize != 0);
      const std::string family = TableConstants::tableName(tableIndex());
      const U32 instance = instanceOf(swTable.tableIdx());
      const std::string prefix = regPrefix(F::traits.prefix, processor);
      const std::string name = SwTable::hwTableName(family, std::to_string(instance), "", id);
      const auto mapping = Orb::make<HwTableRegisterMappingConst>(
          name, regAddresses(prefix, hashRegisters(F::dataWords(profile()))));
      const auto descriptor = HwTableDescriptorConfig::hwTableDescIs(
          {family, instance, id, name}, state, 0, tableSize - 1,
          static_cast<U8>(properties.rowWords), mapping);
      table = Orb::make<HwTableConfig>(descriptor, types().bus());
      physicalTable().hwTableIs(table);
      if constexpr (F::traits.hitTableOffset != noHitTable) {
        physicalTable().hitTableIs(id, createHitTable(*table, descriptor, prefix, state));
      }
    }
    ORB_ASSERT(table);
    hwTableIs(id, table);
    descriptorIs(id, &table->descriptor());
    if constexpr (F::traits.hitTableOffset != noHitTable) {
      const Orb::Ptr<HitBitTableConfig> hitTable = physicalTable().hitTable(id);
      ORB_ASSERT(hitTable);
      hitBitTableIs(id, hitTable);
      hitDescriptorIs(id, hitTable->descriptor());
    }
  }

  Orb::Ptr<VelaSwitchApi::HitBitTableConfig> createHitTable(
      const VelaSwitchApi::HwTableConfig& table,
      const Orb::PtrConst<VelaSwitchApi::HwTableDescriptor>& descriptor, const std::string& prefix,
      VelaSwitchApi::TableState state) {
    using namespace VelaSwitchApi;
    /// Each read returns 64 hit bits, in two registers.
    constexpr U32 hitBitsPerRead = 64;
    const auto hitDescriptor = HwTableDescriptorConfig::hitBitTableDescIs(
        descriptor, SwTable::hitBitAccessModeMapping(state), hitTableOffset(),
        getHitBitMapping(prefix, descriptor->last + 1, hitBitsPerRead, hitTableOffset()));
    return Orb::make<HitBitTableConfig>(hitDescriptor, table, types().bus());
  }

  VelaSwitchApi::SwTableTypes& types() const { return swTable()->types(); }
};

}  // namespace VelaSwitchTable

// The classes of a hash family, their factories and their templates, which are compiled in the
// family's source file alone. A family whose classes add something of their own writes those by
// hand and has VELA_CLASS for the others, between VELA_HASH_TEMPLATES and VELA_HASH_FACTORIES.
//
//   XxxTableIs(name, tableIdx)      `tableIdx` where the family has several
//   XxxConvertorIs()
//   XxxHelperIs(tableIdx)
//   XxxTableCuckooEntryIs(key)      an entry of no table
//   XxxPhysicalHashPropertiesIs(tableId)
//   XxxTableStatusIs()

/// `instantiate` is extern, or nothing where they are compiled.
#define VELA_HASH_TEMPLATES(instantiate, Family)           \
  instantiate template class HashFamilyTableBase<Family>;  \
  instantiate template class HashFamilyTable<Family>;      \
  instantiate template class HashFamilyHelperBase<Family>; \
  instantiate template class HashFamilyHelper<Family>;     \
  instantiate template class HashFamilyEntry<Family>;      \
  instantiate template class HashFamilyProperties<Family>; \
  instantiate template class HashFamilyTableStatus<Family>

#define VELA_HASH_FACTORIES(Family, Table, Helper, CuckooEntry, Properties, TableStatus) \
  VELA_FACTORY(Table, Table##Is, (const std::string& name, U8 tableIdx = 0));            \
  VELA_FACTORY(Helper, Helper##Is, (U8 tableIdx = 0));                                   \
  VELA_FACTORY(CuckooEntry, CuckooEntry##Is, (const Family::Key& key));                  \
  VELA_FACTORY(Properties, Properties##Is, (U32 tableId = Family::tableId(0)));          \
  VELA_FACTORY(TableStatus, TableStatus##Is, ())

#define VELA_HASH_FAMILY(Family, Table, Convertor, Helper, CuckooEntry, Properties, TableStatus) \
  VELA_HASH_TEMPLATES(extern, Family);                                                           \
  extern template class HashFamilyConvertor<Family>;                                             \
  VELA_CLASS(Family, Table, HashFamilyTable);                                                    \
  VELA_CLASS(Family, Convertor, HashFamilyConvertor);                                            \
  VELA_CLASS(Family, Helper, HashFamilyHelper);                                                  \
  VELA_CLASS(Family, CuckooEntry, HashFamilyEntry);                                              \
  VELA_CLASS(Family, Properties, HashFamilyProperties);                                          \
  VELA_CLASS(Family, TableStatus, HashFamilyTableStatus);                                        \
  VELA_FACTORY(Convertor, Convertor##Is, ());                                                    \
  VELA_HASH_FACTORIES(Family, Table, Helper, CuckooEntry, Properties, TableStatus)

/// For a family without a convertor of its own.
#define VELA_HASH_CLASSES_DEFINE(Family, Table, Helper, CuckooEntry, Properties, TableStatus) \
  VELA_HASH_TEMPLATES(, Family);                                                              \
  VELA_REGISTERED_DEFINE(Table)                                                               \
  VELA_REGISTERED_DEFINE(Helper)                                                              \
  VELA_REGISTERED_DEFINE(CuckooEntry)                                                         \
  VELA_REGISTERED_DEFINE(Properties)                                                          \
  VELA_REGISTERED_DEFINE(TableStatus)                                                         \
  VELA_FACTORY_DEFINE(Table, Table##Is, (const std::string& name, U8 tableIdx),               \
                      (name, tableIdx, tableIdx))                                             \
  VELA_FACTORY_DEFINE(Helper, Helper##Is, (U8 tableIdx), (tableIdx))                          \
  VELA_FACTORY_DEFINE(CuckooEntry, CuckooEntry##Is, (const Family::Key& key), (key))          \
  VELA_FACTORY_DEFINE(Properties, Properties##Is, (U32 tableId), (tableId))                   \
  VELA_FACTORY_DEFINE(TableStatus, TableStatus##Is, (), ())

#define VELA_HASH_FAMILY_DEFINE(Family, Table, Convertor, Helper, CuckooEntry, Properties, \
                                TableStatus)                                               \
  template class HashFamilyConvertor<Family>;                                              \
  VELA_REGISTERED_DEFINE(Convertor)                                                        \
  VELA_FACTORY_DEFINE(Convertor, Convertor##Is, (), ())                                    \
  VELA_HASH_CLASSES_DEFINE(Family, Table, Helper, CuckooEntry, Properties, TableStatus)
