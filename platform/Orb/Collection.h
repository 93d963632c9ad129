#pragma once

#include <algorithm>
#include <vector>

#include "Orb/Map.h"

namespace Orb {

/// Told of every changed key of a collection it watches.
template <class Key>
class KeyObserver {
 public:
  /// The key's entry was stored, replaced or removed; the collection is already in its new state.
  virtual void handleKey(const Key& key) = 0;

 protected:
  ~KeyObserver() = default;
};

/// Those who want to hear of changed keys; each must be removed before it goes.
template <class Key>
class KeyObservers {
 public:
  void observerIs(KeyObserver<Key>* observer) { observers_.push_back(observer); }
  void observerDel(KeyObserver<Key>* observer) { std::erase(observers_, observer); }
  void handleKey(const Key& key) const {
    // By index: an observer may add or remove observers.
    for (std::size_t i = 0; i < observers_.size(); ++i) observers_[i]->handleKey(key);
  }

 private:
  std::vector<KeyObserver<Key>*> observers_;
};

/// A keyed collection with observers, in the accessor style of the framework. It does not own its
/// observers; each must be removed before it goes. An observer may change the collection.
template <class Key, class T, class KeyOf = StoredKey>
class Collection {
 public:
  U32 size() const { return map_.size(); }
  bool has(const Key& key) const { return map_.has(key); }
  /// The key's value, or null. Valid until the next change.
  const T* find(const Key& key) const { return map_.find(key); }

  /// Stores the value. An equal value that is already stored changes nothing and tells nobody;
  /// returns whether anything changed.
  bool is(const Key& key, const T& value) {
    const auto [stored, inserted] = map_.insert(key);
    if (!inserted && *stored == value) return false;
    *stored = value;
    observers_.handleKey(key);
    return true;
  }

  /// Removes the key and tells the observers; returns whether it was there.
  bool del(const Key& key) {
    // The caller may have handed over the very key that lies in the map.
    const Key removed = key;
    if (!map_.erase(removed)) return false;
    observers_.handleKey(removed);
    return true;
  }

  void delAll() {
    for (const Key& key : keys()) del(key);
  }

  /// Makes room for `count` entries, so that storing them allocates nothing.
  void reserve(U32 count) { map_.reserve(count); }

  /// All keys, in ascending order.
  std::vector<Key> keys() const {
    std::vector<Key> keys;
    keys.reserve(map_.size());
    map_.forEach([&](const Key& key, const T&) { keys.push_back(key); });
    std::sort(keys.begin(), keys.end());
    return keys;
  }

  template <class Visitor>
  void forEach(Visitor&& visit) const {
    map_.forEach(visit);
  }

  void observerIs(KeyObserver<Key>* observer) { observers_.observerIs(observer); }
  void observerDel(KeyObserver<Key>* observer) { observers_.observerDel(observer); }

 private:
  Map<Key, T, KeyOf> map_;
  KeyObservers<Key> observers_;
};

}  // namespace Orb
