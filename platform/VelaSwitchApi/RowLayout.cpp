#include "VelaSwitchApi/RowLayout.h"

namespace VelaSwitchApi {

RowLayout::RowLayout(std::vector<RowField> fields, U8 words)
    : fields_(std::move(fields)), words_(words) {
  ORB_ASSERT(words <= maxRowWords);
  ORB_ASSERT(wellFormed(fields_, words_));
  for (const RowField& field : fields_) {
    places_.emplace_back(field);
    if (field.width != 0 && field.content != RowField::varies) {
      contents_.push_back(places_.size() - 1);
    }
  }
  parity_ = number("parity");
  row_ = number("row");
  way_ = number("way");
}

}  // namespace VelaSwitchApi
