#pragma once

#include <algorithm>

#include "VelaSwitchTable/family/HashFamily.h"
#include "VelaSwitchTable/family/PlainFamily.h"
#include "agent/Entries.h"
#include "agent/Refusals.h"

/// The entries of tables by their families.
namespace VelaAgent {

/// Why the key of a hash table has no row.
template <class Table>
std::vector<Entries::Competitor> competitorsOf(const Table& table, const typename Table::Key& key) {
  std::vector<Entries::Competitor> rows;
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

/// What the entries of all families share.
template <class Table>
class EntriesOf : public TableEntries {
 public:
  using Family = typename Table::Family;
  using Key = typename Table::Key;
  using Result = typename Table::Result;
  using Announced = AnnouncedOf<Table>;
  using Rules = EntryRules<Table>;

  EntriesOf(std::string name, U32 instance, Orb::Ptr<Table> swTable, Lookups lookups,
            Rules rules = {})
      : TableEntries(std::move(name), instance, Orb::shapeOf<Key>, Orb::shapeOf<Announced>,
                     std::move(lookups)),
        table_(std::move(swTable)),
        rules_(rules) {}

  Table& table() const override { return *table_; }
  const VelaSwitch::ProfileInfo& profile() const override { return table_->profile(); }
  std::string_view unusedKeyField() const override {
    if constexpr (requires { Family::unusedKeyField; }) return Family::unusedKeyField;
    return {};
  }
  void checkKey(AnyRef key) const override {
    if (rules_.key) rules_.key(*table_, key.as<Key>());
  }
  bool withdraw(AnyRef any) override {
    const Key& key = any.as<Key>();
    const Result* result = table_->entry(key);
    const bool known = result && told(key, *result);
    refusals_.forget(key);
    if (!table_->entryDel(key) && statusOf(key) == EntryProgrammedStatus::hardwareError) {
      table_->handleEntry(key);
    }
    return known;
  }
  EntryProgrammedStatus status(AnyRef key) const override { return statusOf(key.as<Key>()); }
  U32 refused() const override { return refusals_.count(); }
  void forEachEntry(const EntryVisitor& visit) const override {
    for (const Key& key : table_->entries().keys()) {
      const Result& result = *table_->entry(key);
      if (told(key, result)) visit(any(key), VelaSwitchTable::announced<Family>(result));
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
      if (!table_->unclaimed(key) && statusOf(key) == EntryProgrammedStatus::programmed) ++count;
    });
    return count;
  }
  void reconcile(const AnyListener& removing) override {
    for (const Key& key : table_->unclaimedKeys()) {
      if (told(key, *table_->entry(key))) removing(any(key));
      table_->entryDel(key);
    }
    // Rows of entries that are gone may be marked as well.
    for (const Key& key : table_->hwInconsistentKeys()) table_->handleEntry(key);
    for (const Key& key : table_->entries().keys()) {
      if (statusOf(key) != EntryProgrammedStatus::programmed) table_->handleEntry(key);
    }
  }
  void forEachDisagreeing(const AnyListener& visit) const override {
    for (const Key& key : table_->hwInconsistentKeys()) {
      if (table_->entry(key)) visit(any(key));
    }
  }

 protected:
  virtual EntryProgrammedStatus statusOf(const Key& key) const = 0;
  /// Lets the observer hear of changed statuses, where the table keeps them.
  virtual void watchStatuses(Orb::KeyObserver<Key>&) {}

  static AnyRef any(const Key& key) { return {Orb::shapeOf<Key>, &key}; }
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

 private:
  void checkResult(AnyRef result, std::vector<std::string>& odd) const override {
    if (rules_.result) rules_.result(*table_, result.as<Announced>(), odd);
  }
  bool announced(AnyRef any) const override {
    const Key& key = any.as<Key>();
    return table_->entry(key) && !table_->unclaimed(key);
  }
  EntryProgrammedStatus program(AnyRef any, AnyRef result) override {
    const Key& key = any.as<Key>();
    refusals_.forget(key);
    const bool changed = table_->entryIs(key, result.as<Announced>());
    if (!changed && statusOf(key) != EntryProgrammedStatus::programmed) table_->handleEntry(key);
    const EntryProgrammedStatus outcome = statusOf(key);
    if (outcome == EntryProgrammedStatus::programmed) return outcome;
    if (!watching_) watchStatuses(refusals_);
    watching_ = true;
    refusals_.is(key);
    return outcome;
  }

  Orb::Ptr<Table> table_;
  Rules rules_;
  Refusals<Key> refusals_{
      [this](const Key& key) { return statusOf(key) == EntryProgrammedStatus::programmed; },
      [this](const Key& key) { this->admittedIs(any(key)); }};
  bool watching_ = false;
};

template <class Family>
class HashEntries final : public EntriesOf<VelaSwitchTable::TableOf<Family>> {
  using Base = EntriesOf<VelaSwitchTable::TableOf<Family>>;
  using Key = typename Base::Key;

