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

struct Vlans : VelaTest::Chip {
  explicit Vlans(const char* profileName) : Chip(profileName) { start(*table); }
  explicit Vlans(VelaSwitch::ProfileFields fields) : Chip("vela-48-5.1") {
    profile = Orb::make<VelaSwitch::ProfileInfo>(std::move(fields));
    types = Orb::make<VelaSwitchApi::SwTableTypes>(profile, chip);
    start(*table);
  }
  std::vector<U32> row(U32 hwTable, U32 vid) {
    return Chip::row("VlanMembership", 0, hwTable, vid);
  }
  Orb::Ptr<VlanMembershipTable> table = VlanMembershipTableIs("vlans");
};

TEST(VlanMembership, rowsOfFormat2) {
  Vlans chip("vela-20-4.0");
  chip.table->entryIs(vlan(100), example(0xABCDE, 6, true, false));
  EXPECT_THAT(chip.row(0, 100), ElementsAre(0x6ad579bd, 0, 0x8064));
  chip.table->entryDel(vlan(100));
  EXPECT_THAT(chip.row(0, 100), ElementsAre(0x0c200001, 0, 0x8064)) << "the default row";
  EXPECT_EQ(chip.chip.registerValue("pipeline[0]/processor/vlan_ctl"), 0x8064u);
}

TEST(VlanMembership, rowsOfFormat3) {
  Vlans chip("vela-48-4.1");
  chip.table->entryIs(vlan(4094), example(0x800000000001, 6, false, true));
  EXPECT_THAT(chip.row(0, 4094), ElementsAre(1, 0x05168000, 8, 0x8ffe));
  EXPECT_THAT(chip.row(1, 4094), ElementsAre(1, 0x05168000, 8, 0x8ffe));
  EXPECT_THAT(chip.row(0, 1), ElementsAre(0, 0x00610000, 8, 0x8001)) << "a VLAN without an entry";
}

TEST(VlanMembership, rowsOfFormat4) {
  Vlans chip("vela-48-5.1");
  EXPECT_THAT(chip.row(0, 1), ElementsAre(0, 0x00210000, 0x900, 0x8001));
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
  EXPECT_THAT(chip.row(0, 1), ElementsAre(0x0000000f, 0x3f56f000, 0x8d6f, 0x8001));
  EXPECT_THAT(chip.row(1, 1), ElementsAre(0x0000000f, 0x7f56f000, 0x5100, 0x8001));
  EXPECT_EQ(chip.chip.registerValue("ingress/vlan[0]/vlan_ctl"), 0x8001u);
  EXPECT_EQ(chip.chip.registerValue("cpu_pipeline[0]/vlan/vlan_ctl"), 0x8001u);
}

TEST(VlanMembership, vrfBitsFollowTheProfile) {
  Vlans chip("vela-48-32vrf");
  VlanMembershipResult result;
  result.vrfBits = 0x3f;
  result.multicastRoute = true;
  chip.table->entryIs(vlan(1), result);
  EXPECT_THAT(chip.row(0, 1), ElementsAre(0, 0x2fa10000, 0x2400, 0x8001));
}

/// Two tables of 24 ports: each gets its slice, and a change of one port writes one table.
TEST(VlanMembership, eachTableHasItsSliceOfThePorts) {
  VelaSwitch::ProfileFields fields = VelaSwitch::ProfileInfo::builtIn("vela-48-5.1")->fields();
  fields.pipesPerVlanTable = 1u;
  fields.cpuPipeline = false;
  Vlans chip(fields);
  VlanMembershipResult result;
  result.permitMask = 0x800003000001;
  chip.table->entryIs(vlan(7), result);
  EXPECT_THAT(chip.row(0, 7), ElementsAre(0x61000001, 0x00090000, 0, 0x8007));
  EXPECT_THAT(chip.row(1, 7), ElementsAre(0x61800003, 0x00090000, 0, 0x8007));

  const U64 writes = chip.chip.rowWrites();
  result.permitMask = result.permitMask() | 1u << 30;
  chip.table->entryIs(vlan(7), result);
  EXPECT_EQ(chip.chip.rowWrites(), writes + 1);
  chip.table->entryIs(vlan(7), result);
  chip.table->handleEntry(vlan(7));
  EXPECT_EQ(chip.chip.rowWrites(), writes + 1);
  result.permitMask = result.permitMask() | U64{1} << 48;
  chip.table->entryIs(vlan(7), result);
  EXPECT_EQ(chip.chip.rowWrites(), writes + 1) << "port 48 is in no table's range";
}

/// Every VLAN of a random set reads back, through the data path and through a restart.
TEST(VlanMembership, whatIsWrittenIsWhatIsRead) {
  for (const char* profile : {"vela-20-4.0", "vela-48-4.1", "vela-48-5.1", "vela-48-32vrf"}) {
    VelaTest::Random random;
    Vlans chip(profile);
    const bool perPipe = chip.profile->registerFormat().major() >= 4;
    const U64 ports = (U64{1} << chip.profile->ports()) - 1;
    for (U32 vid = 1; vid <= 4094; vid += 1 + random() % 40) {
      VlanMembershipResult result = example((U64{random()} << 32 | random()) & ports, random() % 4,
                                            random() % 2, random() % 2);
      if (perPipe) {
        for (U8 pipe = 0; pipe < 4; ++pipe) {
          if (random() % 2) result.aclIdIs(PipeId(pipe), HwAclId(1 + random() % 15));
          if (random() % 2) result.natIdIs(PipeId(pipe), NatId(2 + random() % 6));
          if (random() % 2) result.natEnableIs(PipeId(pipe), 1);
          if (random() % 2) result.aclEnableIs(PipeId(pipe), 1);
          if (random() % 2) result.aclDefaultPermitIs(PipeId(pipe), true);
        }
      }
      chip.table->entryIs(vlan(vid), result);
      const auto seen = chip.path.vlan(Bridging::VlanId(vid));
      ASSERT_TRUE(seen);
      EXPECT_EQ(seen->permitMask(), result.permitMask());
      EXPECT_EQ(seen->vrfBits(), result.vrfBits());
      EXPECT_EQ(seen->unknownDaToCpu(), true);
      EXPECT_EQ(seen->unicastRoute(), result.unicastRoute());
      EXPECT_EQ(seen->multicastRoute(), result.multicastRoute());
      if (perPipe && result.natId(PipeId(3))) {
        EXPECT_EQ(*seen->natId(PipeId(3)), result.natId(PipeId(3))->value());
      }
    }
    const U64 writes = chip.chip.rowWrites();
    const auto again = VlanMembershipTableIs("again");
    chip.types = Orb::make<VelaSwitchApi::SwTableTypes>(chip.profile, chip.chip);
    chip.start(*again, VelaTest::Chip::Start::restart);
    EXPECT_EQ(chip.chip.rowWrites(), writes) << profile;
    ASSERT_EQ(again->entries().size(), chip.table->entries().size());
    for (const auto& key : chip.table->entries().keys()) {
      // What is only in the CPU pipeline's row is not read back.
      VlanMembershipResult result = *chip.table->entry(key);
      for (const U8 pipe : {U8{2}, U8{3}}) {
        result.aclIdDel(PipeId(pipe));
        result.aclEnableDel(PipeId(pipe));
        result.aclDefaultPermitDel(PipeId(pipe));
        result.natIdDel(PipeId(pipe));
        result.natEnableDel(PipeId(pipe));
      }
      ASSERT_EQ(*again->entry(key), result) << Orb::text(key);
    }
  }
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
