#pragma once

#include <algorithm>
#include <cstring>
#include <span>
#include <vector>

#include "Orb/Assert.h"
#include "Trace/Trace.h"
#include "VelaSwitchApi/BitStream.h"

namespace VelaSwitchApi {

/// Most words that a row image has.
inline constexpr U8 maxRowWords = 8;

/// One field of a row image.
struct RowField {
  const char* name = nullptr;
  U16 first = 0;  ///< Stream bit at which the field begins.
  U16 width = 0;  ///< Bits; 0 for a field that this layout does not have.
};

/// Whether all fields lie within `words` words and no bit belongs to two of them.
constexpr bool wellFormed(std::span<const RowField> fields, U8 words) {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (fields[i].first + fields[i].width > words * 32) return false;
    for (std::size_t j = 0; j < i; ++j) {
      const RowField& a = fields[i];
      const RowField& b = fields[j];
      if (a.width == 0 || b.width == 0) continue;
      if (a.first < b.first + b.width && b.first < a.first + a.width) return false;
    }
  }
  return true;
}

/// The one description of a family's row, which packing, decoding, tracing and printing read.
/// Fields are addressed by an enumeration of the family's; a layout that differs between profiles
/// is built when the table is made, and checked then.
class RowLayout {
 public:
  /// Where a field lies in the image's words; worked out once, for the packer.
  struct Place {
    U64 mask = 0;       ///< The field's width in ones; 0 for a field that cannot be set at once.
    U8 word = 0;        ///< The word in which the field begins.
    U8 offset = 0;      ///< The bit of that word.
    bool tail = false;  ///< Whether the field goes on into the next word.
  };

  RowLayout() = default;
  /// The fields in the order of the enumeration. Fields that overlap or do not fit the words are a
  /// fatal assertion.
  RowLayout(std::vector<RowField> fields, U8 words) : fields_(std::move(fields)), words_(words) {
    ORB_ASSERT(words <= maxRowWords);
    ORB_ASSERT(wellFormed(fields_, words_));
    for (const RowField& field : fields_) {
      const bool settable = field.width < 64;
      places_.push_back({settable ? (U64{1} << field.width) - 1 : 0,
                         static_cast<U8>(field.first / 32), static_cast<U8>(field.first % 32),
                         field.first % 32 + field.width > 32});
    }
  }

  /// Words of the row image, those without a register included.
  U8 words() const { return words_; }
  const std::vector<RowField>& fields() const { return fields_; }
  template <class Id>
  const RowField& operator[](Id field) const {
    return fields_[static_cast<std::size_t>(field)];
  }
  template <class Id>
  const Place& place(Id field) const {
    return places_[static_cast<std::size_t>(field)];
  }

 private:
  std::vector<RowField> fields_;
  std::vector<Place> places_;
  U8 words_ = 0;
};

/// Writes fields into a row image, tracing each at level 9.
class RowWriter {
 public:
  /// `image` has the layout's words and is aligned like them; fields that are not set keep what is
  /// there.
  RowWriter(const RowLayout& layout, U8* image, const Trace::Handle& trace, const char* function)
      : layout_(layout),
        words_(reinterpret_cast<U32*>(image)),
        trace_(trace),
        function_(function) {}

  /// Cuts the value to the field's width. A field that the layout does not have is passed over.
  template <class Id>
  void set(Id field, U64 value) {
    const RowLayout::Place& at = layout_.place(field);
    if (at.mask == 0) [[unlikely]]
      return checkSettable(layout_[field]);
    value &= at.mask;
    U32* word = words_ + at.word;
    *word = static_cast<U32>((*word & ~(at.mask << at.offset)) | value << at.offset);
    if (at.tail) setTail(word + 1, at.mask >> (32 - at.offset), value >> (32 - at.offset));
    if (trace_.enabled(9)) [[unlikely]]
      traceField(layout_[field], value);
  }

  /// Copies a field from packed bytes; it may be wider than any number.
  template <class Id>
  void copy(Id field, const U8* bytes) {
    constexpr U16 chunk = 32;
    const RowField& at = layout_[field];
    for (U16 done = 0; done < at.width; done = static_cast<U16>(done + chunk)) {
      const U8 len = static_cast<U8>(std::min<int>(chunk, at.width - done));
      U32 bits = 0;
      std::memcpy(&bits, bytes + done / 8, (len + 7u) / 8u);
      bitStreamSet(reinterpret_cast<U8*>(words_), static_cast<U16>(at.first + done), len, bits);
    }
  }

  U32* words() { return words_; }

 private:
  /// The parts of a field behind its first word; a field has at most 63 bits, so there are two.
  static void setTail(U32* word, U64 mask, U64 value) {
    word[0] = static_cast<U32>((word[0] & ~mask) | value);
    if (mask >> 32 != 0) word[1] = static_cast<U32>((word[1] & ~(mask >> 32)) | value >> 32);
  }
  static void checkSettable(const RowField& field) {
    const int startSlice = field.first / 8;
    const int endSlice = (field.first + field.width - 1) / 8;
    ORB_ASSERT(startSlice >= endSlice - 8);
    ORB_ASSERT_TEXT(field.width < 64, "len < 64");
  }
  void traceField(const RowField& field, U64 value) const {
    trace_(9, function_, " ", field.first, ":", field.first + field.width - 1, " = 0x",
           Orb::Hex{value});
  }

  const RowLayout& layout_;
  U32* words_;
  const Trace::Handle& trace_;
  const char* function_;
};

/// Packs a key of up to 128 bits field by field, stream bit 0 first, and hands it over whole.
class KeyWriter {
 public:
  static constexpr U8 maxBytes = 16;

  KeyWriter() = default;
  /// Traces each field at level 9, as the function's doing.
  KeyWriter(const Trace::Handle& trace, const char* function)
      : trace_(&trace), function_(function) {}

  /// Bits `first` … `first + width - 1`, which must not be set yet; `width` is below 64.
  void set(U8 first, U8 width, U64 value) {
    value &= (U64{1} << width) - 1;
    if (trace_ && trace_->enabled(9)) [[unlikely]]
      (*trace_)(9, function_, " ", first, ":", first + width - 1, " = 0x", Orb::Hex{value});
    if (first >= 64) {
      words_[1] |= value << (first - 64);
      return;
    }
    words_[0] |= value << first;
    if (first + width > 64) words_[1] |= value >> (64 - first);
  }

  /// Fills the buffer; bytes behind the key become 0.
  void copyTo(U8* buffer, U8 bufSize) const {
    const U8 count = std::min(bufSize, maxBytes);
    std::memcpy(buffer, words_, count);
    std::memset(buffer + count, 0, bufSize - count);
  }

 private:
  U64 words_[2]{};
  const Trace::Handle* trace_ = nullptr;
  const char* function_ = "";
};

/// Reads fields from a row image.
class RowReader {
 public:
  RowReader(const RowLayout& layout, U32* words) : layout_(layout), words_(words) {}

  /// The field's value; 0 for a field that the layout does not have.
  template <class Id>
  U64 get(Id field) const {
    const RowField& at = layout_[field];
    return at.width == 0 ? 0 : bitStreamGet(words_, at.first, at.first + at.width - 1u);
  }
  template <class Id>
  bool flag(Id field) const {
    return get(field) != 0;
  }
  U32* words() const { return words_; }

 private:
  const RowLayout& layout_;
  U32* words_;
};

}  // namespace VelaSwitchApi
