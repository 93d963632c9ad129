#pragma once

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include <array>
#include <bit>
#include <cstring>
#include <vector>

#include "Orb/Assert.h"
#include "Orb/Types.h"

namespace Orb {

/// A hash index of records that lie elsewhere and hold their keys. It knows them by a hash of the
/// key, the tag; who asks says whether a record is the one that is meant.
///
/// A record is in the bucket that the low bits of its tag say, one line of memory, or where that is
/// full in one of those behind it: a search goes on as long as buckets are full.
class VELA_EXPORT RecordIndex {
 public:
  using TagOf = U32 (*)(const void* record);  ///< The tag of a record that is in the index.
  /// Of records that say their tags so.
  explicit RecordIndex(TagOf tagOf) : tagOf_(tagOf) {}

  U32 size() const { return size_; }  ///< Records.

  /// The record of the tag that `isIt(record)` is true of, or null.
  template <class IsIt>
  [[gnu::always_inline]] void* find(U32 tag, const IsIt& isIt) const {
    return findFrom(buckets_[tag & mask_], tag, isIt);
  }
  /// The same, or where there is none the record that `make()` makes, which is added. It must leave
  /// the index alone, and may throw.
  template <class IsIt, class Make>
  [[gnu::always_inline]] void* findOrAdd(U32 tag, const IsIt& isIt, const Make& make) {
    Bucket& bucket = buckets_[tag & mask_];
    const Slots free = bucket.slotsOf(noTag);
    if (void* record = findFrom(bucket, tag, isIt)) return record;
    void* record = make();
    if (size_ == most_ || !free.any()) [[unlikely]] {
      add(tag, record);
    } else {
      bucket.set(free.first(), shortTag(tag), record);
      ++size_;
    }
    return record;
  }
  /// A record of the tag is needed soon.
  void soon(U32 tag) const {
    __builtin_prefetch(&buckets_[tag & mask_]);
    // GCC takes a function that does nothing but this for one without effect, and drops its calls.
    asm volatile("");
  }
  /// Adds a record whose key is not there.
  void add(U32 tag, void* record) {
    if (size_ == most_) [[unlikely]]
      grow();
    put(tag, record);
    ++size_;
  }
  /// Removes a record that is there, or puts another of the same key in its place.
  void remove(U32 tag, const void* record) {
    const Place place = placeOf(tag, record);
    Bucket& bucket = buckets_[place.bucket];
    const bool full = bucket.full();
    bucket.set(place.slot, noTag, nullptr);
    if (full) [[unlikely]]
      moveUp(place);
    --size_;
  }
  void replace(U32 tag, const void* record, void* next);  ///< See remove().

  /// Makes room for `count` records, so that adding them allocates nothing.
  void reserve(U32 count);

  /// Calls `visit(record)` for every record, in no order. The index must not change meanwhile.
  template <class Visitor>
  void forEach(const Visitor& visit) const {
    forEachOf(buckets_, visit);
  }

 private:
  static constexpr U32 slotsPerBucket = 8;
  /// The part of a tag that a bucket holds; never noTag.
  static U16 shortTag(U32 tag) { return static_cast<U16>(tag >> 16 | 1); }
  static constexpr U16 noTag = 0;
  static constexpr U32 noSlot = ~U32{0};

  using Tags [[gnu::vector_size(2 * slotsPerBucket)]] = U16;

  /// Some slots of a bucket.
  class Slots {
   public:
    /// Those whose bits are all ones, rather than 0.
    explicit Slots(Tags chosen) {
#ifdef __SSE2__
      bits_ = static_cast<U32>(_mm_movemask_epi8(std::bit_cast<__m128i>(chosen)));
#else
      using Bytes [[gnu::vector_size(slotsPerBucket)]] = U8;
      bits_ = std::bit_cast<U64>(__builtin_convertvector(chosen, Bytes));
#endif
    }
    bool any() const { return bits_ != 0; }
    U32 first() const { return static_cast<U32>(std::countr_zero(bits_)) / width; }
    void dropFirst() { bits_ &= ~Bits{0} << first() * width << width; }

   private:
#ifdef __SSE2__
    using Bits = U32;
#else
    using Bits = U64;
#endif
    static constexpr U32 width = sizeof(Bits) == sizeof(U32) ? 2 : 8;  ///< Bits for each slot.

    Bits bits_;
  };

