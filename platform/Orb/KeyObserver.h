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
  void observerDel(KeyObserver<Key>* observer) {
    std::replace(observers_.begin(), observers_.end(), observer,
                 static_cast<KeyObserver<Key>*>(nullptr));
    gone_ = true;
    dropGone();
  }
  bool empty() const { return observers_.empty(); }  ///< Nobody wants to hear.
  /// Tells all of them.
  void handleKey(const Key& key) const {
    if (observers_.empty()) [[likely]]
      return;
    ++telling_;
    // By index: an observer may add or remove observers.
    for (std::size_t i = 0; i < observers_.size(); ++i) {
      if (observers_[i]) observers_[i]->handleKey(key);
    }
    --telling_;
    dropGone();
  }

 private:
  /// Those behind one that goes keep their places until all were told.
  void dropGone() const {
    if (!gone_ || telling_ != 0) return;
    std::erase(observers_, nullptr);
    gone_ = false;
  }

  mutable std::vector<KeyObserver<Key>*> observers_;
  mutable unsigned telling_ = 0;  ///< One amid another.
  mutable bool gone_ = false;     ///< One of them is null now.
};

}  // namespace Orb
