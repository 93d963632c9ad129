#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

#include "Orb/Assert.h"
#include "Trace/Trace.h"
#include "VelaSwitch/Parity.h"
#include "VelaSwitchApi/BitStream.h"

namespace VelaSwitchApi {

/// Most words that a row image has.
inline constexpr U8 maxRowWords = 8;
/// The image of a row, those words included that have no register.
using RowImage = std::array<U32, maxRowWords>;

/// One field of a row image.
struct RowField {
  /// Of a field whose content is not always the same.
  static constexpr U32 varies = ~U32{0};

  const char* name = nullptr;  ///< That of the result's field that it holds, where it holds one.
  U32 first = 0;               ///< Stream bit at which the field begins.
  U32 width = 0;               ///< Bits; 0 for a field that this layout does not have.
  U32 content = varies;        ///< What the field holds in every row, an empty one too.
};

/// The first field that ends behind `words` words or has a bit of one before it; the number of
/// fields when there is none.
constexpr std::size_t firstMisplaced(std::span<const RowField> fields, U8 words) {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const RowField& a = fields[i];
    if (a.first + a.width > words * 32u) return i;
    for (std::size_t j = 0; j < i && a.width != 0; ++j) {
      const RowField& b = fields[j];
      if (b.width != 0 && a.first < b.first + b.width && b.first < a.first + a.width) return i;
    }
  }
  return fields.size();
}

/// Whether all fields lie within `words` words and no bit belongs to two of them.
constexpr bool wellFormed(std::span<const RowField> fields, U8 words) {
  return firstMisplaced(fields, words) == fields.size();
}

/// The one description of a family's row, which packing, decoding, tracing and printing read.
/// Fields are addressed by their numbers; a layout that differs between profiles is built when the
/// table is made, and checked then.
class VELA_EXPORT RowLayout {
 public:
  /// Where a field lies in the image's words; worked out once, for the packer.
  struct Place {
    U64 mask = 0;        ///< The field's width in ones; 0 for a field that cannot be set at once.
    U32 others = ~0u;    ///< The bits of its first word that are not the field's.
    U8 word = 0;         ///< The word in which the field begins.
    U8 offset = 0;       ///< The bit of that word.
    bool tail = false;   ///< Whether the field goes on into the next word.
    bool plain = false;  ///< Whether it can be set at once, in one word.

    constexpr Place() = default;
    /// Without a mask for fields of no bits and of 64 or more.
    constexpr explicit Place(const RowField& field) {
      if (field.width == 0 || field.width >= 64) return;
      mask = (U64{1} << field.width) - 1;
      word = static_cast<U8>(field.first / 32);
      offset = static_cast<U8>(field.first % 32);
      tail = field.first % 32 + field.width > 32;
      others = ~static_cast<U32>(mask << offset);
      plain = !tail;
    }
  };

  RowLayout() = default;
  /// The fields in the order of their numbers. Fields that overlap or do not fit the words are a
  /// fatal assertion.
  RowLayout(std::vector<RowField> fields, U8 words);

  /// Stands for no field.
  static constexpr std::size_t none = ~std::size_t{0};

  /// Words of the row image, those without a register included.
  U8 words() const { return words_; }
  /// In the order of their numbers.
  const std::vector<RowField>& fields() const { return fields_; }
  /// The field of the number.
  template <class Id>
  const RowField& operator[](Id field) const {
    return fields_[static_cast<std::size_t>(field)];
  }
  /// The number of the field of the name, or none.
  std::size_t number(std::string_view name) const {
    for (std::size_t i = 0; i < fields_.size(); ++i) {
      if (name == fields_[i].name && fields_[i].width != 0) return i;
    }
    return none;
  }
  /// The field of the name, or null when the layout has none.
  const RowField* find(std::string_view name) const {
    const std::size_t found = number(name);
    return found == none ? nullptr : &fields_[found];
  }
  /// The fields that every packer looks for, or none.
  std::size_t parity() const { return parity_; }
  std::size_t row() const { return row_; }  ///< See parity().
  std::size_t way() const { return way_; }  ///< See parity().
  /// Their places; without a mask where there is none.
  const Place& rowPlace() const { return rowPlace_; }
  const Place& wayPlace() const { return wayPlace_; }  ///< See rowPlace().
  /// A word's bits that are the same in every row.
  struct Content {
    U8 word;    ///< Number of the word.
    U32 mask;   ///< The bits.
    U32 value;  ///< What they are.
  };
  /// In the order of the fields.
  const std::vector<Content>& contents() const { return contents_; }
  /// All that setPlace() writes, where that is one word: of it and the one beside it, as rows are
  /// read by twos. Without a mask where it is not.
  struct Control {
    U64 mask = 0;               ///< The bits that are written.
    U32 rowMask = 0;            ///< Those of the row's number, before it is shifted.
    U8 word = 0;                ///< Number of the first word, which is even.
    U8 rowOffset = 0;           ///< By how much that is.
    std::array<U64, 4> ways{};  ///< All other bits, by way.

