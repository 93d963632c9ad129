#include "VelaSwitchApi/RowCheck.h"

#include <algorithm>
#include <bit>

namespace VelaSwitchApi {
namespace {

/// Fills in the numbers of a value, one after the other.
class Sampler {
 public:
  Sampler(const RowLayout& layout, U64 bits) : layout_(layout), bits_(bits) {}

  /// With at most `width` bits in each number.
  void fill(const Orb::Shape& shape, void* value, U32 width) {
    if (shape.numberIs) {
      const U64 highest = shape.kind == Orb::Kind::flag ? 1 : shape.highest;
      const U64 held = next(std::min(width, static_cast<U32>(std::bit_width(highest))));
      shape.numberIs(value, std::clamp(held, shape.lowest, shape.highest));
    }
    if (shape.wordOfNumber) shape.wordOfNumber(value, static_cast<U32>(next(width)));
    if (shape.realIs) shape.realIs(value, 1);
    for (const Orb::FieldShape& field : shape.fields) {
      const RowField* held = find(field.name);
      const U32 bits = held ? std::min<U32>(held->width, field.usedBits) : field.usedBits;
      if (bits != 0) fill(*field.shape, field.in(value), bits);
    }
    if (shape.kind != Orb::Kind::array || shape.element->kind == Orb::Kind::record) return;
    for (std::size_t i = 0; i < shape.count(value); ++i) {
      fill(*shape.element, const_cast<void*>(shape.at(value, i)), width);
    }
  }

 private:
  /// The field of the name, one of no width too.
  const RowField* find(std::string_view name) const {
    const auto& fields = layout_.fields();
    const auto at = std::ranges::find(fields, name, &RowField::name);
    return at == fields.end() ? nullptr : &*at;
  }
  U64 next(U32 width) {
    constexpr int turn = 7;
    const U64 number = width == 0 ? 0 : bits_ & ~U64{0} >> (64 - width);
    bits_ = std::rotl(bits_, turn);
    return number;
  }

  const RowLayout& layout_;
  U64 bits_;
};

}  // namespace

void sampleIs(const Orb::Shape& shape, void* value, const RowLayout& layout, U64 bits) {
  Sampler(layout, bits).fill(shape, value, 64);
}

void RowCheck::expect(bool good, std::string_view what) const {
  if (!good) Orb::assertFailed(Orb::text(family_.name(), ": ", what).c_str(), "RowCheck");
}

void RowCheck::expectSame(const RowImage& row, const RowImage& again, U32 words) const {
  for (U32 bit = 0; bit < words * 32; ++bit) {
    if (((row[bit / 32] ^ again[bit / 32]) >> bit % 32 & 1) == 0) continue;
    const auto field =
        std::find_if(layout_.fields().begin(), layout_.fields().end(),
                     [&](const RowField& each) { return bit - each.first < each.width; });
    const std::string where =
        field == layout_.fields().end() ? Orb::text("bit ", bit) : Orb::text("field ", field->name);
    expect(false, Orb::text("the row of an entry unpacks to another entry: ", where));
  }
}

void RowCheck::expectSame(std::string_view name, const Orb::Shape& shape, const void* value,
                          const void* again) const {
  for (const Orb::FieldShape& field : shape.fields) {
    expectSame(field.name, *field.shape, field.in(value), field.in(again));
  }
  if (shape.kind == Orb::Kind::record || !shape.hasText()) return;
  const auto textOf = [&](const void* each) {
    Orb::StringSink sink;
    Orb::appendText(sink, shape, each);
    return sink.take();
  };
  const std::string announced = textOf(value);
  const std::string unpacked = textOf(again);
  expect(announced == unpacked, Orb::text("the row of an entry unpacks to another entry: ", name,
                                          " ", announced, " becomes ", unpacked));
}

}  // namespace VelaSwitchApi