 public:
  using Base::Base;

  std::optional<TableEntries::Place> place(AnyRef key) const override {
    const auto item = this->table().cachedItem(key.as<Key>());
    if (!item || !item->placed()) return std::nullopt;
    const HwIndex index = physical().indexOf(*item);
    return TableEntries::Place{index, physical().location(index)};
  }
  AnyValue keyAt(HwIndex index) const override {
    const auto* entry = physical().entryAt(index);
    return entry && &entry->table() == &this->table() ? keyOf(*entry) : AnyValue();
  }
  AnyValue keyOf(const VelaSwitchApi::HashBaseCuckooEntry& entry) const override {
    return AnyValue::of<Key>(
        static_cast<const typename VelaSwitchTable::ClassesOf<Family>::CuckooEntry&>(entry).key());
  }
  AnyValue decodedKey(HwIndex index) const override {
    const auto entry = this->table().helper()->decodeHwEntry(index);
    return entry->valid() ? keyOf(*entry) : AnyValue();
  }
  bool listsRow(HwIndex index) const override { return physical().owner(index) == &this->table(); }
  std::optional<VelaSwitchApi::CuckooLocation> location(HwIndex index) const override {
    return physical().location(index);
  }
  std::vector<Entries::Competitor> competing(AnyRef key) const override {
    return competitorsOf(this->table(), key.as<Key>());
  }
  void forEachStatus(const Entries::StatusVisitor& visit) const override {
    const auto& statuses = this->table().tableStatusIs()->entryStatuses();
    for (const Key& key : statuses.keys()) {
      const auto* status = statuses.find(key);
      visit(this->any(key), status->status(), status->lastHit());
    }
  }
  void reconcile(const AnyListener& removing) override {
    physical().settle();
    Base::reconcile(removing);
  }
  bool borrowsRows() const override { return physical().firstTable() != &this->table(); }
  U64 moves() const override { return physical().engine().moves(); }
  U32 waiting() const override { return physical().waiting(&this->table()); }

 protected:
  EntryProgrammedStatus statusOf(const Key& key) const override {
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
class IndexedEntries final : public EntriesOf<VelaSwitchTable::TableOf<Family>> {
  using Base = EntriesOf<VelaSwitchTable::TableOf<Family>>;
  using Key = typename Base::Key;

 public:
  using Base::Base;

  AnyValue keyAt(HwIndex index) const override {
    const Key key = Family::keyOf(index);
    return this->table().entry(key) ? AnyValue::of(key) : AnyValue();
  }
  AnyValue decodedKey(HwIndex index) const override {
    return AnyValue::of<Key>(Family::keyOf(index));
  }
  std::optional<TableEntries::Place> place(AnyRef key) const override {
    return TableEntries::Place{Family::hwIndex(key.as<Key>()), std::nullopt};
  }
  void forEachStatus(const Entries::StatusVisitor& visit) const override {
    for (const Key& key : this->table().entries().keys()) {
      if (!this->told(key, *this->table().entry(key))) continue;
      visit(this->any(key), statusOf(key), Orb::Seconds{});
    }
  }
  std::string whyNoRow(AnyRef any) const override {
    const Key& key = any.as<Key>();
    const HwIndex index = Family::hwIndex(key);
    // Behind the rows of all keys there may be copies of them.
    const bool row = inSomeTable(
        [&](const auto& each) { return this->holds(each, index) && Family::keyOf(index) == key; });
    return row ? "" : this->name() + " has rows 0 to " + std::to_string(lastIndex());
  }

 protected:
  bool ignoresRows() const override {
    if constexpr (requires { Family::traits.ignoresRows; }) return Family::traits.ignoresRows;
    return false;
  }
  void warnOfKey(AnyRef key) override {
    const HwIndex index = Family::hwIndex(key.as<Key>());
    const bool registers = inSomeTable(
        [&](const auto& each) { return this->holds(each, index) && !each.mapped(index).empty(); });
    if (!registers) this->warningIs("no register in this profile, nothing is written");
  }
  /// Such tables keep no status records: an entry is in hardware unless its key is marked.
  EntryProgrammedStatus statusOf(const Key& key) const override {
    if (this->table().hwInconsistentEntry(key)) return EntryProgrammedStatus::hardwareError;
    return this->table().entry(key) ? EntryProgrammedStatus::programmed
                                    : EntryProgrammedStatus::notProgrammed;
  }

 private:
  /// Whether a hardware table will do, or there is none.
  template <class Will>
  bool inSomeTable(const Will& will) const {
    const auto& hwTables = this->convertor().hwTables();
    return hwTables.empty() || std::any_of(hwTables.begin(), hwTables.end(),
                                           [&](const auto& each) { return will(*each.second); });
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
};

}  // namespace VelaAgent
