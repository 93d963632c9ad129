#pragma once

#include "Orb/KeyObserver.h"
#include "Orb/Value.h"
#include "VelaSwitchApi/KeyRecords.h"

/// Records with keys and results of their types.
namespace VelaSwitchApi {

/// The hash of a key by which its record is found.
template <class Key>
[[gnu::always_inline]] inline U32 entryTag(const Key& key) {
  using Orb::hashOf;
  return static_cast<U32>(hashOf(key));
}

/// Whether the key that is asked for is the one of a record.
template <class Key>
bool sameKey(const Key& there, const Key& asked) {
  return there == asked;
}
template <Orb::PlainValue Key>
[[gnu::always_inline]] inline bool sameKey(const Key& there, const Key& asked) {
  return Orb::sameWords(Orb::storedWords(there), Orb::storedWords(asked));
}

/// Whether an entry with the result that is announced is the one that is there. Results may have
/// their own, for parts that are not announced.
template <class Result>
bool sameEntry(const Result& there, const Result& announced) {
  return there == announced;
}
template <Orb::PlainValue Result>
[[gnu::always_inline]] inline bool sameEntry(const Result& there, const Result& announced) {
  return Orb::sameWords(Orb::storedWords(there), Orb::gatheredWords(announced));
}

/// What a table knows of a key, with the result that is desired or, in a record that is no table's,
/// whatever it stands for. Base is KeyRecord, or what the framework knows such records by.
template <class Key, class Result, class Base = KeyRecord>
class EntryRecord : public Base {
 public:
  /// With the default result.
  explicit EntryRecord(const Key& key) : EntryRecord(key, entryTag(key)) {}
  /// The same when the key's hash is known. `rest` is for the base.
  template <class... Rest>
  EntryRecord(const Key& key, U32 tag, Rest&&... rest)
      : Base(tag, std::forward<Rest>(rest)...), key_(key) {}

  const Key& key() const { return key_; }           ///< Never changes.
  const Result& result() const { return result_; }  ///< Of meaning while there is an entry.
  void resultIs(const Result& result) { result_ = result; }  ///< Nobody is told.
  /// To be changed in place, where it is nobody else's yet.
  Result& ownResult() { return result_; }

  ///@{ `other` must be of the same type.
  bool hasKeyOf(const KeyRecord& other) const override { return sameKey(of(other).key_, key_); }
  bool comesBefore(const KeyRecord& other) const override { return key_ < of(other).key_; }
  void appendKey(Orb::TextSink& sink) const override {
    using Orb::appendText;
    appendText(sink, key_);
  }
  bool hasResultOf(const KeyRecord& other) const override {
    return sameEntry(result_, of(other).result_);
  }
  void resultIsOf(const KeyRecord* other) override {
    result_ = other ? of(*other).result_ : Result{};
  }
  ///@}
  /// The record, which must be one of these types.
  static const EntryRecord& of(const KeyRecord& record) {
    return static_cast<const EntryRecord&>(record);
  }

 private:
  static_assert(alignof(Key) <= 8 && alignof(Result) <= 8, "of memory that is aligned to 8 bytes");

  Key key_;
  Result result_{};
};

/// The entries of a table in the accessor style of collections.
template <class Store>
class EntriesView {
 public:
  using Key = typename Store::Key;
  using Result = typename Store::Result;

  explicit EntriesView(Store& store) : store_(store) {}  ///< The store must outlive the view.

  U32 size() const { return store_.records_.count(KeyRecord::desired); }  ///< Entries.
  /// Whether the key has an entry.
  bool has(const Key& key) const { return store_.entry(key) != nullptr; }
  /// The key's result, or null. Valid until the next change.
  const Result* find(const Key& key) const { return store_.entry(key); }
  /// All keys, in ascending order.
  std::vector<Key> keys() const { return store_.keys(KeyRecord::desired); }
  /// Calls `visit(key, result)` for every entry. They must not change meanwhile.
  template <class Visitor>
  void forEach(const Visitor& visit) const {
    store_.records_.forEachRecord(KeyRecord::desired, [&](const KeyRecord& record) {
      visit(Store::of(record).key(), Store::of(record).result());
    });
  }
  /// For those who want to hear of changed keys. They must be removed before they go.
  void observerIs(Orb::KeyObserver<Key>* observer) { store_.observers_.observerIs(observer); }
  /// One that is not there changes nothing.
  void observerDel(Orb::KeyObserver<Key>* observer) { store_.observers_.observerDel(observer); }

 private:
  Store& store_;
};

}  // namespace VelaSwitchApi
