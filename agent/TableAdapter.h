#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Bridging/VlanId.h"
#include "VelaSwitchApi/HashBase.h"
#include "VelaSwitchTable/family/HashFamily.h"
#include "VelaSwitchTable/family/PlainFamily.h"
#include "agent/Limits.h"
#include "device/DataPath.h"

namespace VelaAgent {

using VelaSwitchApi::EntryProgrammedStatus;
using VelaSwitchApi::HwIndex;

class HwTableAdapter;

/// Something that entries can be announced to, behind JSON: what events and status listings need of
/// it, whatever its kind.
class TableAdapter {
 public:
  /// One line of a status listing.
  struct Status {
    Json key;
    EntryProgrammedStatus status;
    Orb::Seconds lastHit;
  };
  /// A row that a refused entry competes for, in the table that the entry in it belongs to.
  struct Competitor {
    const VelaSwitchApi::SwTable* table;
    HwIndex index;
  };

  TableAdapter(std::string name, U32 instance) : name_(std::move(name)), instance_(instance) {}
  virtual ~TableAdapter() = default;

  const std::string& name() const { return name_; }
  U32 instance() const { return instance_; }
  /// The table with rows of its own that this is, or null.
  virtual HwTableAdapter* hardware() { return nullptr; }
  virtual const HwTableAdapter* hardware() const { return nullptr; }

  /// What a key that is no object names: "vid", "portId"; empty for other keys.
  virtual std::string keyName() const { return {}; }

  /// Announces an entry; a null result is the default one. An entry that is unchanged but not
  /// programmed is tried again.
  virtual EntryProgrammedStatus set(const Json& key, const Json& result) = 0;
  /// Whether the last entry announced had been announced before, and not withdrawn since.
  bool announcedBefore() const { return announcedBefore_; }
  /// What is odd about the last entry announced, although it was accepted.
  const std::vector<std::string>& warnings() const { return warnings_; }

  /// Withdraws an entry; returns whether there was one.
  virtual bool del(const Json& key) = 0;
  /// What the data path finds: the hit's fields, or null.
  virtual Json lookup(VelaDevice::DataPath& dataPath, const Json& key) const = 0;
  /// Adds to the explanation of a lookup what its hit leads to.
  virtual void explain(VelaDevice::DataPath&, const Json& /*key*/, const Json& /*hit*/,
                       Json& /*explanation*/) const {}
  /// Reads the hit bits of the entries' rows. False when a read failed.
  virtual bool pollHitBits(Orb::Seconds now) = 0;
  /// The entries that leave a refused one no row; one fewer than they are with it.
  virtual std::vector<Competitor> competing(const Json& key) const = 0;
  /// Whether what is announced here becomes entries of the table.
  virtual bool fills(const VelaSwitchApi::SwTable& table) const = 0;
  /// Which of several tables an entry of the key is to be in, where there are several.
  virtual std::optional<std::string> levelOf(const Json& /*key*/) const { return std::nullopt; }

  /// Calls `visit(key, result)` for every entry.
  using EntryVisitor = std::function<void(const Json& key, const Json& result)>;
  virtual void forEachEntry(const EntryVisitor& visit) const = 0;
  /// Every entry's status, by key.
  virtual std::vector<Status> statuses() const = 0;
  /// Entries that were announced, and those of them that hardware has.
  virtual U32 entries() const = 0;
  virtual U32 programmed() const = 0;
  /// Entries that were rebuilt from hardware and not announced since.
  virtual U32 unclaimed() const { return 0; }
  /// Entries that wait for room.
  virtual U32 waiting() const { return 0; }
  virtual U64 moves() const { return 0; }
  /// Entries that hardware lacks since they were announced, after a refusal.
  virtual U32 refused() const { return 0; }

  using KeyVisitor = std::function<void(const Json& key)>;
  /// Hears of entries that come in although their announcement was refused.
  void admissionListenerIs(KeyVisitor listener) { admitted_ = std::move(listener); }

