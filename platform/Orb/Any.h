#pragma once

#include <memory>

#include "Orb/ShapeOf.h"

/// Values whose type is known at run time alone.
namespace Orb {

/// A value of some type, named by its shape; or none. Belongs to others.
struct AnyRef {
  const Shape* shape = nullptr;  ///< Null for none.
  const void* value = nullptr;   ///< Of the type that the shape is of.

  AnyRef() = default;
  /// `itsValue` must be of the type of `itsShape`.
  AnyRef(const Shape& itsShape, const void* itsValue) : shape(&itsShape), value(itsValue) {}
  /// Refers to a value type or a number with bounds.
  template <class T>
  requires Value<T> || IsRanged<T> AnyRef(const T& it) : AnyRef(shapeOf<T>, &it) {}
  explicit operator bool() const { return shape != nullptr; }  ///< Whether there is one.
  /// The value, which must be a T.
  template <class T>
  const T& as() const {
    return *static_cast<const T*>(value);
  }
};

/// The same with a value of its own.
class AnyValue {
 public:
  AnyValue() = default;
  /// A default value.
  explicit AnyValue(const Shape& shape) : shape_(&shape), value_(shape.make(), shape.destroy) {}
  /// A copy of what may be none.
  static AnyValue of(AnyRef value) { return value ? AnyValue(value) : AnyValue(); }
  /// A copy of a value.
  template <class T>
  static AnyValue of(const T& value) {
    return of(AnyRef(shapeOf<T>, &value));
  }

  explicit operator bool() const { return shape_ != nullptr; }  ///< Whether there is one.
  const Shape& shape() const { return *shape_; }                ///< There must be one.
  void* value() { return value_.get(); }                        ///< To be filled in; null for none.
  /// Good as long as this one is.
  operator AnyRef() const { return shape_ ? AnyRef(*shape_, value_.get()) : AnyRef(); }
  /// The value, which must be a T.
  template <class T>
  const T& as() const {
    return *static_cast<const T*>(value_.get());
  }

 private:
  explicit AnyValue(AnyRef value)
      : shape_(value.shape), value_(shape_->copy(value.value), shape_->destroy) {}

  const Shape* shape_ = nullptr;
  std::unique_ptr<void, void (*)(void*)> value_{nullptr, nullptr};
};

}  // namespace Orb
