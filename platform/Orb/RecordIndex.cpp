#include "Orb/RecordIndex.h"

namespace Orb {

void RecordIndex::grow() { rehash(buckets_.size() * 2); }

/// A search does not go beyond the bucket of the hole any more, which was full. A record behind it
/// that is found by such a search takes the place, and leaves a hole itself.
void RecordIndex::moveUp(Place hole) {
  for (U32 at = (hole.bucket + 1) & mask_;; at = (at + 1) & mask_) {
    Bucket& bucket = buckets_[at];
    const bool full = bucket.full();
    for (U32 slot = 0; slot < slotsPerBucket; ++slot) {
      void* record = bucket.record(slot);
      if (!record) continue;
      const U32 tag = tagOf_(record);
      if (((at - tag) & mask_) < ((at - hole.bucket) & mask_)) continue;
      buckets_[hole.bucket].set(hole.slot, shortTag(tag), record);
      bucket.set(slot, noTag, nullptr);
      hole = {at, slot};
      break;
    }
    if (!full) return;
  }
}

void RecordIndex::replace(U32 tag, const void* record, void* next) {
  const Place place = placeOf(tag, record);
  buckets_[place.bucket].set(place.slot, shortTag(tag), next);
}

void RecordIndex::reserve(U32 count) {
  std::size_t buckets = 1;
  while (mostOf(buckets) < count) buckets *= 2;
  if (buckets > buckets_.size()) rehash(buckets);
}

void RecordIndex::rehash(std::size_t buckets) {
  std::vector<Bucket> old(buckets);
  old.swap(buckets_);
  mask_ = static_cast<U32>(buckets) - 1;
  most_ = mostOf(buckets);
  forEachOf(old, [&](void* record) { put(tagOf_(record), record); });
}

}  // namespace Orb