  /// Removes the entries that were read from hardware and that nobody announced since, after a
  /// word on each, and tries again what had no room.
  virtual void reconcile(const KeyVisitor& removing) = 0;

 protected:
  /// Hardware has as many bits for the fields of a key as their types say.
  static unsigned bitsOfType(std::string_view, bool) { return 64; }

  /// Warns of what hardware cuts of key and result, because it has fewer bits for it; `bitsOf` says
  /// how many it has for the result's fields. The first warning of an entry.
  template <class Key, class Result>
  void warnOfCuts(const Key& key, const Result& result, const FieldBits& bitsOf) {
    warnings_.clear();
    std::vector<std::string> cuts;
    if constexpr (Orb::Value<Key>) cutFields(key, bitsOfType, cuts);
    cutFields(result, bitsOf, cuts);
    if (cuts.empty()) return;
    std::string text = "hardware has fewer bits: cut ";
    for (const std::string& cut : cuts) text += (&cut == &cuts.front() ? "" : ", ") + cut;
    warningIs(text);
  }
  void announcedBeforeIs(bool before) { announcedBefore_ = before; }
  void warningIs(std::string text) { warnings_.push_back(std::move(text)); }
  void admittedIs(const Json& key) const {
    if (admitted_) admitted_(key);
  }

 private:
  std::string name_;
  U32 instance_;
  bool announcedBefore_ = false;
  std::vector<std::string> warnings_;
  KeyVisitor admitted_;
};

/// The entries of a table whose announcement was refused, until hardware has them or they go.
template <class Key>
class Refusals final : public Orb::KeyObserver<Key> {
 public:
  using IsIn = std::function<bool(const Key&)>;
  using Listener = std::function<void(const Key&)>;

  /// `isIn` says whether hardware has an entry, `admitted` hears of those that come in.
  Refusals(IsIn isIn, Listener admitted) : isIn_(std::move(isIn)), admitted_(std::move(admitted)) {}

  /// An announcement of the key begins, or it is withdrawn: what was before counts no more.
  void forget(const Key& key) {
    if (!keys_.empty()) keys_.erase(key);
  }
  void is(const Key& key) { *keys_.insert(key).first = true; }
  U32 count() const {
    U32 count = 0;
    keys_.forEach([&](const Key& key, bool) { count += isIn_(key) ? 0 : 1; });
    return count;
  }
  /// The key's status changed.
  void handleKey(const Key& key) override {
    if (keys_.empty() || !keys_.has(key) || !isIn_(key)) return;
    keys_.erase(key);
    admitted_(key);
  }

 private:
  IsIn isIn_;
  Listener admitted_;
  Orb::Map<Key, bool> keys_;
};

/// What can be looked up but not announced: a packet's way through several tables.
class PathAdapter final : public TableAdapter {
 public:
  using Lookup = std::function<Json(VelaDevice::DataPath&, const Json& key)>;

  PathAdapter(std::string name, Lookup ask)
      : TableAdapter(std::move(name), 0), lookup_(std::move(ask)) {}

  EntryProgrammedStatus set(const Json&, const Json&) override { refuse(); }
  bool del(const Json&) override { refuse(); }
  Json lookup(VelaDevice::DataPath& dataPath, const Json& key) const override {
    return lookup_(dataPath, key);
  }
  bool pollHitBits(Orb::Seconds) override { refuse(); }
  std::vector<Competitor> competing(const Json&) const override { return {}; }
  bool fills(const VelaSwitchApi::SwTable&) const override { return false; }
  void forEachEntry(const EntryVisitor&) const override {}
  std::vector<Status> statuses() const override { return {}; }
  U32 entries() const override { return 0; }
  U32 programmed() const override { return 0; }
  void reconcile(const KeyVisitor&) override {}

