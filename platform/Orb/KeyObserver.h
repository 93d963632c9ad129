#pragma once

#include <algorithm>
#include <vector>

#include "Orb/Types.h"

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
  /// Told in the order in which they came.
  void observerIs(KeyObserver<Key>* observer) { observers_.push_back(observer); }
  /// One that is not there changes nothing.
  void observerDel(KeyObserver<Key>* observer) { std::erase(observers_, observer); }
  bool empty() const { return observers_.empty(); }  ///< Nobody wants to hear.
  /// Tells all of them.
  void handleKey(const Key& key) const {
    // By index: an observer may add or remove observers.
    for (std::size_t i = 0; i < observers_.size(); ++i) observers_[i]->handleKey(key);
  }

 private:
  std::vector<KeyObserver<Key>*> observers_;
};

}  // namespace Orb
