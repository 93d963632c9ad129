#include "Support.h"
#include "VelaSwitchTable/VelaTableCopp.h"
#include "VelaSwitchTable/VelaTableFloodSet.h"
#include "VelaSwitchTable/VelaTableL2Control.h"
#include "VelaSwitchTable/VelaTableLagGroup.h"
#include "VelaSwitchTable/VelaTableLagHashControl.h"
#include "VelaSwitchTable/VelaTableLagLookUp.h"
#include "VelaSwitchTable/VelaTableLagMembership.h"
#include "VelaSwitchTable/VelaTableNativeVlan.h"
#include "VelaSwitchTable/VelaTablePortConfig.h"
#include "VelaSwitchTable/VelaTableProtocolRemap.h"
#include "VelaSwitchTable/VelaTableVlanGroup.h"
#include "device/PortLookup.h"
#include "device/VlanLookup.h"

namespace {

using namespace VelaSwitchTable;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using VelaSwitch::ChipPortId;
using VelaTest::Chip;
using VelaTest::errorText;
using VelaTest::fatalText;
using VelaTest::Started;

TEST(NativeVlan, tagsAreInBothRegistersOfThePort) {
  Started<NativeVlanTable> rig;
  EXPECT_THAT(rig.words(0, 7), ElementsAre(1)) << "VLAN 1 unless told otherwise";
  const NativeVlanResult tag{Bridging::VlanId(100), U8{1}, U8{5}};
  EXPECT_EQ(rig.writes({ChipPortId(7)}, tag), 2u);
  EXPECT_EQ(rig.writes({ChipPortId(7)}, tag), 0u);
  EXPECT_EQ(nativeVlan(rig.path, 7)->pcp(), 5);
  EXPECT_EQ(tag.resultString(), "vlan: 100 dei:0x1 pcp:0x5");
}

TEST(PortConfig, modesAndFlags) {
  Started<PortConfigTable> rig;
  rig.table->entryIs({ChipPortId(0)}, {PortMode::access, true, false});
  rig.table->entryIs({ChipPortId(47)}, {PortMode::qinq, true, true});
  EXPECT_EQ(rig.chip.registerValue("egress/port[0]/cfg"), 5u);
  EXPECT_EQ(rig.chip.registerValue("egress/port[47]/vlan_cfg"), 14u);
  EXPECT_EQ(portConfig(rig.path, 47)->portMode(), "qinq");
  rig.table->entryDel({ChipPortId(47)});
  EXPECT_EQ(rig.chip.registerValue("egress/port[47]/cfg"), 0u);
  EXPECT_EQ((PortConfigResult{PortMode::qinq, true, false}.resultString()),
            "portMode:qinq   txDisabled:true  l2ForwardingDisabled:false");
  EXPECT_EQ(Orb::fromText<PortConfigResult>(Orb::text(PortConfigResult{PortMode::access})),
            PortConfigResult{PortMode::access});
}

TEST(L2Control, flags) {
  Started<L2ControlTable> rig;
  EXPECT_EQ(rig.writes({ChipPortId(25)}, L2ControlResult{false, false, true}), 1u);
  EXPECT_EQ(rig.chip.registerValue("pipeline[1]/port[25]/l2_control"), 4u);
  rig.table->entryDel({ChipPortId(25)});
  EXPECT_EQ(rig.chip.registerValue("pipeline[1]/port[25]/l2_control"), 0u);
}

TEST(LagHashControl, seedAndFlags) {
  Started<LagHashControlTable> rig;
  const auto word = [&](const LagHashControlResult& result) {
    rig.table->entryIs({ChipPortId(3)}, result);
    return rig.chip.registerValue("pipeline[0]/port[3]/lhash_ctl");
  };
  EXPECT_EQ(word({true, false, true, U8{63}}), 0x1fdu);
  EXPECT_EQ(word({false, false, false, U8{64}}), 0u);
  EXPECT_EQ(word({false, true, false, U8{0}}), 2u);
}

TEST(FloodSet, wholeMasksInEveryTable) {
  Started<FloodSetTable> rig;
  const FloodSetResult masks{U64{0xF00000000001}, ~U64{0}};
  EXPECT_EQ(rig.writes(Bridging::VlanId(100), masks), 2u);
  rig.table->entryDel(Bridging::VlanId(100));
  EXPECT_THAT(rig.words(0, 100), ElementsAre(0, 0, 0, 0, 0x8000 | 100));
  const Bridging::VlanId vid(7);
  rig.table->entryIs(FloodSetEntry{vid, masks, Orb::Seconds(3)});
  rig.table->entryIs(FloodSetEntry{vid, masks, Orb::Seconds(4)});
  EXPECT_EQ(rig.table->entry(vid)->lastUpdate().value(), 3) << "nothing changed at 4";
  rig.table->clockIs([] { return Orb::Seconds(5); });
  rig.table->entryIs(vid, FloodSetResult{U64{1}, U64{0}});
  EXPECT_EQ(rig.table->entry(vid)->lastUpdate().value(), 5);
  rig.table->entryDel(vid);
  EXPECT_EQ(rig.table->entry(vid), nullptr);
  EXPECT_EQ(Orb::text(FloodSetEntry{vid, FloodSetResult{U64{1}, U64{2}}, Orb::Seconds(3)}),
            "Value('VelaSwitchTable::FloodSetEntry', ** {'key': 7, 'result': "
            "Value('VelaSwitchTable::FloodSetResult', ** {'uucPortMask': 1, 'umcPortMask': 2}), "
            "'lastUpdate': 3})");
  EXPECT_EQ(masks.resultString(), "uucPortMask:0xf00000000001 umcPortMask:0xffffffffffffffff");
}

TEST(LagGroup, thePortsOwnTableAndTheCpus) {
  Started<LagGroupTable> rig;
  EXPECT_EQ(rig.writes({ChipPortId(24)}, LagGroupResult{5u}), 2u);
  EXPECT_THAT(rig.words(1, 24), ElementsAre(5, 0x80000001)) << "first port of its table";
  EXPECT_EQ(rig.writes({ChipPortId(24)}, LagGroupResult{5u}), 0u);
  rig.table->entryIs({ChipPortId(26)}, {6u});
  EXPECT_EQ(lagGroup(rig.path, 26)->lagGroupId(), 6u);
  rig.table->entryDel({ChipPortId(26)});
  EXPECT_EQ(lagGroup(rig.path, 26)->lagGroupId(), 0u);
  EXPECT_EQ(testing::PrintToString(LagGroupResult{11u}), "0x0b");
}

/// Each side can be written by itself.
TEST(LagGroup, pipelinesAndCpuApart) {
  Started<LagGroupTable> rig;
  auto& convertor = static_cast<LagGroupConvertorLayer2All&>(rig.table->profileConvertor());
  EXPECT_TRUE(convertor.ingressPipelineHwTableEntryIs({ChipPortId(24)}, LagGroupResult{5u}));
  EXPECT_THAT(rig.words(1, 24), ElementsAre(5, 0x80000001));
  EXPECT_THAT(rig.words(2, 24), ElementsAre(0));
  EXPECT_TRUE(convertor.cpuPipelineHwTableEntryIs({ChipPortId(24)}, LagGroupResult{6u}));
  EXPECT_THAT(rig.words(1, 24), ElementsAre(5, 0x80000001));
  EXPECT_THAT(rig.words(2, 24), ElementsAre(6));
}

/// A row that says no group is neither taken over nor found fault with.
TEST(LagGroup, noGroupInHardwareIsSkipped) {
  Started<LagGroupTable> rig;
  rig.table->entryIs({ChipPortId(1)}, {9u});
  for (const U32 each : {0u, 2u}) {
    const auto& hwTable = *rig.table->profileConvertorPtr()->hwTable(each);
    for (U32 bit = 0; bit < 6; ++bit) rig.chip.flipBit(hwTable.busHandle(), 2, 0, bit);
  }
  rig.table->syncEntries();
  EXPECT_THAT(rig.table->profileConvertorPtr()->auditFindings(), IsEmpty());
  for (const U32 each : {0u, 2u}) {
    rig.chip.flipBit(rig.table->profileConvertorPtr()->hwTable(each)->busHandle(), 1, 0, 0);
  }
  rig.table->syncEntries();
  EXPECT_EQ(rig.table->profileConvertorPtr()->auditFindings().size(), 2u);
  EXPECT_TRUE(rig.table->hwInconsistentEntry({ChipPortId(1)}));
  const auto again = LagGroupTableIs("again");
  rig.start(*again, Chip::Start::restart);
  EXPECT_EQ(again->entry({ChipPortId(1)})->lagGroupId(), 8u);
  EXPECT_EQ(again->entry({ChipPortId(2)}), nullptr);
}

TEST(LagLookUp, everyPipelineHasABlockForEachPipe) {
  Started<LagLookUpTable> rig;
  EXPECT_THAT(rig.words(0, 4), ElementsAre(0xff, 16)) << "all buckets, fifth port of its pipe";
  EXPECT_EQ(rig.writes({ChipPortId(24)}, LagLookUpResult{0x11u}), 3u);
  EXPECT_EQ(rig.writes({ChipPortId(24)}, LagLookUpResult{0x11u}), 0u);
  rig.table->entryDel({ChipPortId(24)});
  EXPECT_THAT(rig.words(2, 24), ElementsAre(0xff, 1));
  EXPECT_EQ(testing::PrintToString(LagLookUpResult{11u}), "0x0B");
}

TEST(LagMembership, masksAndSelection) {
  Started<LagMembershipTable> rig;
  LagMembershipResult result(4u);
  result.portIs(ChipPortId(0), true);
  result.portIs(ChipPortId(33), true);
  result.portIs(ChipPortId(34), false);
  EXPECT_EQ(rig.writes({ChipPortId(26)}, result), 2u);
  EXPECT_EQ(rig.writes({ChipPortId(26)}, result), 0u);
  EXPECT_THAT(lagMembership(rig.path, 26)->port(), ElementsAre(0, 33));
  EXPECT_EQ(Orb::text(LagMembershipResult(4u)),
            "Value('VelaSwitchTable::LagMembershipResult', ** {'port': {}, 'lagGroupId': 4})");
  EXPECT_LT(LagMembershipResult(4u), LagMembershipResult(5u));
  EXPECT_EQ(errorText([] { Orb::fromText<LagMembershipResult>("x"); }),
            "No String constructor for LagMembershipResult - has collection");
}

/// A LAG of four ports over two pipes: every bucket picks one member, from wherever the frame came.
TEST(Lags, bucketsPickMembers) {
  Chip chip;
  const auto groups = LagGroupTableIs("group");
  const auto lookUp = LagLookUpTableIs("lookup");
  chip.start(*groups);
  chip.start(*lookUp);
  const U32 members[] = {2, 11, 24, 47};
  for (U32 i = 0; i < 4; ++i) {
    groups->entryIs({ChipPortId(members[i])}, {3u});
    lookUp->entryIs({ChipPortId(members[i])}, {0x11u << i});
  }
  for (const U32 ingress : {0u, 40u}) {
    for (U32 bucket = 0; bucket < 8; ++bucket) {
      EXPECT_EQ(lagMember(chip.path, ingress, 3, bucket)->portId(), members[bucket % 4]);
    }
  }
  EXPECT_EQ(lagMember(chip.path, 0, 4, 0), std::nullopt);
}

TEST(VlanGroup, everyEgressProcessorHasEveryGroup) {
  Started<VlanGroupTable> rig;
  VlanGroupResult result;
  for (U16 i = 0; i < 7; ++i) result.vlanIds.value[i] = Bridging::VlanIdOrNone(100 + i);
  EXPECT_EQ(rig.writes({U8{15}}, result), 24u);
  for (const U32 processor : {0u, 23u}) {
    EXPECT_THAT(rig.words(0, processor * 16 + 15),
                ElementsAre(0x00650064, 0x000043c8, 0x00670066, 0x000043d8, 0x00690068, 0x000043e8,
                            0x0000006a, 0x000043f0));
    EXPECT_THAT(vlanGroup(rig.path, processor, 15)->vlanIds(),
                ElementsAre(100, 101, 102, 103, 104, 105, 106, 0));
  }
  EXPECT_EQ(rig.chip.registerValue("egress/processor[23]/lum_ctl_addr_data"), 0x43f0u);
}

TEST(ProtocolRemap, usualClassesUnlessRemapped) {
  Started<ProtocolRemapTable> rig;
  EXPECT_EQ(rig.table->remappedProtocol(6), 1);
  EXPECT_EQ(rig.table->remappedProtocol(17), 2);
  EXPECT_EQ(rig.table->remappedProtocol(1), 3);
  EXPECT_EQ(rig.table->remappedProtocol(47), 0);
  rig.table->entryIs({U8{47}}, {U8{7}});
  EXPECT_EQ(rig.table->remappedProtocol(47), 7);
  EXPECT_EQ(rig.chip.rowWrites(), 0u);
}

// Control-plane policing.

TEST(Copp, registerValues) {
  const CoppEntryKey interval{U8{0}};
  const CoppEntryKey limiter{U8{4}};
  const auto tokens = [](U32 increment, U32 scale) {
    return CoppEntry{0u, 0.0f, increment, scale};
  };
  const auto raw = [](U32 result) { return CoppEntry{result, 0.0f, 0u, 0u}; };
  EXPECT_EQ(tokens(150, 0).toHardwareValue(limiter, false, 2, true), 99u);
  EXPECT_EQ(tokens(1, 0).toHardwareValue(limiter, false, 2, true), 1u);
  EXPECT_EQ(tokens(0, 0).toHardwareValue(limiter, false, 2, true), 1u);
  EXPECT_EQ(tokens(0, 0).toHardwareValue(limiter, true, 2, true), 0u);
  EXPECT_EQ(tokens(300, 5).toHardwareValue(limiter, false, 3, true), 150u | 5u << 20);
  EXPECT_EQ(tokens(300, 13).toHardwareValue(limiter, false, 1, true), 300u | 5u << 20);
  EXPECT_EQ(tokens(0x40001, 0).toHardwareValue(limiter, true, 2, true), 1u);
  EXPECT_EQ(tokens(0xFFFFFFFF, 7).toHardwareValue(limiter, false, 1, true), 0x73FFFFu);
  EXPECT_EQ(raw(0x3FFFF).toHardwareValue(limiter, false, 2, false), 0x3FFFFu);
  EXPECT_EQ(raw(0).toHardwareValue(limiter, false, 2, false), 0u);
  EXPECT_EQ(raw(1).toHardwareValue(limiter, false, 2, false), 1u);
  EXPECT_EQ(raw(1000).toHardwareValue(limiter, false, 2, false), 660u);
  EXPECT_EQ(raw(1000).toHardwareValue(limiter, false, 1, false), 1000u);
  EXPECT_EQ(raw(1000).toHardwareValue(limiter, true, 4, false), 1000u);
  EXPECT_EQ(raw(77).toHardwareValue(interval, false, 4, false), 77u);
  const auto seconds = [](float value) { return CoppEntry{0u, value, 0u, 0u}; };
  EXPECT_EQ(seconds(12.9f).toHardwareValue(interval, false, 2, true), 12u);
  EXPECT_EQ(seconds(3e9f).toHardwareValue(interval, false, 2, true), 3000000000u);
  EXPECT_EQ(seconds(-1.0f).toHardwareValue(interval, false, 2, true), 0u);
  EXPECT_EQ(seconds(1e20f).toHardwareValue(interval, false, 2, true), ~0u);
  EXPECT_THAT(fatalText([&] { raw(1).toHardwareValue(limiter, false, 0, true); }),
              HasSubstr("numPipelines"));
  EXPECT_EQ(CoppEntry::pipelineScalingPercent(0), 100u);
  EXPECT_EQ(CoppEntry::fromCpuHardwareValue(limiter, 0x73FFFF, true), tokens(0x3FFFF, 7));
  EXPECT_EQ(CoppEntry::fromCpuHardwareValue(interval, 3000000000u, true), seconds(3e9f));
  EXPECT_EQ(CoppEntry::fromCpuHardwareValue(interval, 5, false), raw(5));
}

TEST(Copp, registersDependOnTheHardwareInterface) {
  const auto name = [](const auto& mapping, U32 index) {
    const auto registers = mapping->getRegister(index);
    return registers.empty() ? std::string() : registers.addresses().at(0);
  };
  const auto oldest = CoppHwTableRegisterMappingIs("p/", "Copp");
  const auto api41 = CoppHwTableRegisterMappingHwApi41Is("p/", "Copp");
  const auto api51 = CoppHwTableRegisterMappingHwApi51Is("p/", "Copp");
  EXPECT_EQ(name(oldest, 4), "p/packet_forwarding_limit");
  EXPECT_EQ(name(api41, 4), "p/l2_packet_limit");
  EXPECT_EQ(name(api51, 4), "p/l2_packet_limit");
  EXPECT_EQ(name(oldest, 12), "");
  EXPECT_EQ(name(api41, 12), "p/default_limit");
  for (const U32 index : {5u, 6u}) {
    EXPECT_EQ(name(oldest, index) + name(api41, index), "");
    EXPECT_NE(name(api51, index), "");
  }
  EXPECT_EQ(name(api51, 13), "");
}

}  // namespace
