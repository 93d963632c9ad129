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
  findControl();
}

void RowLayout::findControl() {
  if (row_ == none || contents_.size() > 1) return;
  Control control{.rowMask = static_cast<U32>(rowPlace_.mask),
                  .word = rowPlace_.word,
                  .rowOffset = rowPlace_.offset};
  for (const Place& place : {rowPlace_, wayPlace_}) {
    if (place.mask == 0) continue;
    if (place.word != control.word || place.tail) return;
    control.mask |= static_cast<U32>(place.mask << place.offset);
  }
  U32 value = 0;
  if (!contents_.empty()) {
    if (contents_.front().word != control.word) return;
    control.mask |= contents_.front().mask;
    value = contents_.front().value;
  }
  for (U64 way = 0; way < control.ways.size(); ++way) {
    control.ways[way] = value | static_cast<U32>((way & wayPlace_.mask) << wayPlace_.offset);
  }
  control_ = control;
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
