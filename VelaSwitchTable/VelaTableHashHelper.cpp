#include "VelaSwitchTable/VelaTableHashHelper.h"

namespace VelaSwitchTable {

void VelaTableHashHelper::doInit() {
  ORB_ASSERT(swTable());
  layout_ = makeLayout();
  ORB_ASSERT(layout_.words() <= physical().properties().rowWords);
  null_ = makeNullEntry();
}

U32* VelaTableHashHelper::hwRow(HwIndex index) const {
  return physical().decodedTable().image(index);
}

}  // namespace VelaSwitchTable
