#include "DirectBase/TableConstants.h"

#include "Orb/Assert.h"

namespace VelaSwitchTable {

const char* TableConstants::tableName(TableIndex index) {
  switch (index) {
    case TableIndex::hashTest:
      return "HashTest";
    case TableIndex::lpm32:
      return "Lpm32";
    case TableIndex::lpm29:
      return "Lpm29";
    case TableIndex::lpm26:
      return "Lpm26";
    case TableIndex::lpm23:
      return "Lpm23";
    case TableIndex::lpm20:
      return "Lpm20";
    case TableIndex::lpm17:
      return "Lpm17";
    case TableIndex::lpm14:
      return "Lpm14";
    case TableIndex::sg:
      return "SG";
    case TableIndex::natMatch:
      return "NatMatch";
    case TableIndex::natDynMatch:
      return "NatDynMatch";
    case TableIndex::starG:
      return "StarG";
    case TableIndex::aclIndirectCounterHash:
      return "AclIndirectCounterHash";
    case TableIndex::aclHash:
      return "AclHash";
    case TableIndex::lpm11:
      return "Lpm11";
    case TableIndex::l3FloodArp:
      return "L3FloodArp";
    case TableIndex::l3FloodBitmap:
      return "L3FloodBitmap";
    case TableIndex::l3Lag:
      return "L3Lag";
    case TableIndex::natRewrite:
      return "NatRewrite";
    case TableIndex::vlanMembership:
      return "VlanMembership";
    case TableIndex::nativeVlan:
      return "NativeVlan";
    case TableIndex::portConfig:
      return "PortConfig";
    case TableIndex::l2Control:
      return "L2Control";
    case TableIndex::lagHashControl:
      return "LagHashControl";
    case TableIndex::floodSet:
      return "FloodSet";
    case TableIndex::lagGroup:
      return "LagGroup";
    case TableIndex::lagLookUp:
      return "LagLookUp";
    case TableIndex::lagMembership:
      return "LagMembership";
    case TableIndex::copp:
      return "Copp";
    case TableIndex::vlanGroup:
      return "VlanGroup";
    case TableIndex::macVlan:
      return "MacVlan";
    case TableIndex::rxPortMirror:
      return "RxPortMirror";
    case TableIndex::protocolRemap:
      return "ProtocolRemap";
  }
  ORB_ASSERT_TEXT(false, "tableName");
  return "";
}

}  // namespace VelaSwitchTable
