#include "VelaSwitchTable/VelaTableHashHelper.h"

namespace VelaSwitchTable {

void VelaTableHashHelper::doInit() {
  ORB_ASSERT(swTable());
  layout_ = makeLayout();
  ORB_ASSERT(layout_.words() <= physical().properties().rowWords);
  null_ = makeNullEntry();
}

U32* VelaTableHashHelper::hwRow(HwIndex index) const {
  return physical().hwTables().front()->image(index);
}

}  // namespace VelaSwitchTable
