#pragma once

#include "VelaSwitchTable/VelaRegPrefixUtil.h"
#include "VelaSwitchTable/family/EntryStore.h"
#include "VelaSwitchTable/family/Family.h"
#include "VelaSwitchTable/family/HashTable.h"
#include "VelaSwitchTable/family/Row.h"

/// What all exact-match hash families share. A family is a struct F, derived from Family, that says
/// what is its own:
///
///   traits                    a HashFamilyTraits
///   packKey(key, bits)        what is hashed, its lowest field first
///   hash(buffer, way, bits)   the row in a way
///   fields                    the row's; see Row.h
///   unpackKey(bits, row, key) the key of a row; false for a row that is none. Behind the first
///                             field of the packed key it is as packKey() made it
///
/// Rows begin with the packed key, without the bits that they imply (rowImpliesKey). The fields of
/// the result follow by name, with `valid` and `parity`; in the control word `row` and `way`.
///
/// A family whose rows hold something else says in addition
///
///   packMore(helper, key, result, valid, location, row)   before the parity is worked out
///   unpackMore(helper, row, result)
///   isEntry(row, location)    whether the row holds an entry; else its `valid` bit says it
///   check(helper, key, result)   asserts what must hold of an entry before anything moves
///   dataWords(profile)        data registers; the control register follows them
///   keyStart                  zero bits in front of the hashed key
///   leftAligned               the key is hashed with its most significant bit first
///   decodedText               what the trace of a decoded row begins with
///   tracesItem, tracesKey     traces tell more: of items their text, of keys each hashed field
namespace VelaSwitchTable {

/// The statuses of a table's entries.
template <class F>
class VELA_EXPORT HashFamilyTableStatus : public Orb::PtrInterface {
 public:
  using Key = typename F::Key;
  using EntryStatus = typename ClassesOf<F>::EntryStatus;
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

/// Zero bits in front of the hashed key.
template <class F>
inline constexpr U8 keyStart = 0;
template <class F>
requires requires { F::keyStart; }
inline constexpr U8 keyStart<F> = F::keyStart;

/// The key as the number that is hashed.
template <class F>
KeyBits packedKey(const typename F::Key& key) {
  KeyBits bits;
  if constexpr (requires { F::tracesKey; }) bits = KeyBits(F::trace, "getHash", keyStart<F>);
  F::packKey(key, bits);
  return bits;
}

/// Lays a packed key into a buffer; returns its length in bits.
template <class F>
U8 fillKeyBuffer(const KeyBits& key, U8* buffer, U8 bufSize) {
  if constexpr (requires { F::checkKeyBuffer(bufSize); }) {
    F::checkKeyBuffer(bufSize);
  } else {
    ORB_ASSERT(bufSize * 8 >= keyStart<F> + key.bits());
  }
  if constexpr (requires { F::leftAligned; }) {
    key.copyLeftAligned(buffer, bufSize);
  } else {
    key.copyTo(buffer, bufSize, keyStart<F>);
  }
  return key.bits();
}

/// An entry of the family as the cuckoo engine sees it.
template <class F>
class VELA_EXPORT HashFamilyEntry : public HashBaseCuckooEntry {
 public:
  using Key = typename F::Key;
  using Result = typename F::Result;

  /// An entry of no table.
  explicit HashFamilyEntry(const Key& key) : HashFamilyEntry(nullptr, key) {}
  HashFamilyEntry(VelaSwitchApi::HashBaseTable* table, const Key& key)
      : HashBaseCuckooEntry(table), key_(key) {
    U8 buffer[KeyBits::maxBytes];
    const U8 bits = fillKeyBuffer<F>(packedKey<F>(key_), buffer, sizeof buffer);
    U32 rows[F::traits.ways];
    for (U8 way = 0; way < F::traits.ways; ++way) rows[way] = F::hash(buffer, way, bits);
    this->rowsAre(rows);
  }

  U32 getHash(U8 way) const override {
    U8 buffer[KeyBits::maxBytes];
    const U8 bits = copyKeyToBuffer(buffer, sizeof buffer);
    return F::hash(buffer, way, bits);
  }
  /// The key and, of a valid entry, each field of the result by its name.
  std::string toStrep() const override {
    Orb::StringSink sink;
    sink.append(ClassesOf<F>::CuckooEntry::shortName);
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
    return fillKeyBuffer<F>(packedKey<F>(key_), buffer, bufSize);
  }
  bool isSpelledAs(const HashBaseCuckooEntry& other) const override {
    return &other.table() == &this->table() &&
           static_cast<const HashFamilyEntry&>(other).key_ == key_;
  }
  /// The packed key without the bits that the row implies.
  U64 hwCompareEncoding() const requires(F::traits.rowImpliesKey) {
    KeyBits bits = packedKey<F>(key_);
    bits.drop(F::traits.hashBits);
    return bits.words()[0];
  }