 private:
  [[noreturn]] void refuse() const {
    throw InputException(name() +
                         " is no table but a way through several: it can be looked up, "
                         "no more");
  }

  Lookup lookup_;
};

/// What an audit found, for those who tell of it.
struct RowFinding {
  using Kind = VelaSwitchApi::AuditFinding::Kind;
  Kind kind;
  bool corrupt;  ///< No row of the table can hold this.
  Json key;      ///< Whose row it is; null when no entry's.
  Json holds;    ///< The key that a row of no entry's stands for or seems to hold.
  const VelaSwitchApi::HwTableConfig* hwTable;
  std::optional<HwIndex> index;  ///< Nothing for an entry that is in no row.
  std::vector<VelaSwitchApi::FieldDifference> fields;
};

/// A software table with rows in hardware.
class HwTableAdapter : public TableAdapter {
 public:
  /// Where an entry lies.
  struct Place {
    HwIndex index;
    std::optional<VelaSwitchApi::CuckooLocation> location;  ///< For hash tables.
  };

  using TableAdapter::TableAdapter;

  HwTableAdapter* hardware() override { return this; }
  const HwTableAdapter* hardware() const override { return this; }
  virtual VelaSwitchApi::SwTable& table() const = 0;
  bool fills(const VelaSwitchApi::SwTable& other) const override { return &other == &table(); }

  VelaSwitchApi::SwTableProfileConvertor& convertor() const {
    return *table().profileConvertorPtr();
  }
  bool pollHitBits(Orb::Seconds now) override { return convertor().pollHitBits(now); }

  /// Compares the rows with what they should be.
  void audit() { table().syncEntries(); }
  /// Writes what the last audit found wrong.
  void repair();
  /// What the last audit found.
  std::vector<RowFinding> findings() const;
  using RowId = std::pair<VelaSwitchApi::HwTableId, HwIndex>;
  /// Rows that were read and that no row of the table can be, with their hardware tables.
  std::vector<RowId> corruptRows() const;
  /// Rows that were read and that are no entry's, though they hold something.
  virtual std::vector<RowId> strayRows() const;
  /// Keys of entries whose rows, after the entries were rebuilt from them, do not all say the same.
  virtual std::vector<Json> disagreeingKeys() const = 0;
  /// Whether hardware tells which rows packets hit.
  bool reportsHits() const { return !convertor().hitBitTables().empty(); }

  /// Whether the hardware table has a row of the index.
  static bool holds(const VelaSwitchApi::HwTableConfig& hwTable, HwIndex index) {
    return index >= hwTable.descriptor().first && index <= hwTable.descriptor().last;
  }
  /// The key's row, when it has one.
  virtual std::optional<Place> place(const Json& key) const = 0;
  /// The key of the software entry in a row, or null.
  virtual Json keyAt(HwIndex index) const = 0;
  /// Whether the row is this table's to list; tables that share rows list each once.
  virtual bool listsRow(HwIndex index) const = 0;
  /// Whether another table declared the rows that this one uses.
  virtual bool borrowsRows() const { return false; }
  /// The key that the row stands for or seems to hold, or null.
  virtual Json decodedKey(HwIndex index) const = 0;
  /// The key of an entry that has no row.
  virtual Json keyOf(const VelaSwitchApi::HashBaseCuckooEntry& entry) const = 0;
  /// Way and row of an index, for hash tables.
  virtual std::optional<VelaSwitchApi::CuckooLocation> location(HwIndex index) const = 0;