    /// The two words with them.
    constexpr U64 in(U64 two, U64 row, U64 way) const {
      return (two & ~mask) | ways[way % ways.size()] | (row & rowMask) << rowOffset;
    }
  };
  /// That word.
  const Control& control() const { return control_; }
  /// That of rows with these fields.
  static constexpr Control controlOf(std::span<const RowField> fields, U8 words) {
    const auto place = [fields](std::string_view name) {
      for (const RowField& field : fields) {
        if (name == field.name) return Place(field);
      }
      return Place();
    };
    const Place row = place("row");
    const Place way = place("way");
    if (row.word >= words) return {};
    U32 mask = 0;
    const auto takeIn = [&](const Place& at) {
      mask |= ~at.others;
      return at.plain && at.word == row.word;
    };
    if (!takeIn(row) || (way.mask != 0 && !takeIn(way))) return {};
    U64 same = 0;
    for (const RowField& field : fields) {
      if (field.width == 0 || field.content == RowField::varies) continue;
      const Place at(field);
      if (!takeIn(at)) return {};
      same |= (field.content & at.mask) << at.offset;
    }
    const int shift = row.word % 2 * 32;
    Control control{.mask = U64{mask} << shift,
                    .rowMask = static_cast<U32>(row.mask),
                    .word = static_cast<U8>(row.word & ~1),
                    .rowOffset = static_cast<U8>(row.offset + shift)};
    for (U64 each = 0; each < control.ways.size(); ++each) {
      control.ways[each] = (same | (each & way.mask) << way.offset) << shift;
    }
    return control;
  }
  /// Those of all fields, by their numbers.
  const Place* places() const { return places_.data(); }

 private:
  void addContent(const RowField& field);

  std::vector<RowField> fields_;
  std::vector<Place> places_;
  std::vector<Content> contents_;
  Control control_{};
  std::size_t parity_ = none;
  std::size_t row_ = none;
  std::size_t way_ = none;
  Place rowPlace_;
  Place wayPlace_;
  U8 words_ = 0;
};

/// Writes fields into a row image, tracing each at level 9.
class RowWriter {
 public:
  /// `image` has the layout's words and is aligned like them; fields that are not set keep what is
  /// there.
  RowWriter(const RowLayout& layout, U8* image, const Trace::Handle& trace, const char* function)
      : RowWriter(layout, image, trace, function, trace.enabled(9)) {}
  /// The same where it is known whether it is `traced`.
  RowWriter(const RowLayout& layout, U8* image, const Trace::Handle& trace, const char* function,
            bool traced)
      : layout_(layout),
        places_(layout.places()),
        words_(reinterpret_cast<U32*>(image)),
        trace_(trace),
        traced_(traced),
        function_(function) {}

  /// Cuts the value to the field's width. A field that the layout does not have is passed over.
  template <class Id>
  [[gnu::always_inline]] void set(Id field, U64 value) {
    const RowLayout::Place& at = places_[static_cast<std::size_t>(field)];
    setBeginning(at, value & at.mask);
    if (at.plain && !traced_) [[likely]]
      return;
    if (at.tail) setTail(at, value & at.mask);
    if (at.mask == 0 || traced_) [[unlikely]]
      wasSet(tracing(), layout_[field], value & at.mask);
  }

  /// Writes the field "parity" so that the bits of the first `words` words are even in number.
  void setParity(U8 words) {
    U32 folded = 0;
    for (U8 word = 0; word < words; ++word) folded ^= words_[word];
    parityIs(places_[layout_.parity()], folded);
  }
  /// Writes what a control word says whatever the entry: the fields "row" and "way", where the
  /// layout has them, and those that hold the same in every row.
  [[gnu::always_inline]] void setPlace(U64 row, U64 way = 0) {
    if (const RowLayout::Control& control = layout_.control(); control.mask != 0) [[likely]] {
      U32* const first = words_ + control.word;
      if (control.word + 1u < layout_.words()) {
        U64 two;
        std::memcpy(&two, first, sizeof two);
        two = control.in(two, row, way);
        std::memcpy(first, &two, sizeof two);
      } else {
        *first = static_cast<U32>(control.in(*first, row, way));
      }
    } else {
      setAt(layout_.rowPlace(), row);
      setAt(layout_.wayPlace(), way);
      for (const auto& [word, mask, value] : layout_.contents()) {
        words_[word] = (words_[word] & ~mask) | value;
      }
    }
    if (traced_) [[unlikely]]
      tracePlace(tracing(), layout_, row, way);
  }

