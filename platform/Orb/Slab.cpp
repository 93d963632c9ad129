#include "Orb/Slab.h"

#include <new>

#include "Orb/Sanitizer.h"

namespace Orb {
namespace {

/// Under the address sanitizer each object has memory of its own, so that it sees one that is used
/// when it is gone.
constexpr bool pooled = !addressSanitizer;

}  // namespace

Slab::Pool::Pool(std::size_t size) : objectSize(size), step(sizeof(Header) + (size + 7) / 8 * 8) {
  const std::size_t lines = (step + line - 1) / line * line;
  if (lines - step <= step / 8) step = lines;
}

Slab::~Slab() {
  if (!pool_) return;
  pool_->owned = false;
  if (pool_->live == 0) delete pool_;
}

void Slab::reserve(U32 count, std::size_t size) {
  if (!pooled) return;
  if (!pool_) pool_ = new Pool(size);
  fetch(count);
}

void Slab::fetch(std::size_t count) {
  // Not filled with zeros: what nobody uses, nobody touches.
  pool_->pieces.emplace_back(new Line[(count * pool_->step + line - 1) / line]);
  pool_->unused = reinterpret_cast<std::byte*>(pool_->pieces.back().get());
  pool_->end = pool_->unused + count * pool_->step;
}

void* Slab::takeMore(Slab* slab, std::size_t size) {
  if (!pooled) slab = nullptr;
  if (slab && !slab->pool_) slab->pool_ = new Pool(size);
  if (!slab || slab->pool_->objectSize != size) {
    auto* header = static_cast<Header*>(::operator new(sizeof(Header) + size));
    header->pool = nullptr;
    return header + 1;
  }
  slab->fetch(64);
  return take(slab, size);
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
  if (--pool->live == 0 && !pool->owned) delete pool;
}

}  // namespace Orb
