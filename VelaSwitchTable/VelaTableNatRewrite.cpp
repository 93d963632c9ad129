#include "VelaSwitchTable/VelaTableNatRewrite.h"

namespace VelaSwitchTable {

HwIndex NatRewriteFamily::hwIndex(const Key& key) {
  const U32 baseChipPortId = key.baseChipPortId().value();
  ORB_ASSERT_TEXT(baseChipPortId % 2 == 0, "key.baseChipPortId() % 2 == 0");
  if (key.rewriteIndex() >= entriesPerPortPair) return noRow;
  return baseChipPortId / portsPerEgressProcessor * entriesPerPortPair + key.rewriteIndex();
}

VelaSwitch::NatRewriteKey NatRewriteFamily::keyOf(HwIndex index) {
  return {VelaSwitch::ChipPortId(index / entriesPerPortPair * portsPerEgressProcessor),
          static_cast<U16>(index % entriesPerPortPair)};
}

VELA_DIRECT_FAMILY_DEFINE(NatRewrite)

}  // namespace VelaSwitchTable