  /// Writes the low `count` bits of a number of up to 128 bits to the beginning of the row, which
  /// has room for 64 or 128, in whatever fields they are.
  void setFirst(const U64 (&number)[2], U32 count) {
    ORB_ASSERT(layout_.words() >= (count > 64 ? 4 : 2));
    setHalf(words_, number[0], count);
    if (count > 64) setHalf(words_ + 2, number[1], count - 64);
    if (!traced_) [[likely]]
      return;
    for (const RowField& field : layout_.fields()) {
      if (field.width == 0 || field.width >= 64 || field.first + field.width > count) continue;
      traceField(tracing(), field,
                 bitStreamGet(words_, field.first, field.first + field.width - 1));
    }
  }

  /// Writes a number to fields that lie one behind the other, from this one on, where the row is
  /// all zero. False when fields are traced: then each is to be set by itself.
  bool setAdjacent(std::size_t first, U64 value) {
    if (traced_) [[unlikely]]
      return false;
    const RowLayout::Place& at = places_[first];
    U32* word = words_ + at.word;
    *word |= static_cast<U32>(value << at.offset);
    for (value >>= 32 - at.offset; value != 0; value >>= 32) *++word |= static_cast<U32>(value);
    return true;
  }

  U32* words() { return words_; }

 protected:
  /// `folded` has all bits that are to be even in number, the words one over the other.
  [[gnu::always_inline]] void parityIs(const RowLayout::Place& at, U32 folded) {
    U32& word = words_[at.word];
    word ^= VelaSwitch::parity32Bit(folded) << at.offset;
    if (traced_) [[unlikely]]
      traceParity(tracing(), layout_, word >> at.offset & 1);
  }
  /// A place without a mask keeps what it has.
  [[gnu::always_inline]] void setAt(const RowLayout::Place& at, U64 value) {
    setBeginning(at, value & at.mask);
    if (at.tail) setTail(at, value & at.mask);
  }
  /// Where traces go. What is out of the ordinary gets this, not the writer, so that the compiler
  /// need not keep that in memory.
  struct Traced {
    const Trace::Handle& trace;
    const char* function;
  };
  Traced tracing() const { return {trace_, function_}; }
  bool traced() const { return traced_; }
  [[gnu::cold, gnu::noinline]] static void traceField(Traced to, const RowField& field, U64 value) {
    to.trace(9, to.function, " ", field.first, ":", field.first + field.width - 1, " = 0x",
             Orb::Hex{value});
  }

 private:
  static void setHalf(U32* words, U64 number, U32 count) {
    const U64 mask = count >= 64 ? ~U64{0} : (U64{1} << count) - 1;
    number &= mask;
    words[0] = (words[0] & ~static_cast<U32>(mask)) | static_cast<U32>(number);
    words[1] = (words[1] & ~static_cast<U32>(mask >> 32)) | static_cast<U32>(number >> 32);
  }
  [[gnu::always_inline]] void setBeginning(const RowLayout::Place& at, U64 value) {
    U32& word = words_[at.word];
    word = (word & at.others) | static_cast<U32>(value << at.offset);
  }
  /// The parts of a field behind its first word; a field has at most 63 bits, so there are two.
  void setTail(const RowLayout::Place& at, U64 fieldValue) {
    U32* word = words_ + at.word + 1;
    const U64 mask = at.mask >> (32 - at.offset);
    const U64 value = fieldValue >> (32 - at.offset);
    word[0] = static_cast<U32>((word[0] & ~mask) | value);
    if (mask >> 32 != 0) word[1] = static_cast<U32>((word[1] & ~(mask >> 32)) | value >> 32);
  }
  /// As if the field were cleared first.
  [[gnu::cold, gnu::noinline]] static void traceParity(Traced to, const RowLayout& layout,
                                                       U64 value) {
    traceField(to, layout[layout.parity()], 0);
    traceField(to, layout[layout.parity()], value);
  }
  [[gnu::cold, gnu::noinline]] static void tracePlace(Traced to, const RowLayout& layout, U64 row,
                                                      U64 way) {
    if (layout.row() != RowLayout::none)
      wasSet(to, layout[layout.row()], row & layout.rowPlace().mask);
    if (layout.way() != RowLayout::none)
      wasSet(to, layout[layout.way()], way & layout.wayPlace().mask);
    for (const RowField& field : layout.fields()) {
      if (field.width != 0 && field.content != RowField::varies)
        traceField(to, field, field.content);
    }
  }
  /// A field that cannot be set at once, or is traced.
  [[gnu::cold, gnu::noinline]] static void wasSet(Traced to, const RowField& field, U64 value) {
    if (field.width == 0) return;
    const int startSlice = field.first / 8;
    const int endSlice = (field.first + field.width - 1) / 8;
    ORB_ASSERT(startSlice >= endSlice - 8);
    ORB_ASSERT_TEXT(field.width < 64, "len < 64");
    if (to.trace.enabled(9)) traceField(to, field, value);
  }