  const Key& key() const { return key_; }
  const Result& result() const { return result_; }
  void resultIs(const Result& result) { result_ = result; }

 private:
  Key key_;
  Result result_{};
};

template <class F>
class VELA_EXPORT HashFamilyProperties : public VelaSwitchApi::PhysicalHashProperties {
 public:
  explicit HashFamilyProperties(U32 tableId = F::traits.tableId(0),
                                U8 hashBits = F::traits.hashBits)
      : PhysicalHashProperties({.tableId = tableId,
                                .rowWords = F::traits.rowWords,
                                .rowsPerWay = 1u << hashBits,
                                .hashBits = hashBits,
                                .ways = F::traits.ways,
                                .banks = 1,
                                .hitBits = F::traits.hitBits,
                                .hitBitsClearOnRead = F::traits.hitBits}) {}
};

template <class F>
class VELA_EXPORT HashFamilyHelperBase : public VelaTableHashHelper {
 public:
  using Entry = typename ClassesOf<F>::CuckooEntry;

  explicit HashFamilyHelperBase(U8 tableIdx = 0)
      : VelaTableHashHelper(tableIdx, {F::trace, decodedText()}, F::traits.parityWords) {}

  void doInit() override {
    VelaTableHashHelper::doInit();
    const RowField* key = layout().find("key");
    const RowField* valid = layout().find("valid");
    keyBits_ = key ? static_cast<U8>(key->width) : packedKey<F>(table().nullKey()).bits();
    storedBits_ = static_cast<U8>(keyBits_ - implied());
    if (valid) storedBits_ = std::min(storedBits_, static_cast<U8>(valid->first));
    if constexpr (F::traits.rowImpliesKey) {
      inverse_ = VelaSwitch::HashInverse(&hashBuffer, F::traits.ways, keyBits_, impliedBits());
    }
  }
  void setHwBuffer(const HashBaseCuckooEntry& entry, CuckooLocation location,
                   U8* image) const override {
    ORB_ASSERT_TEXT(swTable(), "swTable()");
    const Entry& packed = static_cast<const Entry&>(entry);
    RowWriterOf<F> row(layout(), image, "setHwBuffer");
    if (packed.valid()) {
      KeyBits bits = packedKey<F>(packed.key());
      bits.drop(implied());
      row.setFirst(bits.words(), storedBits_);
      row.setNamed(packed.result());
      if constexpr (validBit) row.template set<"valid">(1);
    }
    if constexpr (requires { &F::packMore; }) {
      F::packMore(self(), packed.key(), packed.result(), packed.valid(), location, row);
    }
    if constexpr (F::traits.parityWords != 0) row.setParity(F::traits.parityWords);
    setStaticBuffer(location, image);
  }

 protected:
  RowLayout makeLayout() const override {
    if constexpr (requires { F::shape(self()); }) {
      return rowLayout<F>(F::traits.rowWords, F::shape(self()));
    } else {
      return rowLayout<F>(F::traits.rowWords, rowShape<F>(profile(), {.tableIdx = tableIdx()}));
    }
  }
  Orb::Ptr<HashBaseCuckooEntry> makeNullEntry() const override {
    return table().newItem(table().nullKey());
  }
  Orb::Ptr<HashBaseCuckooEntry> unpack(U32* image, CuckooLocation at) const override {
    const RowReaderOf<F> row(layout(), image);
    if constexpr (requires { &F::isEntry; }) {
      if (!F::isEntry(row, at)) return nullptr;
    } else {
      if (!row.template flag<"valid">()) return nullptr;
    }
    typename F::Key key{};
    if (!F::unpackKey(wholeKey(row, at), row, key)) return nullptr;
    typename F::Result result{};
    row.getNamed(result);
    if constexpr (requires { &F::unpackMore; }) F::unpackMore(self(), row, result);
    const Orb::Ptr<Entry> entry = table().newItem(key);
    entry->resultIs(result);
    entry->validIs(true);
    return entry;
  }

 private:
  static_assert(rowChecked<F, F::traits.rowWords, requires { &F::packMore; }>());

