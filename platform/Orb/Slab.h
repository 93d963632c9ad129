#pragma once

#include <cstddef>

#include "Orb/Types.h"

namespace Orb {

/// Memory for objects of one size, a few large pieces of it instead of one for each. Objects are
/// given back one by one, in any order, and may outlive the slab. All of it belongs to one thread.
/// Objects are aligned to 8 bytes.
class VELA_EXPORT Slab {
 public:
  Slab() = default;
  ~Slab();
  Slab(const Slab&) = delete;
  Slab& operator=(const Slab&) = delete;

  /// The next memory that is fetched suffices for so many objects. It costs none before it is used,
  /// but room in the address space.
  void reserve(U32 count) { reserved_ = count; }

  /// Memory for an object: of the slab, unless that is null or has objects of another size.
  static void* take(Slab* slab, std::size_t size);
  /// Gives back what take() returned; null is ignored.
  static void give(void* object);

 private:
  struct Pool;
  /// Stands in front of every object.
  union Header {
    Pool* pool;  ///< Null for memory of its own.
    Header* nextFree;
  };
  static_assert(sizeof(Header) == alignof(void*));

  Pool* pool_ = nullptr;
  U32 reserved_ = 0;
};

}  // namespace Orb
