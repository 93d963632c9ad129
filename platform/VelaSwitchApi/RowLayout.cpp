#include "VelaSwitchApi/RowLayout.h"

namespace VelaSwitchApi {

RowLayout::RowLayout(std::vector<RowField> fields, U8 words)
    : fields_(std::move(fields)), words_(words) {
  ORB_ASSERT(words <= maxRowWords);
  ORB_ASSERT(wellFormed(fields_, words_));
  for (const RowField& field : fields_) {
    places_.emplace_back(field);
    if (field.width != 0 && field.content != RowField::varies) addContent(field);
  }
  parity_ = number("parity");
  row_ = number("row");
  way_ = number("way");
  if (row_ != none) rowPlace_ = places_[row_];
  if (way_ != none) wayPlace_ = places_[way_];
  control_ = controlOf(fields_, words_);
}

void RowLayout::addContent(const RowField& field) {
  for (U32 bit = 0; bit < field.width; ++bit) {
    const auto word = static_cast<U8>((field.first + bit) / 32);
    const U32 mask = 1u << (field.first + bit) % 32;
    if (contents_.empty() || contents_.back().word != word) contents_.push_back({word, 0, 0});
    contents_.back().mask |= mask;
    if ((U64{field.content} >> bit & 1) != 0) contents_.back().value |= mask;
  }
}

}  // namespace VelaSwitchApi
