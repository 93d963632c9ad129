#include "VelaSwitchTable/VelaTableHashHelper.h"

#include <cstring>

#include "VelaSwitch/Parity.h"

namespace VelaSwitchTable {

VelaTableHashHelper::~VelaTableHashHelper() = default;

void VelaTableHashHelper::doInit() {
  ORB_ASSERT(swTable());
  layout_ = makeLayout();
  ORB_ASSERT(layout_.words() <= physical().properties().rowWords);
  null_ = makeNullEntry();
}

void VelaTableHashHelper::setEmptyImage(CuckooLocation location, U32* image) const {
  // A trace tells of each field.
  if (!empty_ || traces_.handle.enabled(9)) [[unlikely]]
    return HashBaseHelper::setEmptyImage(location, image);
  std::memcpy(image, empty_->data(), sizeof *empty_);
  RowWriter(layout_, reinterpret_cast<U8*>(image), traces_.handle, "", false)
      .setPlace(location.row, location.way);
}

void VelaTableHashHelper::compareEmptyRows(bool alike) {
  std::array<U32, VelaSwitchApi::maxRowWords> packed{};
  HashBaseHelper::setEmptyImage({0, 0}, packed.data());
  auto empty = packed;
  const U32 rows = alike ? 1 : physical().engine().capacity();
  for (HwIndex index = 0; index < rows; ++index) {
    HashBaseHelper::setEmptyImage(location(index), packed.data());
    setStaticBuffer(location(index), reinterpret_cast<U8*>(empty.data()));
    if (packed != empty) return;
  }
  empty_ = empty;
}

Orb::Ptr<HashBaseCuckooEntry> VelaTableHashHelper::decodeHwEntry(HwIndex index) const {
  ORB_ASSERT_TEXT(swTable(), "swTable()");
  const Trace::Handle& trace = traces_.handle;
  if (index >= physical().engine().capacity()) {
    trace(3, "row ", index, VelaSwitchApi::noRowText);
    return null_;
  }
  constexpr const char* refusal = "not decoding entry: row ";
  using Unpacked = std::optional<Orb::Ptr<HashBaseCuckooEntry>>;
  const Unpacked entry =
      VelaSwitchApi::readSafely(trace, refusal, index, Unpacked(), [&]() -> Unpacked {
        return rowSound(hwRow(index)) ? unpack(hwRow(index), location(index)) : nullptr;
      });
  if (!entry) return null_;
  if (!*entry) {
    trace(9, refusal, index);
    return null_;
  }
  if (trace.enabled(8)) trace(8, traces_.decoded, (*entry)->toStrep());
  return *entry;
}

bool VelaTableHashHelper::rowSound(const U32* image) const {
  return VelaSwitch::parityU32Array(image, parityWords_) == 0;
}

void VelaTableHashHelper::checkRows(const HashBaseCuckooEntry& sample) const {
  const auto pack = [&](const HashBaseCuckooEntry& entry, CuckooLocation at) {
    VelaSwitchApi::RowImage image{};
    setHwBuffer(entry, at, reinterpret_cast<U8*>(image.data()));
    return image;
  };
  const VelaSwitchApi::RowCheck check(traces_.handle, layout_);
  const CuckooLocation at{0, sample.getHash(0)};
  VelaSwitchApi::RowImage image = pack(sample, at);
  // The helper of a number that is no table of the family's packs nothing.
  if (image == VelaSwitchApi::RowImage{}) return;
  // Two rows whose numbers differ in parity: words that are not the data's show in one of them.
  for (const U32 row : {0u, 1u}) {
    VelaSwitchApi::RowImage empty = pack(*null_, {0, row});
    check.expect(rowSound(empty.data()), "the parity of an empty row is wrong");
    check.expect(!unpack(empty.data(), {0, row}), "an empty row unpacks to an entry");
  }
  check.expect(rowSound(image.data()), "the parity of an entry's row is wrong");
  const auto entry = unpack(image.data(), at);
  check.expect(bool{entry}, "the row of an entry unpacks to none");
  // What stands behind the control word is not in hardware.
  check.expectSame(image, pack(*entry, at), layout_[layout_.row()].first / 32 + 1);
  expectSame(check, sample, *entry);
}

}  // namespace VelaSwitchTable
