#include "Orb/Slab.h"

#include <algorithm>
#include <memory>
#include <new>
#include <vector>

namespace Orb {
namespace {

/// Under the address sanitizer each object has memory of its own, so that it sees one that is used
/// when it is gone.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool pooled = false;
#elif defined(__has_feature)
constexpr bool pooled = !__has_feature(address_sanitizer);
#else
constexpr bool pooled = true;
#endif

}  // namespace

struct Slab::Pool {
  explicit Pool(std::size_t size) : objectSize(size) {}

  std::size_t step() const { return sizeof(Header) + (objectSize + 7) / 8 * 8; }
  void leave() {
    if (!owned && live == 0) delete this;
  }

  std::size_t objectSize;
  std::size_t live = 0;
  bool owned = true;  ///< The slab exists.
  std::vector<std::unique_ptr<std::byte[]>> pieces;
  std::byte* unused = nullptr;  ///< Of the last piece.
  std::size_t unusedCount = 0;
  Header* free = nullptr;
};

Slab::~Slab() {
  if (!pool_) return;
  pool_->owned = false;
  pool_->leave();
}

void* Slab::take(Slab* slab, std::size_t size) {
  if (!pooled) slab = nullptr;
  if (slab && !slab->pool_) slab->pool_ = new Pool(size);
  if (!slab || slab->pool_->objectSize != size) {
    auto* header = static_cast<Header*>(::operator new(sizeof(Header) + size));
    header->pool = nullptr;
    return header + 1;
  }
  Pool& pool = *slab->pool_;
  Header* header = pool.free;
  if (header) {
    pool.free = header->nextFree;
  } else {
    if (pool.unusedCount == 0) {
      const std::size_t count = std::max<U32>(64, slab->reserved_);
      // Not filled with zeros: what nobody uses, nobody touches.
      pool.pieces.emplace_back(new std::byte[count * pool.step()]);
      pool.unused = pool.pieces.back().get();
      pool.unusedCount = count;
      slab->reserved_ = 0;
    }
    header = reinterpret_cast<Header*>(pool.unused);
    pool.unused += pool.step();
    --pool.unusedCount;
  }
  header->pool = &pool;
  ++pool.live;
  return header + 1;
}

void Slab::give(void* object) {
  if (!object) return;
  Header* header = static_cast<Header*>(object) - 1;
  Pool* pool = header->pool;
  if (!pool) {
    ::operator delete(header);
    return;
  }
  header->nextFree = pool->free;
  pool->free = header;
  --pool->live;
  pool->leave();
}

}  // namespace Orb
