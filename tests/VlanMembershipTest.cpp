#include <sstream>

#include "Support.h"
#include "VelaSwitchTable/VelaTableVlanMembership.h"

namespace {

using namespace VelaSwitchTable;
using testing::ElementsAre;
using testing::StartsWith;
using VelaSwitch::HwAclId;
using VelaSwitch::NatId;
using VelaSwitch::PipeId;
using VelaTest::errorText;
using VelaTest::fatalText;

VlanMembershipKey vlan(U32 vid) { return {vid}; }

/// Flags in an order that no shift or swap leaves alone.
VlanMembershipResult example(U64 permitMask, U8 vrf, bool unicast, bool multicast) {
  VlanMembershipResult result;
  result.permitMask = permitMask;
  result.learnToCpu = false;
  result.unknownMulticastToCpu = true;
  result.multicastJoinToCpu = true;
  result.broadcastToCpu = false;
  result.unknownDaToCpu = true;
  result.multicastJoinToEgress = false;
  result.vrfBits = vrf;
  result.unicastRoute = unicast;
  result.multicastRoute = multicast;
  return result;
}

using Vlans = VelaTest::Started<VlanMembershipTable>;

TEST(VlanMembership, rowsOfFormat2) {
  Vlans chip("vela-20-4.0");
  chip.table->entryIs(vlan(100), example(0xABCDE, 6, true, false));
  EXPECT_THAT(chip.words(0, 100), ElementsAre(0x6ad579bd, 0, 0x8064));
  chip.table->entryDel(vlan(100));
  EXPECT_THAT(chip.words(0, 100), ElementsAre(0x0c200001, 0, 0x8064)) << "the default row";
  EXPECT_EQ(chip.chip.registerValue("pipeline[0]/processor/vlan_ctl"), 0x8064u);
}

TEST(VlanMembership, rowsOfFormat3) {
  Vlans chip("vela-48-4.1");
  chip.table->entryIs(vlan(4094), example(0x800000000001, 6, false, true));
  EXPECT_THAT(chip.words(0, 4094), ElementsAre(1, 0x05168000, 8, 0x8ffe));
  EXPECT_THAT(chip.words(1, 4094), ElementsAre(1, 0x05168000, 8, 0x8ffe));
  EXPECT_THAT(chip.words(0, 1), ElementsAre(0, 0x00610000, 8, 0x8001)) << "a VLAN without an entry";
}

TEST(VlanMembership, rowsOfFormat4) {
  Vlans chip("vela-48-5.1");
  EXPECT_THAT(chip.words(0, 1), ElementsAre(0, 0x00210000, 0x900, 0x8001));
  VlanMembershipResult result = example(0xF0000000000F, 6, true, true);
  result.aclIdIs(PipeId(0), HwAclId(3));
  result.aclIdIs(PipeId(1), HwAclId(15));
  result.aclIdIs(PipeId(2), HwAclId(7));
  result.aclEnableIs(PipeId(1), 1);
  result.aclDefaultPermitIs(PipeId(0), true);
  result.natIdIs(PipeId(0), NatId(5));
  result.natIdIs(PipeId(3), NatId(2));
  result.natEnableIs(PipeId(1), 1);
  result.natEnableIs(PipeId(2), 1);
  chip.table->entryIs(vlan(1), result);
  EXPECT_THAT(chip.words(0, 1), ElementsAre(0x0000000f, 0x3f56f000, 0x8d6f, 0x8001));
  EXPECT_THAT(chip.words(1, 1), ElementsAre(0x0000000f, 0x7f56f000, 0x5100, 0x8001));
  EXPECT_EQ(chip.chip.registerValue("ingress/vlan[0]/vlan_ctl"), 0x8001u);
  EXPECT_EQ(chip.chip.registerValue("cpu_pipeline[0]/vlan/vlan_ctl"), 0x8001u);
}

TEST(VlanMembership, vrfBitsFollowTheProfile) {
  Vlans chip("vela-48-32vrf");
  VlanMembershipResult result;
  result.vrfBits = 0x3f;
  result.multicastRoute = true;
  chip.table->entryIs(vlan(1), result);
  EXPECT_THAT(chip.words(0, 1), ElementsAre(0, 0x2fa10000, 0x2400, 0x8001));
}

/// Two tables of 24 ports: each gets its slice, and a change of one port writes one table.
TEST(VlanMembership, eachTableHasItsSliceOfThePorts) {
  VelaSwitch::ProfileFields fields = VelaSwitch::ProfileInfo::builtIn("vela-48-5.1")->fields();
  fields.pipesPerVlanTable = 1u;
  fields.cpuPipeline = false;
  VelaTest::Chip chip;
  chip.profile = Orb::make<VelaSwitch::ProfileInfo>(std::move(fields));
  chip.types = Orb::make<VelaSwitchApi::SwTableTypes>(chip.profile, chip.chip);
  const auto table = VlanMembershipTableIs("vlans");
  chip.start(*table);
  VlanMembershipResult result;
  result.permitMask = 0x800003000001;
  table->entryIs(vlan(7), result);
  EXPECT_THAT(chip.row("VlanMembership", 0, 0, 7), ElementsAre(0x61000001, 0x00090000, 0, 0x8007));
  EXPECT_THAT(chip.row("VlanMembership", 0, 1, 7), ElementsAre(0x61800003, 0x00090000, 0, 0x8007));

  const U64 writes = chip.chip.rowWrites();
  result.permitMask = result.permitMask() | 1u << 30;
  table->entryIs(vlan(7), result);
  EXPECT_EQ(chip.chip.rowWrites(), writes + 1);
  table->entryIs(vlan(7), result);
  table->handleEntry(vlan(7));
  EXPECT_EQ(chip.chip.rowWrites(), writes + 1);
  result.permitMask = result.permitMask() | U64{1} << 48;
  table->entryIs(vlan(7), result);
  EXPECT_EQ(chip.chip.rowWrites(), writes + 1) << "port 48 is in no table's range";
}

TEST(VlanMembership, textForms) {
  VlanMembershipResult result = example(0xF, 2, true, false);
  result.aclIdIs(PipeId(1), HwAclId(3));
  result.natEnableIs(PipeId(0), 1);
  std::ostringstream out;
  out << result;
  EXPECT_EQ(out.str(),
            "permitMask:0x00000000000f learnToCpu:false unknownMcastToCpu:true "
            "mcastJoinToCpu:true bcastToCpu:false unknownDaToCpu:true mcastJoinToEgress:false "
            "vrfBits:0x2 unicastRoute:true multicastRoute:false AclId:  ( 1,  3) NatEnable:  ( 0, "
            "true)");
  EXPECT_TRUE(result);
  EXPECT_FALSE(VlanMembershipResult{});
  EXPECT_EQ(errorText([] { Orb::fromText<VlanMembershipResult>("x"); }),
            "No String constructor for VlanMembershipResult - has collection");
  EXPECT_EQ(errorText([] { Orb::fromText<VlanMembershipKey>("4095"); }),
            "vid: Bridging::VlanId::value < 1 or > 4094 not allowed");
  EXPECT_EQ(Orb::text(VlanTablePortRange{1u, 2u, 3u}),
            "Value('VelaSwitchTable::VlanTablePortRange', ** {'tableId': 1, 'min': 2, 'max': 3})");
}

TEST(VlanMembership, internalErrorsHaveTheirTexts) {
  Vlans chip("vela-48-5.1");
  auto& convertor =
      static_cast<VlanMembershipConvertorLayer2All&>(*chip.table->profileConvertorPtr());
  EXPECT_EQ(convertor.numPortsOfTable(0), 48);
  EXPECT_EQ(convertor.numPortsOfTable(7), 1) << "a table without a range";
  convertor.portRangeOfTableIs(VlanTablePortRange{7u, 0u, 255u});
  EXPECT_THAT(fatalText([&] { convertor.numPortsOfTable(7); }),
              StartsWith("ports <= std::numeric_limits< U8 >::max()"));
  EXPECT_TRUE(convertor.isCpuPipeline(1, 2));
  EXPECT_FALSE(convertor.isCpuPipeline(0, 2));

  // The pipes of a table must exist.
  U32 words[4]{};
  EXPECT_EQ(errorText([&] {
              setBaseHwBuffer(7, 48, 3, {}, 1, words, VelaSwitch::RegisterFormatVersion{4u, 0u});
            }),
            "VelaSwitch::PipeId::value < VelaSwitch::PipeId::min or > VelaSwitch::PipeId::null "
            "not allowed");
  EXPECT_EQ(errorText([&] { convertor.initHwEntries(true, 4095); }), "");
}

}  // namespace