 private:
  template <class Wanted>
  std::vector<RowId> rowsThat(const Wanted& wanted) const;
};

/// Why the key of a hash table has no row.
template <class Table>
std::vector<TableAdapter::Competitor> competitorsOf(const Table& table,
                                                    const typename Table::Key& key) {
  std::vector<TableAdapter::Competitor> rows;
  const auto item = table.cachedItem(key);
  if (!item || item->placed()) return rows;
  auto& physical = table.profileConvertor().physicalTable();
  for (const auto* entry : physical.competitors(*item)) {
    rows.push_back({&entry->table(), physical.indexOf(*entry)});
  }
  return rows;
}

template <class Table>
using AnnouncedOf = std::remove_cvref_t<decltype(VelaSwitchTable::announced<typename Table::Family>(
    std::declval<const typename Table::Result&>()))>;

/// What the switch makes of a family's entries, where the types of the fields do not say it. Each
/// may be missing.
template <class Table>
struct EntryRules {
  /// Throws InputException for a key that the table cannot have.
  void (*key)(const Table&, const typename Table::Key&) = nullptr;
  /// Likewise for a result; one that is odd, no more, gets a warning.
  void (*result)(const Table&, const AnnouncedOf<Table>&,
                 std::vector<std::string>& warnings) = nullptr;
};

/// What the adapters of all families share: keys and results by their field lists.
template <class Table>
class EntryAdapter : public HwTableAdapter {
 public:
  using Family = typename Table::Family;
  using Key = typename Table::Key;
  using Result = typename Table::Result;
  using Announced = AnnouncedOf<Table>;
  /// A lookup of the data path by the JSON form of a key.
  using Lookup = Json (*)(VelaDevice::DataPath&, U32 instance, const Json& key);

  using Rules = EntryRules<Table>;

  EntryAdapter(std::string name, U32 instance, Orb::Ptr<Table> swTable, Lookup ask,
               Rules rules = {})
      : HwTableAdapter(std::move(name), instance),
        table_(std::move(swTable)),
        lookup_(ask),
        rules_(rules) {}

  Table& table() const override { return *table_; }
  std::string keyName() const override {
    std::string name;
    if constexpr (std::same_as<Key, Bridging::VlanId>) {
      name = "vid";
    } else if constexpr (std::same_as<Key, VelaSwitch::L3LagIndex>) {
      name = "lag";
    } else if constexpr (Orb::ScalarValue<Key>) {
      Orb::forEachField(Key{}, [&](const auto& field) { name = std::string(field.name); });
    }
    return name;
  }

  EntryProgrammedStatus set(const Json& key, const Json& result) override {
    const Key k = keyFromJson(key);
    const Announced r =
        result.is_null() ? Announced{} : fromJson<Announced>(result, table_->profile());
    std::vector<std::string> odd;
    if (rules_.result) rules_.result(*table_, r, odd);
    this->warnOfCuts(k, r, [this](auto field, bool mask) { return rowBits(field, mask); });
    for (std::string& text : odd) this->warningIs(std::move(text));
    warnOfKey(k);
    warnOfSilence(r);
    refusals_.forget(k);
    this->announcedBeforeIs(table_->entry(k) && !table_->unclaimed(k));
    const bool changed = table_->entryIs(k, r);
    if (!changed && status(k) != EntryProgrammedStatus::programmed) table_->handleEntry(k);
    const EntryProgrammedStatus outcome = status(k);
    if (outcome == EntryProgrammedStatus::programmed) return outcome;
    if (!watching_) watchStatuses(refusals_);
    watching_ = true;
    refusals_.is(k);
    return outcome;
  }
  bool del(const Json& key) override {
    const Key k = keyFromJson(key);
    const Result* result = table_->entry(k);
    const bool known = result && told(k, *result);
    refusals_.forget(k);
    if (!table_->entryDel(k) && status(k) == EntryProgrammedStatus::hardwareError) {
      table_->handleEntry(k);
    }
    return known;
  }
  U32 refused() const override { return refusals_.count(); }
  Json lookup(VelaDevice::DataPath& dataPath, const Json& key) const override {
    // Tables whose key is no object may be asked by objects as well, each in its own way.
    if (keyIsObject || !key.is_object()) keyFromJson(key);
    return lookup_(dataPath, instance(), key);
  }
  void forEachEntry(const TableAdapter::EntryVisitor& visit) const override {
    for (const Key& key : table_->entries().keys()) {
      const Result& result = *table_->entry(key);
      if (told(key, result))
        visit(keyToJson(key), toJson(VelaSwitchTable::announced<Family>(result)));
    }
  }
  U32 entries() const override { return table_->entries().size() - table_->unclaimed(); }
  U32 unclaimed() const override {
    if constexpr (!rebuildsDefaults) return table_->unclaimed();
    U32 count = 0;
    for (const Key& key : table_->unclaimedKeys()) count += told(key, *table_->entry(key)) ? 1 : 0;
    return count;
  }
  U32 programmed() const override {
    U32 count = 0;
    table_->entries().forEach([&](const Key& key, const Result&) {
      if (!table_->unclaimed(key) && status(key) == EntryProgrammedStatus::programmed) ++count;
    });
    return count;
  }
  void reconcile(const TableAdapter::KeyVisitor& removing) override {
    for (const Key& key : table_->unclaimedKeys()) {
      if (told(key, *table_->entry(key))) removing(keyToJson(key));
      table_->entryDel(key);
    }
    // Rows of entries that are gone may be marked as well.
    for (const Key& key : table_->hwInconsistentKeys()) table_->handleEntry(key);
    for (const Key& key : table_->entries().keys()) {
      if (status(key) != EntryProgrammedStatus::programmed) table_->handleEntry(key);
    }
  }
  std::vector<Json> disagreeingKeys() const override {
    std::vector<Json> keys;
    for (const Key& key : table_->hwInconsistentKeys()) {
      if (table_->entry(key)) keys.push_back(keyToJson(key));
    }
    return keys;
  }

