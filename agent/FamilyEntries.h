#pragma once

#include "VelaSwitchTable/family/HashFamily.h"
#include "VelaSwitchTable/family/PlainFamily.h"
#include "agent/TableEntries.h"

/// The entries of tables by their families: all that depends on the types of key and result.
namespace VelaAgent {

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

template <class Family>
constexpr TableEntries::Particulars particularsOf() {
  TableEntries::Particulars all{};
  if constexpr (requires { Family::unusedKeyField; }) all.unusedKeyField = Family::unusedKeyField;
  if constexpr (requires { Family::traits.ignoresRows; }) {
    all.ignoresRows = Family::traits.ignoresRows;
  }
  if constexpr (requires { Family::traits.rebuildsDefaults; }) {
    all.rebuildsDefaults = Family::traits.rebuildsDefaults;
  }
  return all;
}

/// The entries of a table, with Base as what they are whatever the family.
template <class Table_, class Base>
class EntriesOf : public Base {
 public:
  using Table = Table_;
  using Family = typename Table::Family;
  using Key = typename Table::Key;
  using Announced = AnnouncedOf<Table>;
  using Rules = EntryRules<Table>;

  EntriesOf(std::string name, U32 instance, Orb::Ptr<Table> swTable, Lookups lookups,
            Rules rules = {})
      : Base(std::move(name), instance, Orb::shapeOf<Key>, Orb::shapeOf<Announced>,
             std::move(lookups), particularsOf<Family>()),
        table_(std::move(swTable)),
        rules_(rules) {}

  Table& table() const override { return *table_; }
  void checkKey(AnyRef key) const override {
    if (rules_.key) rules_.key(*table_, key.as<Key>());
  }

 protected:
  using KeyRecord = VelaSwitchApi::KeyRecord;

  void checkResult(AnyRef result, std::vector<std::string>& odd) const override {
    if (rules_.result) rules_.result(*table_, result.as<Announced>(), odd);
  }
  const KeyRecord* record(AnyRef key) const override { return table_->find(key.as<Key>()); }
  AnyRef keyIn(const KeyRecord& record) const override {
    return {Orb::shapeOf<Key>, &Table::of(record).key()};
  }
  AnyRef resultIn(const KeyRecord& record) const override {
    return {Orb::shapeOf<Announced>,
            &VelaSwitchTable::announced<Family>(Table::of(record).result())};
  }
  bool isAbsent(const KeyRecord& record) const override {
    if constexpr (requires { Family::absentResult(); }) {
      return Table::of(record).result() == Family::absentResult();
    }
    return false;
  }
  bool entryIs(AnyRef key, AnyRef result) override {
    return table_->entryIs(key.as<Key>(), result.as<Announced>());
  }
  void entriesAre(std::span<const Entries::Announcement> all,
                  VelaSwitchApi::BatchListener& listener) override {
    const auto keyAt = [&](std::size_t number) -> const Key& { return all[number].key.as<Key>(); };
    const auto entryAt = [&](std::size_t number) {
      const Key& key = keyAt(number);
      const Announced& result = all[number].result.as<Announced>();
      if constexpr (requires { table_->entryOf(key, result); }) {
        return std::pair(key, table_->entryOf(key, result));
      } else {
        return std::pair<const Key&, const Announced&>(key, result);
      }
    };
    table_->entriesAre(all.size(), keyAt, entryAt, listener);
  }
  bool entryDel(AnyRef key) override { return table_->entryDel(key.as<Key>()); }
  void handleEntry(AnyRef key) override { table_->handleEntry(key.as<Key>()); }

 private:
  Orb::Ptr<Table> table_;
  Rules rules_;
};

template <class Family>
class HashEntries final : public EntriesOf<VelaSwitchTable::TableOf<Family>, HashTableEntries>,
                          private Orb::KeyObserver<typename Family::Key> {
  using Base = EntriesOf<VelaSwitchTable::TableOf<Family>, HashTableEntries>;

 public:
  using Base::Base;

 protected:
  Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> newItem(AnyRef key) const override {
    return this->table().newItem(key.template as<typename Family::Key>());
  }

 private:
  void watchStatuses() override { this->table().tableStatusIs()->observerIs(this); }
  void handleKey(const typename Family::Key& key) override {
    this->statusChanged({Orb::shapeOf<typename Family::Key>, &key});
  }
};

template <class Family>
class IndexedEntries final
    : public EntriesOf<VelaSwitchTable::TableOf<Family>, IndexedTableEntries>,
      private Orb::KeyObserver<typename Family::Key> {
  using Base = EntriesOf<VelaSwitchTable::TableOf<Family>, IndexedTableEntries>;
  using Key = typename Family::Key;

 public:
  using Base::Base;

 protected:
  HwIndex rowOf(AnyRef key) const override { return Family::hwIndex(key.as<Key>()); }
  AnyValue keyOfRow(HwIndex index) const override {
    return AnyValue::of<Key>(Family::keyOf(index));
  }
  bool isRowOf(HwIndex index, AnyRef key) const override {
    return Family::keyOf(index) == key.as<Key>();
  }

 private:
  void watchStatuses() override { this->table().entries().observerIs(this); }
  void handleKey(const Key& key) override { this->statusChanged({Orb::shapeOf<Key>, &key}); }
};

}  // namespace VelaAgent
