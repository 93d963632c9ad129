#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "Orb/Types.h"

namespace Orb {

/// Memory for objects of one size, a few large pieces of it instead of one for each. Objects are
/// given back one by one, in any order, and may outlive the slab. All of it belongs to one thread.
/// Objects are aligned to 8 bytes. Where one takes little less than whole lines of memory, with
/// what stands in front of it, it gets those lines for itself.
class VELA_EXPORT Slab {
 public:
  Slab() = default;
  ~Slab();
  Slab(const Slab&) = delete;
  Slab& operator=(const Slab&) = delete;

  static constexpr std::size_t line = 64;    ///< Of memory, in bytes.
  static constexpr std::size_t inFront = 8;  ///< What the slab needs in front of an object.

  /// Fetches memory for so many objects of the size. It costs none before it is used, but room in
  /// the address space.
  void reserve(U32 count, std::size_t size);

  /// Memory for an object: of the slab, unless that is null or has objects of another size.
  [[gnu::always_inline]] static void* take(Slab* slab, std::size_t size) {
    Pool* pool = slab ? slab->pool_ : nullptr;
    if (!pool || pool->objectSize != size) [[unlikely]]
      return takeMore(slab, size);
    Header* header = pool->free;
    if (header) {
      pool->free = header->nextFree;
      soon(pool->free);
    } else if (pool->unused != pool->end) [[likely]] {
      header = reinterpret_cast<Header*>(pool->unused);
      pool->unused += pool->step;
      soon(pool->unused);
    } else {
      return takeMore(slab, size);
    }
    header->pool = pool;
    ++pool->live;
    return header + 1;
  }
  /// Gives back what take() returned; null is ignored.
  static void give(void* object);

 private:
  struct Pool;
  /// Stands in front of every object.
  union Header {
    Pool* pool;  ///< Null for memory of its own.
    Header* nextFree;
  };
  static_assert(sizeof(Header) == inFront && inFront == alignof(void*));
  struct alignas(line) Line {
    std::byte bytes[line];
  };
  struct Pool {
    explicit Pool(std::size_t size);

    std::size_t objectSize;
    std::size_t step;  ///< From one object to the next.
    std::size_t live = 0;
    bool owned = true;  ///< The slab exists.
    std::vector<std::unique_ptr<Line[]>> pieces;
    std::byte* unused = nullptr;  ///< Of the last piece.
    std::byte* end = nullptr;     ///< Behind what is unused.
    Header* free = nullptr;
  };
  /// The object is the next one: its first lines of memory are on their way when it is taken.
  [[gnu::always_inline]] static void soon(const void* header) {
    __builtin_prefetch(header, 1);
    __builtin_prefetch(static_cast<const std::byte*>(header) + line, 1);
  }
  /// Makes room first, or takes memory of its own.
  static void* takeMore(Slab* slab, std::size_t size);
  void fetch(std::size_t count);

  Pool* pool_ = nullptr;
};

}  // namespace Orb
