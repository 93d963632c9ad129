#pragma once

#include <functional>

#include "Orb/Collection.h"
#include "Orb/Map.h"
#include "VelaSwitch/Keys.h"

namespace VelaAgent {

/// Routes that were announced and refused, until hardware has them or they go.
class Refusals final : public Orb::KeyObserver<VelaSwitch::LpmKey> {
 public:
  using Key = VelaSwitch::LpmKey;
  using IsIn = std::function<bool(const Key&)>;
  using Listener = std::function<void(const Key&)>;

  /// `isIn` says whether hardware has a route, `admitted` hears of those that come in.
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

}  // namespace VelaAgent