  /// Whether the row's valid bit says that there is an entry, rather than a field of the result.
  static constexpr bool validBit = findField<F>("valid") && !hasField<typename F::Result>("valid");

  static constexpr const char* decodedText() {
    if constexpr (requires { F::decodedText; }) return F::decodedText;
    return "Decoded entry is ";
  }
  static U32 hashBuffer(const U8* buffer, U8 way, U8 bits) { return F::hash(buffer, way, bits); }

  const typename ClassesOf<F>::Helper& self() const {
    return static_cast<const typename ClassesOf<F>::Helper&>(*this);
  }
  auto& table() const { return static_cast<TableOf<F>&>(*swTable()); }

  /// Low bits of the packed key, which rows imply.
  U8 implied() const {
    return F::traits.rowImpliesKey ? static_cast<U8>(physical().properties().hashBits) : U8{0};
  }
  /// Where they stand in the hashed buffer, lowest first.
  std::vector<U8> impliedBits() const {
    std::vector<U8> places;
    for (U8 i = 0; i < implied(); ++i) {
      if constexpr (requires { F::leftAligned; }) {
        const unsigned fromTop = keyBits_ - 1u - i;
        places.push_back(static_cast<U8>(fromTop / 8 * 8 + 7 - fromTop % 8));
      } else {
        places.push_back(static_cast<U8>(keyStart<F> + i));
      }
    }
    return places;
  }
  /// The packed key of a row, with the bits that its place implies.
  KeyBits wholeKey(const RowReader& row, CuckooLocation at) const {
    const auto with = [&](U32 low) {
      KeyBits bits;
      bits.add(implied(), low);
      bits.append(row.first(storedBits_));
      bits.add(static_cast<U8>(keyBits_ - bits.bits()), 0);
      return bits;
    };
    if constexpr (!F::traits.rowImpliesKey) return with(0);
    U8 stored[KeyBits::maxBytes];
    fillKeyBuffer<F>(with(0), stored, sizeof stored);
    return with(inverse_.implied(at.way, at.row, stored));
  }

  VelaSwitch::HashInverse inverse_;
  U8 keyBits_ = 0;     ///< Of the packed key; the most where keys differ in length.
  U8 storedBits_ = 0;  ///< Those that rows hold. A row with fewer than there are lacks zeros.
};

/// The helper of a family whose physical tables differ by their number alone.
template <class F>
class VELA_EXPORT HashFamilyHelper : public HashFamilyHelperBase<F> {
 public:
  using HashFamilyHelperBase<F>::HashFamilyHelperBase;

  Orb::Ptr<VelaSwitchApi::PhysicalHashProperties> doGetPhysTableProperties() const override {
    return Orb::make<typename ClassesOf<F>::PhysicalHashProperties>(
        F::traits.tableId(this->tableIdx()));
  }
};

/// The entries of a table, with their items and statuses.
template <class F>
class VELA_EXPORT HashFamilyTableBase : public HashTable,
                                        public EntryStore<typename F::Key, typename F::Result> {
 public:
  using Family = F;
  using Key = typename F::Key;
  using Result = typename F::Result;
  using Entry = typename ClassesOf<F>::CuckooEntry;
  using EntryStatus = typename ClassesOf<F>::EntryStatus;
  using TableStatus = typename ClassesOf<F>::TableStatus;

  explicit HashFamilyTableBase(std::string name, U8 tableIdx = 0, U8 pipeline = 0)
      : HashTable(std::move(name), tableIdx, pipeline, F::traits,
                  {F::trace, requires { F::tracesItem;
}
}  // namespace VelaSwitchTable
) {}

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
Orb::Ptr<HashBaseCuckooEntry> cachedCuckooEntry(const HashItem& item) const override {
  return cachedItem(keyOf(item));
}
void updateHashItem(HashItem& hashItem) const override {
  Entry& item = static_cast<Entry&>(hashItem);
  const Result* desired = this->entry(item.key());
  item.resultIs(desired ? *desired : Result{});
  item.validIs(desired != nullptr);
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
  if (!cached) {
    cached = newItem(key);
    if (auto* placed = placedItem(*cached)) cached = static_cast<Entry*>(placed);
  }
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
    if (desired)
      F::check(static_cast<const typename ClassesOf<F>::Helper&>(*helper()), key, *desired);
  }
  // Held on to: the item may be dropped on the way.
  const Orb::Ptr<Entry> item = itemToHandle(key);
  handleItem(*item);
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
std::string keyText(const HashBaseCuckooEntry& item) const override {
  return Orb::text(keyOf(item));
}
void statusIs(const HashBaseCuckooEntry& item) override {
  tableStatusIs()->entryStatusIs(EntryStatus{keyOf(item), item.programmedStatus(), item.lastHit()});
}
void statusDel(const HashBaseCuckooEntry& item) override {
  tableStatusIs()->entryStatusDel(keyOf(item));
}
Orb::Seconds recordedHit(const HashBaseCuckooEntry& item) const override {
  return tableStatus_->entryStatus(keyOf(item))->lastHit();
}

private:
static const Key& keyOf(const HashItem& item) { return static_cast<const Entry&>(item).key(); }

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

struct KeyOfItem {
  const Key& operator()(const Orb::Ptr<Entry>& item) const { return item->key(); }
};

Orb::Map<Key, Orb::Ptr<Entry>, KeyOfItem> cachedItem_;
Orb::Ptr<TableStatus> tableStatus_;
}
;

/// The table of a family whose tables all have one convertor, helper and entry class.
template <class F>
class VELA_EXPORT HashFamilyTable : public HashFamilyTableBase<F> {
 public:
  using HashFamilyTableBase<F>::HashFamilyTableBase;