 protected:
  virtual EntryProgrammedStatus status(const Key& key) const = 0;
  /// Lets the observer hear of changed statuses, where the table keeps them.
  virtual void watchStatuses(Orb::KeyObserver<Key>&) {}

  static constexpr bool keyIsObject = Orb::Value<Key> && !Orb::ScalarValue<Key>;
  static constexpr bool rebuildsDefaults = [] {
    if constexpr (requires { Family::traits.rebuildsDefaults; }) {
      return Family::traits.rebuildsDefaults;
    }
    return false;
  }();
  /// Whether people hear of the entry: not when it is but what hardware holds without one.
  bool told(const Key& key, const Result& result) const {
    if constexpr (rebuildsDefaults) {
      return !table_->unclaimed(key) || result != Family::absentResult();
    }
    return true;
  }

  /// The key that an event names. Throws InputException for one that the table cannot have.
  virtual Key keyFromJson(const Json& json) const {
    Key key{};
    try {
      key = fromJson<Key>(json, table_->profile());
    } catch (const ValueException& error) {
      throw InputException(std::string("key ") + error.what());
    }
    if (rules_.key) rules_.key(*table_, key);
    return key;
  }

  /// Warns of what is odd about a key.
  virtual void warnOfKey(const Key&) {}

  /// The key, without what takes no part in the family.
  static Json keyToJson(const Key& key) {
    Json json = toJson(key);
    if constexpr (requires { Family::unusedKeyField; })
      json.erase(std::string(Family::unusedKeyField));
    return json;
  }

 private:
  /// How many bits the rows have for a field of the result. A port mask that is shared out among
  /// hardware tables has all ports.
  unsigned rowBits(std::string_view field, bool mask) const {
    if (rowBits_.empty()) {
      for (const auto& [id, hwTable] : convertor().hwTables()) {
        const auto& layout = convertor().rowLayout(id, hwTable->descriptor().first);
        for (const auto& each : layout.fields()) {
          const std::string_view name(each.name);
          unsigned& bits = rowBits_[std::string(name.substr(0, name.find('[')))];
          bits = std::max<unsigned>(bits, each.width);
        }
      }
    }
    const auto at = rowBits_.find(field);
    if (at == rowBits_.end()) return 64;
    return mask ? std::max(at->second, table_->profile().ports()) : at->second;
  }

