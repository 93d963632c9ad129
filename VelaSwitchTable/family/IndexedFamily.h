#pragma once

#include "DirectBase/IndexedRows.h"
#include "VelaSwitchTable/family/EntryStore.h"
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
template <class F, class Base>
class VELA_EXPORT IndexedFamilyTable : public Base,
                                       public EntryStore<typename F::Key, typename F::Result> {
 public:
  using Family = F;
  using Key = typename F::Key;

  explicit IndexedFamilyTable(std::string name)
      : Base(std::move(name)),
        EntryStore<typename F::Key, typename F::Result>(static_cast<KeyRecords&>(*this)) {}

 protected:
  EntryRecord<Key, typename F::Result>* newRecord(const Key& key) override {
    return new (this->slab()) EntryRecord<Key, typename F::Result>(key);
  }
  void handleInitialized() override {
    this->forEachAnnouncedKey([&](const Key& key) { this->handleEntry(key); });
  }
  void handleAbsent(const Key& key) override {
    if (unreadForget(key)) this->handleEntry(key);
  }
  /// The key is withdrawn: its rows that could not be read are as if they had never been. Returns
  /// whether there were any.
  bool unreadForget(const Key& key) {
    const auto& convertor = this->profileConvertorPtr();
    return convertor &&
           static_cast<IndexedRowsConvertor&>(*convertor).unreadForget(F::hwIndex(key));
  }
};

}  // namespace VelaSwitchTable