  Orb::Ptr<VelaSwitchApi::SwTableProfileConvertor> profileConvertorFactory() const override {
    return Orb::make<typename ClassesOf<F>::Convertor>();
  }
  Orb::Ptr<VelaSwitchApi::HashBaseHelper> hashBaseHelperFactory() const override {
    return Orb::make<typename ClassesOf<F>::Helper>(this->tableIdx());
  }
  Orb::Ptr<typename ClassesOf<F>::CuckooEntry> newItem(const typename F::Key& key) override {
    return Orb::make<typename ClassesOf<F>::CuckooEntry>(this, key);
  }
};

template <class F>
class VELA_EXPORT HashFamilyConvertor : public HashTableConvertor {
 public:
  HashFamilyConvertor() : HashTableConvertor(F::traits) {}

 protected:
  U8 dataWords() const override {
    if constexpr (requires { &F::dataWords; }) return F::dataWords(profile());
    return F::traits.dataWords;
  }
};

}  // namespace VelaSwitchTable

// A hash family's classes are named after it: of the family Xxx, the struct XxxFamily,
//
//   VELA_HASH_FAMILY(Xxx);         in the header, behind the struct
//   VELA_HASH_FAMILY_DEFINE(Xxx)   in the source file
//
// make XxxTable, XxxConvertor, XxxHelper, XxxTableCuckooEntry, XxxPhysicalHashProperties,
// XxxTableStatus, XxxEntryStatus, the templates behind them, which are compiled in that source file
// alone, and the factories
//
//   XxxTableIs(name, tableIdx)      `tableIdx` where the family has several
//   XxxConvertorIs()
//   XxxHelperIs(tableIdx)
//   XxxTableCuckooEntryIs(key)      an entry of no table
//   XxxPhysicalHashPropertiesIs(tableId)
//   XxxTableStatusIs()
//
// A family of other names writes VELA_HASH_FAMILY_NAMED with all of them; one that adds something
// to a class writes VELA_HASH_CLASSES, its own classes, and VELA_CLASS for the others.

/// `instantiate` is extern, or nothing where they are compiled.
#define VELA_HASH_TEMPLATES(instantiate, Family)           \
  instantiate template class HashFamilyTableBase<Family>;  \
  instantiate template class HashFamilyHelperBase<Family>; \
  instantiate template class HashFamilyEntry<Family>;      \
  instantiate template class HashFamilyProperties<Family>; \
  instantiate template class HashFamilyTableStatus<Family>

#define VELA_HASH_NAMES(Family, Table_, Convertor_, Helper_, Entry_, Properties_, TableStatus_, \
                        EntryStatus_)                                                           \
  class Table_;                                                                                 \
  class Convertor_;                                                                             \
  class Helper_;                                                                                \
  class Entry_;                                                                                 \
  class Properties_;                                                                            \
  class TableStatus_;                                                                           \
  using EntryStatus_ = EntryStatusOf<Family::Key, "VelaSwitchTable::" #EntryStatus_>;           \
  template <>                                                                                   \
  struct ClassesOf<Family> {                                                                    \
    using Table = Table_;                                                                       \
    using Convertor = Convertor_;                                                               \
    using Helper = Helper_;                                                                     \
    using CuckooEntry = Entry_;                                                                 \
    using PhysicalHashProperties = Properties_;                                                 \
    using TableStatus = TableStatus_;                                                           \
    using EntryStatus = EntryStatus_;                                                           \
  }