  /// Where it is part of the result whether the row answers, a row that does not is easily had by
  /// mistake.
  void warnOfSilence(const Announced& result) {
    if constexpr (requires { result.valid(); }) {
      if (result.valid() || toldOfSilence_) return;
      toldOfSilence_ = true;
      this->warningIs("without \"valid\":true the entry does not answer lookups");
    }
  }

  Orb::Ptr<Table> table_;
  Lookup lookup_;
  Rules rules_;
  Refusals<Key> refusals_{
      [this](const Key& key) { return status(key) == EntryProgrammedStatus::programmed; },
      [this](const Key& key) { this->admittedIs(keyToJson(key)); }};
  bool watching_ = false;
  mutable std::map<std::string, unsigned, std::less<>> rowBits_;
  bool toldOfSilence_ = false;  ///< Once is enough for a table.
};

template <class Family>
class HashAdapter final : public EntryAdapter<VelaSwitchTable::TableOf<Family>> {
  using Base = EntryAdapter<VelaSwitchTable::TableOf<Family>>;
  using Key = typename Base::Key;
  using Place = HwTableAdapter::Place;
  using Competitor = TableAdapter::Competitor;

 public:
  using Base::Base;

  std::optional<Place> place(const Json& key) const override {
    const auto item = this->table().cachedItem(this->keyFromJson(key));
    if (!item || !item->placed()) return std::nullopt;
    const HwIndex index = physical().indexOf(*item);
    return Place{index, physical().location(index)};
  }
  Json keyAt(HwIndex index) const override {
    const auto* entry = physical().entryAt(index);
    if (!entry || &entry->table() != &this->table()) return nullptr;
    return keyOf(*entry);
  }
  Json keyOf(const VelaSwitchApi::HashBaseCuckooEntry& entry) const override {
    return this->keyToJson(
        static_cast<const typename VelaSwitchTable::ClassesOf<Family>::CuckooEntry&>(entry).key());
  }
  Json decodedKey(HwIndex index) const override {
    const auto entry = this->table().helper()->decodeHwEntry(index);
    return entry->valid() ? keyOf(*entry) : Json(nullptr);
  }
  bool listsRow(HwIndex index) const override { return physical().owner(index) == &this->table(); }
  std::optional<VelaSwitchApi::CuckooLocation> location(HwIndex index) const override {
    return physical().location(index);
  }
  std::vector<Competitor> competing(const Json& key) const override {
    return competitorsOf(this->table(), fromJson<Key>(key));
  }
  std::vector<TableAdapter::Status> statuses() const override {
    std::vector<TableAdapter::Status> all;
    const auto& collection = this->table().tableStatusIs()->entryStatuses();
    for (const Key& key : collection.keys()) {
      const auto* status = collection.find(key);
      all.push_back({this->keyToJson(key), status->status(), status->lastHit()});
    }
    return all;
  }
  void reconcile(const TableAdapter::KeyVisitor& removing) override {
    physical().settle();
    Base::reconcile(removing);
  }
  bool borrowsRows() const override { return physical().firstTable() != &this->table(); }
  U64 moves() const override { return physical().engine().moves(); }
  U32 waiting() const override { return physical().waiting(&this->table()); }

 protected:
  EntryProgrammedStatus status(const Key& key) const override {
    const auto* status = this->table().tableStatusIs()->entryStatus(key);
    if (!status) return EntryProgrammedStatus::notProgrammed;
    return this->table().hwInconsistentEntry(key) ? EntryProgrammedStatus::hardwareError
                                                  : status->status();
  }
  void watchStatuses(Orb::KeyObserver<Key>& observer) override {
    this->table().tableStatusIs()->entryStatuses().observerIs(&observer);
  }