  /// Tags, which are compared all at once, and addresses in 48 bits, as many as there are to those
  /// of processes.
  class alignas(64) Bucket {
   public:
    Slots slotsOf(U16 tag) const {
      // By pairs: numbers of two bytes reach a vector by way of memory, which takes long.
      using Pairs [[gnu::vector_size(sizeof(Tags))]] = U32;
      const U32 pair = tag | U32{tag} << 16;
      const auto wanted = std::bit_cast<Tags>(Pairs{pair, pair, pair, pair});
      return Slots(std::bit_cast<Tags>(tags_ == wanted));
    }
    bool full() const { return !slotsOf(noTag).any(); }
    /// Null in a slot that is free.
    void* record(U32 slot) const {
      // With the two bytes in front of it, which are the bucket's as well.
      U64 word;
      const auto* bytes = reinterpret_cast<const U8*>(this);
      std::memcpy(&word, bytes + sizeof tags_ - 2 + slot * addressBytes, sizeof word);
      return std::bit_cast<void*>(word >> 16);
    }
    void set(U32 slot, U16 tag, void* record) {
      const auto address = std::bit_cast<U64>(record);
      ORB_ASSERT(address >> 48 == 0);
      const auto low = static_cast<U32>(address);
      const auto high = static_cast<U16>(address >> 32);
      tags_[slot] = tag;
      std::memcpy(&addresses_[slot * addressBytes], &low, sizeof low);
      std::memcpy(&addresses_[slot * addressBytes + sizeof low], &high, sizeof high);
    }

   private:
    static constexpr U32 addressBytes = 6;

    Tags tags_{};
    std::array<U8, slotsPerBucket * addressBytes> addresses_{};
  };
  static_assert(sizeof(Bucket) == 64 && sizeof(void*) == sizeof(U64));

  struct Place {
    U32 bucket;
    U32 slot;
  };

  /// find(), which begins with the bucket.
  template <class IsIt>
  [[gnu::always_inline]] void* findFrom(const Bucket& bucket, U32 tag, const IsIt& isIt) const {
    // Nearly always the first of its tag in its bucket, or there is none.
    const Slots slots = bucket.slotsOf(shortTag(tag));
    if (slots.any()) {
      void* record = bucket.record(slots.first());
      if (isIt(record)) [[likely]]
        return record;
    } else if (!bucket.full()) [[likely]] {
      return nullptr;
    }
    return findAnywhere(tag, isIt);
  }
  template <class IsIt>
  [[gnu::noinline]] void* findAnywhere(U32 tag, IsIt isIt) const {
    const Place place = placeWhere(tag, isIt);
    return place.slot == noSlot ? nullptr : buckets_[place.bucket].record(place.slot);
  }
  /// The place of the record of the tag that `isIt(record)` is true of, or noSlot.
  template <class IsIt>
  Place placeWhere(U32 tag, const IsIt& isIt) const {
    for (U32 at = tag & mask_;; at = (at + 1) & mask_) {
      const Bucket& bucket = buckets_[at];
      for (Slots slots = bucket.slotsOf(shortTag(tag)); slots.any(); slots.dropFirst()) {
        if (isIt(bucket.record(slots.first()))) return {at, slots.first()};
      }
      if (!bucket.full()) return {at, noSlot};
    }
  }
  /// The place of a record that is there.
  Place placeOf(U32 tag, const void* record) const {
    const Place place = placeWhere(tag, [&](const void* each) { return each == record; });
    ORB_ASSERT(place.slot != noSlot);
    return place;
  }
  void put(U32 tag, void* record) {
    U32 at = tag & mask_;
    while (buckets_[at].full()) at = (at + 1) & mask_;
    buckets_[at].set(buckets_[at].slotsOf(noTag).first(), shortTag(tag), record);
  }
  static U32 mostOf(std::size_t buckets) {
    return static_cast<U32>(buckets * slotsPerBucket / 4 * 3);
  }
  void moveUp(Place hole);
  void grow();
  /// Records lie anywhere in memory, so that they are fetched while others are visited.
  template <class Visitor>
  static void forEachOf(const std::vector<Bucket>& buckets, const Visitor& visit) {
    constexpr std::size_t ahead = 16;
    const std::size_t slots = buckets.size() * slotsPerBucket;
    const auto recordAt = [&](std::size_t at) -> void* {
      return at < slots ? buckets[at / slotsPerBucket].record(at % slotsPerBucket) : nullptr;
    };
    for (std::size_t at = 0; at < slots; ++at) {
      __builtin_prefetch(recordAt(at + ahead));
      if (void* record = recordAt(at)) visit(record);
    }
  }
  void rehash(std::size_t buckets);

  TagOf tagOf_;
  /// A power of two of them, with at most three quarters of the slots taken.
  std::vector<Bucket> buckets_{1};
  U32 mask_ = 0;          ///< One less than there are.
  U32 most_ = mostOf(1);  ///< Records that there is room for.
  U32 size_ = 0;
};

}  // namespace Orb
