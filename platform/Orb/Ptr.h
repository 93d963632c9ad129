#pragma once

#include <concepts>
#include <cstddef>
#include <utility>

#include "Orb/Type.h"
#include "Orb/Types.h"

namespace Orb {

/// Makes reference counts atomic (true) or plain (false, the default). To be set before the first
/// object is shared between threads; the table layer itself runs on one.
VELA_EXPORT void threadSafePointersIs(bool on);

/// Root of every reference-counted object. It is created by a factory, held through Ptr, and
/// deleted when the last handle goes.
class VELA_EXPORT PtrInterface {
 public:
  /// Notes whether anybody watches the object.
  virtual void hasNotificationActiveIs(bool active);
  /// Called with true when the last handle went; the root's answer is to delete the object.
  virtual void zeroReferencesIs(bool zero);
  /// The object's record in the type registry.
  virtual const Type& fwkType() const;
  virtual ~PtrInterface();
  /// Detaches the object from what it watches; runs before its handles are released.
  virtual void reactorTeardown();

  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  static constexpr const char* typeName = "Orb::PtrInterface";
  static constexpr const char* sourceUnit = "Orb";

  /// As it was noted last.
  bool hasNotificationActive() const { return (references_ & notificationActive) != 0; }
  /// Number of handles, without the flag bits.
  U32 references() const { return references_ & countMask; }

  /// One handle more; Ptr calls it.
  void referenceAdd() const {
    if (atomicCounts) [[unlikely]] {
      __atomic_add_fetch(&references_, 1, __ATOMIC_RELAXED);
    } else {
      ++references_;
    }
  }

  /// One handle less; the last one ends in zeroReferencesIs(true).
  void referenceDel() const {
    U32 left;
    if (atomicCounts) [[unlikely]] {
      left = __atomic_sub_fetch(&references_, 1, __ATOMIC_ACQ_REL);
    } else {
      left = --references_;
    }
    if ((left & countMask) == 0) const_cast<PtrInterface*>(this)->zeroReferencesIs(true);
  }

 protected:
  PtrInterface() = default;

 private:
  friend void threadSafePointersIs(bool);

  /// The count proper; the other bits of the word are flags.
  static constexpr U32 countMask = 0x5FFFFFFF;
  static constexpr U32 notificationActive = 0x80000000;

  static bool atomicCounts;
  mutable U32 references_ = 0;
};

/// Shared ownership of an object derived from PtrInterface.
template <class T>
class Ptr {
 public:
  constexpr Ptr() = default;
  constexpr Ptr(std::nullptr_t) {}  ///< Holds nothing.
  /// One more handle of the object, which may be null.
  Ptr(T* object) : object_(object) {
    if (object_) object_->referenceAdd();
  }
  Ptr(const Ptr& other) : Ptr(other.object_) {}  ///< One more handle.
  /// Takes the handle over; the other one holds nothing then.
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  /// A handle of a base, or of a const object.
  template <class U>
  requires std::convertible_to<U*, T*> Ptr(const Ptr<U>& other) : Ptr(other.get()) {}
  /// The same, taken over.
  template <class U>
  requires std::convertible_to<U*, T*> Ptr(Ptr<U>&& other)
  noexcept : object_(other.release()) {}
  ~Ptr() {
    if (object_) object_->referenceDel();
  }

  /// Lets go of what was held.
  Ptr& operator=(Ptr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  T* get() const { return object_; }  ///< Null when nothing is held.
  /// The object, whose handle the caller has from now on.
  T* release() { return std::exchange(object_, nullptr); }
  T* operator->() const { return object_; }                      ///< Something must be held.
  T& operator*() const { return *object_; }                      ///< Likewise.
  explicit operator bool() const { return object_ != nullptr; }  ///< Whether something is held.
  /// The same object.
  bool operator==(const Ptr& other) const { return object_ == other.object_; }

 private:
  T* object_ = nullptr;
};

template <class T>
using PtrConst = Ptr<const T>;  ///< A handle through which the object cannot be changed.

/// What factories are made of: a new object behind its first handle.
template <class T, class... Arguments>
Ptr<T> make(Arguments&&... arguments) {
  return Ptr<T>(new T(std::forward<Arguments>(arguments)...));
}

}  // namespace Orb
