#pragma once

#include <utility>
#include <vector>

namespace Orb {

/// Told of every change of an attribute it watches.
class AttributeObserver {
 public:
  /// The attribute has its new value already.
  virtual void handleAttribute() = 0;

 protected:
  ~AttributeObserver() = default;
};

/// One value of an object with observers, in the accessor style of the framework. It does not own
/// its observers; each must be removed before it goes. An observer may change the attribute.
template <class T>
class Attribute {
 public:
  Attribute() = default;
  /// Nobody is told of the first value.
  explicit Attribute(T initial) : value_(std::move(initial)) {}

  const T& value() const { return value_; }  ///< As it was given last.

  /// Stores the value. One that is equal to the present one changes nothing and tells nobody;
  /// returns whether anything changed.
  bool is(const T& value) {
    if (value_ == value) return false;
    value_ = value;
    // By index: an observer may add or remove observers.
    for (std::size_t i = 0; i < observers_.size(); ++i) observers_[i]->handleAttribute();
    return true;
  }

  /// Told in the order in which they came.
  void observerIs(AttributeObserver* observer) { observers_.push_back(observer); }
  /// One that is not there changes nothing.
  void observerDel(AttributeObserver* observer) { std::erase(observers_, observer); }

 private:
  T value_{};
  std::vector<AttributeObserver*> observers_;
};

}  // namespace Orb