  const RowLayout& layout_;
  const RowLayout::Place* places_;
  U32* words_;
  const Trace::Handle& trace_;
  bool traced_;
  const char* function_;
};

/// A key as it is hashed: a number of up to 128 bits, its fields one above the other.
class KeyBits {
 public:
  static constexpr U8 maxBytes = 16;

  KeyBits() = default;
  /// A key that was packed before.
  KeyBits(const U64 (&words)[2], U8 bits) : words_{words[0], words[1]}, bits_(bits) {}
  /// Traces each field at level 9 as `function`'s doing, at its place in the hashed buffer.
  KeyBits(const Trace::Handle& trace, const char* function, U8 start)
      : trace_(trace.enabled(9) ? &trace : nullptr), function_(function), start_(start) {}

  /// Puts a field of less than 64 bits above those that are there. Inlined, for most widths are
  /// known where it is called.
  [[gnu::always_inline]] void add(U8 width, U64 value) {
    value &= (U64{1} << width) - 1;
    if (trace_) [[unlikely]]
      traceField(width, value);
    if (bits_ >= 64) {
      words_[1] |= value << (bits_ - 64);
    } else {
      words_[0] |= value << bits_;
      if (bits_ + width > 64) words_[1] |= value >> (64 - bits_);
    }
    bits_ = static_cast<U8>(bits_ + width);
  }
  /// Puts another's bits above those that are there.
  void append(const KeyBits& other) {
    for (U8 done = 0; done < other.bits_; done = static_cast<U8>(done + 32)) {
      const auto width = static_cast<U8>(std::min(other.bits_ - done, 32));
      add(width, other.words_[done / 64] >> done % 64);
    }
  }
  /// Takes the lowest field off.
  U64 take(U8 width) {
    const U64 value = words_[0] & ((U64{1} << width) - 1);
    drop(width);
    return value;
  }
  /// Drops fewer than 64 of the lowest bits.
  void drop(U8 count) {
    if (count == 0) return;
    words_[0] = words_[0] >> count | words_[1] << (64 - count);
    words_[1] >>= count;
    bits_ = static_cast<U8>(bits_ > count ? bits_ - count : 0);
  }

  U8 bits() const { return bits_; }
  const U64 (&words() const)[2] { return words_; }

  /// Fills the buffer from its bit `start` on; the bits before and behind the key become 0.
  void copyTo(U8* buffer, U8 bufSize, U8 start = 0) const {
    const U64 words[2] = {words_[0] << start,
                          start == 0 ? words_[1] : words_[1] << start | words_[0] >> (64 - start)};
    const U8 count = std::min(bufSize, maxBytes);
    std::memcpy(buffer, words, count);
    std::memset(buffer + count, 0, bufSize - count);
  }
  /// Fills the buffer with a key of up to 64 bits, the most significant bit and byte first.
  void copyLeftAligned(U8* buffer, U8 bufSize) const {
    const U64 aligned = __builtin_bswap64(words_[0] << (64 - bits_));
    std::memset(buffer, 0, bufSize);
    std::memcpy(buffer, &aligned, std::min<std::size_t>(bufSize, sizeof aligned));
  }

 private:
  [[gnu::cold, gnu::noinline]] void traceField(U8 width, U64 value) const {
    (*trace_)(9, function_, " ", start_ + bits_, ":", start_ + bits_ + width - 1, " = 0x",
              Orb::Hex{value});
  }

  U64 words_[2]{};
  U8 bits_ = 0;
  const Trace::Handle* trace_ = nullptr;
  const char* function_ = "";
  U8 start_ = 0;
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
  /// The low `count` bits of the row, at most 128.
  KeyBits first(U8 count) const {
    KeyBits bits;
    for (U8 done = 0; done < count; done = static_cast<U8>(done + 32)) {
      bits.add(std::min<U8>(static_cast<U8>(count - done), 32), words_[done / 32]);
    }
    return bits;
  }
  U32* words() const { return words_; }

 private:
  const RowLayout& layout_;
  U32* words_;
};

}  // namespace VelaSwitchApi