#define VELA_HASH_CLASSES(Family, Table, Convertor, Helper, Entry, Properties, TableStatus,       \
                          EntryStatus)                                                            \
  VELA_HASH_NAMES(Family, Table, Convertor, Helper, Entry, Properties, TableStatus, EntryStatus); \
  VELA_HASH_TEMPLATES(extern, Family);                                                            \
  extern template class HashFamilyTable<Family>;                                                  \
  extern template class HashFamilyHelper<Family>;                                                 \
  extern template class HashFamilyConvertor<Family>;                                              \
  VELA_FACTORY(Table, Table##Is, (const std::string& name, U8 tableIdx = 0));                     \
  VELA_FACTORY(Helper, Helper##Is, (U8 tableIdx = 0));                                            \
  VELA_FACTORY(Entry, Entry##Is, (const Family::Key& key));                                       \
  VELA_FACTORY(Properties, Properties##Is, (U32 tableId = Family::traits.tableId(0)));            \
  VELA_FACTORY(TableStatus, TableStatus##Is, ())

#define VELA_HASH_CLASSES_DEFINE(Family, Table, Helper, Entry, Properties, TableStatus) \
  VELA_HASH_TEMPLATES(, Family);                                                        \
  template class HashFamilyTable<Family>;                                               \
  template class HashFamilyHelper<Family>;                                              \
  template class HashFamilyConvertor<Family>;                                           \
  VELA_REGISTERED_DEFINE(Table)                                                         \
  VELA_REGISTERED_DEFINE(Helper)                                                        \
  VELA_REGISTERED_DEFINE(Entry)                                                         \
  VELA_REGISTERED_DEFINE(Properties)                                                    \
  VELA_REGISTERED_DEFINE(TableStatus)                                                   \
  VELA_FACTORY_DEFINE(Table, Table##Is, (const std::string& name, U8 tableIdx),         \
                      (name, tableIdx, tableIdx))                                       \
  VELA_FACTORY_DEFINE(Helper, Helper##Is, (U8 tableIdx), (tableIdx))                    \
  VELA_FACTORY_DEFINE(Entry, Entry##Is, (const Family::Key& key), (key))                \
  VELA_FACTORY_DEFINE(Properties, Properties##Is, (U32 tableId), (tableId))             \
  VELA_FACTORY_DEFINE(TableStatus, TableStatus##Is, (), ())

/// Of the convertor apart: families that share rows may share that of one of them.
#define VELA_HASH_CONVERTOR_DEFINE(Convertor) \
  VELA_REGISTERED_DEFINE(Convertor)           \
  VELA_FACTORY_DEFINE(Convertor, Convertor##Is, (), ())

#define VELA_HASH_FAMILY_NAMED(Family, Table, Convertor, Helper, Entry, Properties, TableStatus, \
                               EntryStatus)                                                      \
  VELA_HASH_CLASSES(Family, Table, Convertor, Helper, Entry, Properties, TableStatus,            \
                    EntryStatus);                                                                \
  VELA_FACTORY(Convertor, Convertor##Is, ());                                                    \
  VELA_CLASS(Family, Entry, HashFamilyEntry);                                                    \
  VELA_CLASS(Family, Properties, HashFamilyProperties);                                          \
  VELA_CLASS(Family, TableStatus, HashFamilyTableStatus);                                        \
  VELA_CLASS(Family, Table, HashFamilyTable);                                                    \
  VELA_CLASS(Family, Convertor, HashFamilyConvertor);                                            \
  VELA_CLASS(Family, Helper, HashFamilyHelper)

#define VELA_HASH_FAMILY(Xxx)                                                                  \
  VELA_HASH_FAMILY_NAMED(Xxx##Family, Xxx##Table, Xxx##Convertor, Xxx##Helper,                 \
                         Xxx##TableCuckooEntry, Xxx##PhysicalHashProperties, Xxx##TableStatus, \
                         Xxx##EntryStatus)

#define VELA_HASH_FAMILY_DEFINE(Xxx)                                                    \
  VELA_HASH_CLASSES_DEFINE(Xxx##Family, Xxx##Table, Xxx##Helper, Xxx##TableCuckooEntry, \
                           Xxx##PhysicalHashProperties, Xxx##TableStatus)               \
  VELA_HASH_CONVERTOR_DEFINE(Xxx##Convertor)
