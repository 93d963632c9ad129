#pragma once

#include "DirectBase/IndexedFamilyChecks.h"
#include "DirectBase/IndexedRows.h"
#include "VelaSwitchTable/family/Family.h"
#include "VelaSwitchTable/family/Row.h"

/// What the families of plain and of direct tables share.
namespace VelaSwitchTable {

/// What they are derived from; a family declares again what is not so.
template <Orb::FixedString Unit, class K, class R>
struct IndexedFamily : Family<Unit, K, R> {
  /// The key's row: its number.
  static HwIndex hwIndex(const K& key) {
    using Orb::hashWord;
    if constexpr (Orb::Value<K>) {
      static_assert(Orb::fieldCount<K> == 1, "a key of several fields has a hwIndex() of its own");
      HwIndex index = 0;
      Orb::forEachField(key, [&](const auto& field) { index = hashWord(field()); });
      return index;
    } else {
      return hashWord(key);
    }
  }
  /// The key of a row. One that no key has may raise the key's range error.
  static K keyOf(HwIndex index) {
    if constexpr (Orb::Value<K>) {
      K key{};
      Orb::forEachField(key, [&](auto& field) { fromRowBits(field.value, index); });
      return key;
    } else {
      return K(index);
    }
  }
  /// What the row of a key without an entry is made from.
  static R absentResult() { return {}; }
};

/// The table of a family, with Base as what the framework knows it by.
template <class F, class Base, class Record>
class VELA_EXPORT IndexedFamilyTable
    : public Base,
      public VelaSwitchApi::EntryStore<typename F::Key, typename F::Result, Record> {
 public:
  using Family = F;
  using Key = typename F::Key;
  using Store = VelaSwitchApi::EntryStore<Key, typename F::Result, Record>;

  explicit IndexedFamilyTable(std::string name)
      : Base(std::move(name)), Store(static_cast<KeyRecords&>(*this), false) {}

  const KeyRecord* recordAt(HwIndex index) const override { return this->find(F::keyOf(index)); }
  void markAtIs(HwIndex index, bool marked) override {
    this->hwInconsistentEntryIs(F::keyOf(index), marked);
  }
  void handleRow(HwIndex index) override { this->handleEntry(F::keyOf(index)); }
  void appendKeyAt(Orb::TextSink& sink, HwIndex index) const override {
    using Orb::appendText;
    appendText(sink, F::keyOf(index));
  }

 protected:
  Record* newRecord(const Key& key, U32 tag) override {
    return new (this->slab()) Record(key, tag);
  }
  void stage(KeyRecord& record) override {
    const IndexedRowsConvertor::Staging staging(this->rows());
    this->handleEntry(Key(Store::of(record).key()));
  }
  void handleInitialized() override {
    // What hardware has, and nobody announced, is as it is.
    for (const Key& key : this->keys(KeyRecord::desired)) {
      if (!this->unclaimed(key)) this->handleEntry(key);
    }
  }
  void handleAbsent(const Key& key) override {
    if (unreadForget(key)) this->handleEntry(key);
  }
  /// The key is withdrawn: its rows that could not be read are as if they had never been. Returns
  /// whether there were any.
  bool unreadForget(const Key& key) {
    return this->rows() && this->rows()->unreadForget(F::hwIndex(key));
  }
};

/// The convertor of a family, with Base likewise and Entry for its rows.
template <class F, class Base, class Entry>
class VELA_EXPORT IndexedFamilyConvertor : public Base {
  static_assert(indexedFamilyChecked<F>());

 protected:
  IndexedFamilyConvertor() : Base(F::traits, F::trace) {}

  Orb::Ptr<IndexedEntry> newEntry(HwIndex index) const override {
    const auto entry = Orb::make<Entry>(F::keyOf(index));
    entry->resultIs(F::absentResult());
    return entry;
  }
  void sampleIs(IndexedEntry& entry, const RowLayout& layout, U64 bits) const override {
    auto& result = of(entry).ownResult();
    VelaSwitchApi::sampleResultIs<F>(result, layout, bits);
    if constexpr (requires { &F::sample; }) {
      F::sample(*this->swTable(), bits, of(entry).key(), result);
    }
  }
  void expectSame(const VelaSwitchApi::RowCheck& check, const IndexedEntry& entry,
                  const IndexedEntry& again) const override {
    check.expectSame("result", Orb::shapeOf<VelaSwitchApi::ShownOf<F>>,
                     &announced<F>(of(entry).result()), &announced<F>(of(again).result()));
  }
  HwIndex indexOf(const IndexedEntry& entry) const override { return F::hwIndex(of(entry).key()); }

  static const Entry& of(const KeyRecord& entry) { return static_cast<const Entry&>(entry); }
  static Entry& of(IndexedEntry& entry) { return static_cast<Entry&>(entry); }
};

}  // namespace VelaSwitchTable