 private:
  VelaSwitchApi::PhysicalHashTable& physical() const {
    return this->table().profileConvertor().physicalTable();
  }
};

/// For tables whose row follows from the key.
template <class Family>
class IndexedAdapter : public EntryAdapter<VelaSwitchTable::TableOf<Family>> {
  using Base = EntryAdapter<VelaSwitchTable::TableOf<Family>>;
  using Key = typename Base::Key;
  using Place = HwTableAdapter::Place;
  using Competitor = TableAdapter::Competitor;

 public:
  using Base::Base;

  std::optional<Place> place(const Json& key) const override {
    return Place{Family::hwIndex(this->keyFromJson(key)), std::nullopt};
  }
  Json keyAt(HwIndex index) const override {
    const Key key = Family::keyOf(index);
    return this->table().entry(key) ? toJson(key) : Json(nullptr);
  }
  Json decodedKey(HwIndex index) const override { return toJson(Family::keyOf(index)); }
  Json keyOf(const VelaSwitchApi::HashBaseCuckooEntry&) const override { return nullptr; }
  bool listsRow(HwIndex) const override { return true; }
  std::vector<HwTableAdapter::RowId> strayRows() const override {
    // Of such a family, rows without an entry may hold what they like.
    if constexpr (requires { Family::traits.ignoresRows; }) {
      if (Family::traits.ignoresRows) return {};
    }
    return HwTableAdapter::strayRows();
  }
  std::optional<VelaSwitchApi::CuckooLocation> location(HwIndex) const override {
    return std::nullopt;
  }
  std::vector<Competitor> competing(const Json&) const override { return {}; }
  std::vector<TableAdapter::Status> statuses() const override {
    std::vector<TableAdapter::Status> all;
    for (const Key& key : this->table().entries().keys()) {
      if (!this->told(key, *this->table().entry(key))) continue;
      all.push_back({toJson(key), status(key), Orb::Seconds{}});
    }
    return all;
  }

 protected:
  Key keyFromJson(const Json& json) const override {
    const Key key = Base::keyFromJson(json);
    const HwIndex index = Family::hwIndex(key);
    const auto& hwTables = this->convertor().hwTables();
    // Behind the rows of all keys there may be copies of them.
    const bool row =
        hwTables.empty() || std::any_of(hwTables.begin(), hwTables.end(), [&](const auto& each) {
          return this->holds(*each.second, index) && Family::keyOf(index) == key;
        });
    if (row) return key;
    throw ValueException("key " + quoted(json),
                         this->name() + " has rows 0 to " + std::to_string(lastIndex()));
  }
  /// The last row that a key has.
  HwIndex lastIndex() const {
    HwIndex last = 0;
    for (const auto& [id, hwTable] : this->convertor().hwTables()) {
      last = std::max(last, hwTable->descriptor().last);
    }
    while (last > 0 && Family::hwIndex(Family::keyOf(last)) != last) --last;
    return last;
  }
  void warnOfKey(const Key& key) override {
    const HwIndex index = Family::hwIndex(key);
    const auto& hwTables = this->convertor().hwTables();
    const bool registers =
        hwTables.empty() || std::any_of(hwTables.begin(), hwTables.end(), [&](const auto& each) {
          return this->holds(*each.second, index) && !each.second->mapped(index).empty();
        });
    if (!registers) this->warningIs("no register in this profile, nothing is written");
  }
  /// Such tables keep no status records: an entry is in hardware unless its key is marked.
  EntryProgrammedStatus status(const Key& key) const override {
    if (this->table().hwInconsistentEntry(key)) return EntryProgrammedStatus::hardwareError;
    return this->table().entry(key) ? EntryProgrammedStatus::programmed
                                    : EntryProgrammedStatus::notProgrammed;
  }
};

/// The JSON form of a hit, or null.
template <class Hit>
Json hitToJson(const std::optional<Hit>& hit) {
  return hit ? detail::structToJson(*hit) : Json(nullptr);
}

}  // namespace VelaAgent
