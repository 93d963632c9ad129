#include "VelaSwitchApi/RowLayout.h"

namespace VelaSwitchApi {

RowLayout::RowLayout(std::vector<RowField> fields, U8 words)
    : fields_(std::move(fields)), words_(words) {
  ORB_ASSERT(words <= maxRowWords);
  ORB_ASSERT(wellFormed(fields_, words_));
  for (const RowField& field : fields_) {
    const bool settable = field.width < 64;
    places_.push_back({settable ? (U64{1} << field.width) - 1 : 0,
                       static_cast<U8>(field.first / 32), static_cast<U8>(field.first % 32),
                       field.first % 32 + field.width > 32});
    if (field.width != 0 && field.content != RowField::varies) {
      contents_.push_back(places_.size() - 1);
    }
  }
  parity_ = number("parity");
  row_ = number("row");
  way_ = number("way");
}

}  // namespace VelaSwitchApi
