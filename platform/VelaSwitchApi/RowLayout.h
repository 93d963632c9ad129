#pragma once

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
  RowLayout() = default;
  /// The fields in the order of the enumeration. Fields that overlap or do not fit the words are a
  /// fatal assertion.
  RowLayout(std::vector<RowField> fields, U8 words) : fields_(std::move(fields)), words_(words) {
    ORB_ASSERT(words <= maxRowWords);
    ORB_ASSERT(wellFormed(fields_, words_));
  }

  /// Words of the row image, those without a register included.
  U8 words() const { return words_; }
  const std::vector<RowField>& fields() const { return fields_; }
  template <class Id>
  const RowField& operator[](Id field) const {
    return fields_[static_cast<std::size_t>(field)];
  }

 private:
  std::vector<RowField> fields_;
  U8 words_ = 0;
};

/// Writes fields into a row image, tracing each at level 9.
class RowWriter {
 public:
  /// `image` has the layout's words; fields that are not set keep what is there.
  RowWriter(const RowLayout& layout, U8* image, const Trace::Handle& trace, const char* function)
      : layout_(layout), image_(image), trace_(trace), function_(function) {}

  /// Cuts the value to the field's width. A field that the layout does not have is passed over.
  template <class Id>
  void set(Id field, U64 value) {
    const RowField& at = layout_[field];
    if (at.width == 0) return;
    [[maybe_unused]] const int startSlice = at.first / 8;
    [[maybe_unused]] const int endSlice = (at.first + at.width - 1) / 8;
    ORB_ASSERT(startSlice >= endSlice - 8);
    bitStreamSet(image_, at.first, static_cast<U8>(at.width), value);
    trace_(9, function_, " ", at.first, ":", at.first + at.width - 1, " = 0x",
           Orb::Hex{cut(value, at.width)});
  }

  /// Copies a field that begins on a byte boundary from packed bytes; it may be wider than any
  /// number. The field's bytes must not hold bits of other fields yet.
  template <class Id>
  void copy(Id field, const U8* bytes) {
    const RowField& at = layout_[field];
    ORB_ASSERT(at.first % 8 == 0);
    std::memcpy(image_ + at.first / 8, bytes, (at.width + 7u) / 8u);
  }

  U32* words() { return reinterpret_cast<U32*>(image_); }

 private:
  static U64 cut(U64 value, U16 width) { return value & ((U64{1} << width) - 1); }

  const RowLayout& layout_;
  U8* image_;
  const Trace::Handle& trace_;
  const char* function_;
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
