#include "VelaSwitchTable/VelaTableHashHelper.h"

#include "VelaSwitch/Parity.h"
#include "VelaSwitchTable/family/Family.h"

namespace VelaSwitchTable {

void VelaTableHashHelper::doInit() {
  ORB_ASSERT(swTable());
  layout_ = makeLayout();
  ORB_ASSERT(layout_.words() <= physical().properties().rowWords);
  null_ = makeNullEntry();
}

void VelaTableHashHelper::setStaticBuffer(CuckooLocation location, U8* image) const {
  ORB_ASSERT_TEXT(swTable(), "swTable()");
  RowWriter(layout_, image, traces_.handle, "setStaticBuffer").setPlace(location.row, location.way);
}

Orb::Ptr<HashBaseCuckooEntry> VelaTableHashHelper::decodeHwEntry(HwIndex index) const {
  ORB_ASSERT_TEXT(swTable(), "swTable()");
  const Trace::Handle& trace = traces_.handle;
  if (!hasRow(index)) {
    trace(3, "row ", index, noRowText);
    return null_;
  }
  const auto read = [&] {
    return rowSound(hwRow(index)) ? unpack(hwRow(index), location(index)) : nullptr;
  };
  const auto entry =
      readSafely(trace, "not decoding entry: row ", index, Orb::Ptr<HashBaseCuckooEntry>(), read);
  if (!entry) {
    trace(9, "not decoding entry: row ", index);
    return null_;
  }
  if (trace.enabled(8)) trace(8, traces_.decoded, entry->toStrep());
  return entry;
}

bool VelaTableHashHelper::rowSound(const U32* image) const {
  return VelaSwitch::parityU32Array(image, parityWords_) == 0;
}

U32* VelaTableHashHelper::hwRow(HwIndex index) const {
  return physical().decodedTable().image(index);
}

}  // namespace VelaSwitchTable
