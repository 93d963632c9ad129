#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "VelaSwitchApi/HashBase.h"
#include "VelaSwitchTable/HashFamily.h"
#include "VelaSwitchTable/PlainFamily.h"
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

  /// Announces an entry; a null result is the default one. An entry that is unchanged but not
  /// programmed is tried again.
  virtual EntryProgrammedStatus set(const Json& key, const Json& result) = 0;
  /// What is odd about the last entry announced, although it was accepted.
  const std::vector<std::string>& warnings() const { return warnings_; }

  virtual void del(const Json& key) = 0;
  /// What the data path finds: the hit's fields, or null.
  virtual Json lookup(VelaDevice::DataPath& dataPath, const Json& key) const = 0;
  /// Reads the hit bits of the entries' rows. False when a read failed.
  virtual bool pollHitBits(Orb::Seconds now) = 0;
  /// The entries that leave a refused one no row; one fewer than they are with it.
  virtual std::vector<Competitor> competing(const Json& key) const = 0;
  /// Whether what is announced here becomes entries of the table.
  virtual bool fills(const VelaSwitchApi::SwTable& table) const = 0;

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

  /// Removes the entries that were read from hardware and that nobody announced since, and tries
  /// again what had no room. Returns how many went.
  virtual U32 reconcile() = 0;

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
  void warningIs(std::string text) { warnings_.push_back(std::move(text)); }

 private:
  std::string name_;
  U32 instance_;
  std::vector<std::string> warnings_;
};

/// What can be looked up but not announced: a packet's way through several tables.
class PathAdapter final : public TableAdapter {
 public:
  using Lookup = Json (*)(VelaDevice::DataPath&, const Json& key);

  PathAdapter(std::string name, Lookup ask) : TableAdapter(std::move(name), 0), lookup_(ask) {}

  EntryProgrammedStatus set(const Json&, const Json&) override { refuse(); }
  void del(const Json&) override { refuse(); }
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
  U32 reconcile() override { return 0; }

 private:
  [[noreturn]] void refuse() const { throw InputException(name() + " can be looked up alone"); }

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
  /// Rows that were read and that no row of the table can be, with their hardware tables.
  std::vector<std::pair<VelaSwitchApi::HwTableId, HwIndex>> corruptRows() const;

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

  EntryProgrammedStatus set(const Json& key, const Json& result) override {
    const Key k = keyFromJson(key);
    const Announced r = result.is_null() ? Announced{} : fromJson<Announced>(result);
    refuseAbsent(r, table_->profile());
    std::vector<std::string> odd;
    if (rules_.result) rules_.result(*table_, r, odd);
    this->warnOfCuts(k, r, [this](auto field, bool mask) { return rowBits(field, mask); });
    for (std::string& text : odd) this->warningIs(std::move(text));
    warnOfKey(k);
    warnOfSilence(r);
    const bool changed = table_->entryIs(k, r);
    if (!changed && status(k) != EntryProgrammedStatus::programmed) table_->handleEntry(k);
    return status(k);
  }
  void del(const Json& key) override {
    const Key k = keyFromJson(key);
    if (!table_->entryDel(k) && status(k) == EntryProgrammedStatus::hardwareError) {
      table_->handleEntry(k);
    }
  }
  Json lookup(VelaDevice::DataPath& dataPath, const Json& key) const override {
    // Tables whose key is no object may be asked by objects as well, each in its own way.
    constexpr bool keyIsObject = Orb::Value<Key> && !Orb::ScalarValue<Key>;
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
  U32 reconcile() override {
    const U32 removed = unclaimed();
    for (const Key& key : table_->unclaimedKeys()) table_->entryDel(key);
    // Rows of entries that are gone may be marked as well.
    for (const Key& key : table_->hwInconsistentKeys()) table_->handleEntry(key);
    for (const Key& key : table_->entries().keys()) {
      if (status(key) != EntryProgrammedStatus::programmed) table_->handleEntry(key);
    }
    return removed;
  }

 protected:
  virtual EntryProgrammedStatus status(const Key& key) const = 0;

  static constexpr bool rebuildsDefaults = requires { Family::rebuildsDefaults; };
  /// Whether people hear of the entry: not when it is but what hardware holds without one.
  bool told(const Key& key, const Result& result) const {
    if constexpr (rebuildsDefaults) {
      return !table_->unclaimed(key) || result != Family::absentResult();
    }
    return true;
  }

  /// The key that an event names. Throws InputException for one that the table cannot have.
  virtual Key keyFromJson(const Json& json) const {
    const Key key = fromJson<Key>(json);
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
  mutable std::map<std::string, unsigned, std::less<>> rowBits_;
  bool toldOfSilence_ = false;  ///< Once is enough for a table.
};

template <class Family>
class HashAdapter final : public EntryAdapter<typename Family::Table> {
  using Base = EntryAdapter<typename Family::Table>;
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
    return this->keyToJson(static_cast<const typename Family::CuckooEntry&>(entry).key());
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
  U32 reconcile() override {
    physical().settle();
    return Base::reconcile();
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

 private:
  VelaSwitchApi::PhysicalHashTable& physical() const {
    return this->table().profileConvertor().physicalTable();
  }
};

/// For tables whose row follows from the key.
template <class Family>
class IndexedAdapter : public EntryAdapter<typename Family::Table> {
  using Base = EntryAdapter<typename Family::Table>;
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
    if (!row) throw InputException("key " + json.dump() + " has no row in this profile");
    return key;
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
