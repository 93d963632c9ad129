#include "VelaSwitchApi/RowCheck.h"

namespace VelaSwitchApi {

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

}  // namespace VelaSwitchApi
