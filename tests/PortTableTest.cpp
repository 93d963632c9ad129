#include "Support.h"
#include "VelaSwitchTable/VelaTableCopp.h"
#include "VelaSwitchTable/VelaTableFloodSet.h"
#include "VelaSwitchTable/VelaTableL2Control.h"
#include "VelaSwitchTable/VelaTableLagGroup.h"
#include "VelaSwitchTable/VelaTableLagHashControl.h"
#include "VelaSwitchTable/VelaTableLagLookUp.h"
#include "VelaSwitchTable/VelaTableLagMembership.h"
#include "VelaSwitchTable/VelaTableMacVlan.h"
#include "VelaSwitchTable/VelaTableNativeVlan.h"
#include "VelaSwitchTable/VelaTablePortConfig.h"
#include "VelaSwitchTable/VelaTableProtocolRemap.h"
#include "VelaSwitchTable/VelaTableRxPortMirror.h"
#include "VelaSwitchTable/VelaTableVlanGroup.h"

namespace {

using namespace VelaSwitchTable;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using VelaSwitch::ChipPortId;
using VelaSwitch::IngressPortMask;
using VelaTest::Chip;
using VelaTest::errorText;
using VelaTest::fatalText;

/// A started table on a switch of its own.
template <class Table>
struct Rig : Chip {
  explicit Rig(const char* profileName = "vela-48-5.1") : Chip(profileName) { start(*table); }
  Rig(const char* profileName, const VelaDevice::SimulatedSwitch& saved) : Chip(profileName) {
    chip = saved;
    start(*table, Start::restart);
  }
  /// Row writes that the announcement takes.
  template <class Result>
  U64 writes(const typename Table::Key& key, const Result& result) {
    const U64 before = chip.rowWrites();
    table->entryIs(key, result);
    return chip.rowWrites() - before;
  }
  const char* name() const {
    return VelaSwitchTable::TableConstants::tableName(Table::Family::traits.index);
  }
  std::vector<U32> words(U32 hwTable, U32 index) { return row(name(), 0, hwTable, index); }

  Orb::Ptr<Table> table = Orb::make<Table>("table");
};

TEST(NativeVlan, tagsAreInBothRegistersOfThePort) {
  Rig<NativeVlanTable> rig;
  EXPECT_THAT(rig.words(0, 7), ElementsAre(1)) << "VLAN 1 unless told otherwise";
  EXPECT_EQ(rig.writes({ChipPortId(7)}, NativeVlanResult{Bridging::VlanId(100), U8{1}, U8{5}}), 2u);
  EXPECT_EQ(rig.writes({ChipPortId(7)}, NativeVlanResult{Bridging::VlanId(100), U8{1}, U8{5}}), 0u);
  EXPECT_EQ(rig.chip.registerValue("egress/port[7]/vlan_tci"), 45156u);
  EXPECT_EQ(rig.chip.registerValue("pipeline[0]/port[7]/default_vlan"), 45156u);
  rig.table->entryIs({ChipPortId(30)}, {Bridging::VlanId(4094), U8{0}, U8{7}});
  EXPECT_EQ(rig.chip.registerValue("pipeline[1]/port[30]/default_vlan"), 0xeffeu);
  EXPECT_EQ(rig.path.nativeVlan(7)->pcp(), 5);
  EXPECT_EQ((NativeVlanResult{Bridging::VlanId(100), U8{1}, U8{5}}.resultString()),
            "vlan: 100 dei:0x1 pcp:0x5");
}

TEST(PortConfig, modesAndFlags) {
  Rig<PortConfigTable> rig;
  rig.table->entryIs({ChipPortId(0)}, {PortMode::access, true, false});
  rig.table->entryIs({ChipPortId(47)}, {PortMode::qinq, true, true});
  EXPECT_EQ(rig.chip.registerValue("egress/port[0]/cfg"), 5u);
  EXPECT_EQ(rig.chip.registerValue("egress/port[47]/vlan_cfg"), 14u);
  EXPECT_EQ(rig.path.portConfig(47)->portMode(), "qinq");
  rig.table->entryDel({ChipPortId(47)});
  EXPECT_EQ(rig.chip.registerValue("egress/port[47]/cfg"), 0u);
  EXPECT_EQ((PortConfigResult{PortMode::qinq, true, false}.resultString()),
            "portMode:qinq   txDisabled:true  l2ForwardingDisabled:false");
  EXPECT_EQ(Orb::fromText<PortConfigResult>(Orb::text(PortConfigResult{PortMode::access})),
            PortConfigResult{PortMode::access});
}

TEST(L2Control, flags) {
  Rig<L2ControlTable> rig;
  EXPECT_EQ(rig.writes({ChipPortId(25)}, L2ControlResult{false, false, true}), 1u);
  EXPECT_EQ(rig.chip.registerValue("pipeline[1]/port[25]/l2_control"), 4u);
  rig.table->entryDel({ChipPortId(25)});
  EXPECT_EQ(rig.chip.registerValue("pipeline[1]/port[25]/l2_control"), 0u);
  EXPECT_EQ(errorText([] { ChipPortId(50); }),
            "VelaSwitch::ChipPortId::value < VelaSwitch::ChipPortId::min or > "
            "VelaSwitch::ChipPortId::null not allowed");
}

TEST(LagHashControl, seedAndFlags) {
  Rig<LagHashControlTable> rig;
  const auto word = [&](const LagHashControlResult& result) {
    rig.table->entryIs({ChipPortId(3)}, result);
    return rig.chip.registerValue("pipeline[0]/port[3]/lhash_ctl");
  };
  EXPECT_EQ(word({true, false, true, U8{63}}), 0x1fdu);
  EXPECT_EQ(word({false, false, false, U8{64}}), 0u);
  EXPECT_EQ(word({false, true, false, U8{0}}), 2u);
}

TEST(FloodSet, wholeMasksInEveryTable) {
  Rig<FloodSetTable> rig;
  const FloodSetResult masks{U64{0xF00000000001}, ~U64{0}};
  EXPECT_EQ(rig.writes(Bridging::VlanId(100), masks), 2u);
  for (const U32 table : {0u, 1u}) {
    EXPECT_THAT(rig.words(table, 100),
                ElementsAre(0x00000001, 0xfffff000, 0xffffffff, 0, 0x8000 | 100));
  }
  EXPECT_EQ(rig.path.floodSet(Bridging::VlanId(100))->umcPortMask(), 0xFFFFFFFFFFFF);
  EXPECT_EQ(rig.chip.registerValue("cpu_pipeline[0]/vlan/floodset_ctl"), 0x8000u | 100);
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

  Rig<FloodSetTable> old("vela-20-4.0");
  old.table->entryIs(Bridging::VlanId(4094), {U64{0xFFFFF}, U64{1}});
  EXPECT_THAT(old.words(0, 4094), ElementsAre(0x001fffff, 0, 0, 0, 0x8ffe));
  EXPECT_EQ(old.chip.registerValue("pipeline[0]/processor/floodset_ctl"), 0x8ffeu);
}

TEST(LagGroup, thePortsOwnTableAndTheCpus) {
  Rig<LagGroupTable> rig;
  EXPECT_EQ(rig.writes({ChipPortId(24)}, LagGroupResult{5u}), 2u);
  EXPECT_THAT(rig.words(1, 24), ElementsAre(5, 0x80000001)) << "first port of its table";
  EXPECT_THAT(rig.words(2, 24), ElementsAre(5));
  EXPECT_EQ(rig.chip.registerValue("cpu_pipeline[0]/lag_cpu[0]/lag_group_data0"), 5u);
  EXPECT_EQ(rig.writes({ChipPortId(24)}, LagGroupResult{5u}), 0u);
  rig.table->entryIs({ChipPortId(26)}, {6u});
  EXPECT_THAT(rig.words(1, 26), ElementsAre(6, 0x80000004));
  EXPECT_EQ(rig.path.lagGroup(26)->lagGroupId(), 6u);
  rig.table->entryDel({ChipPortId(26)});
  EXPECT_EQ(rig.path.lagGroup(26)->lagGroupId(), 0u);
  EXPECT_EQ(testing::PrintToString(LagGroupResult{11u}), "0x0b");

  Rig<LagGroupTable> old("vela-48-4.1");
  old.table->entryIs({ChipPortId(0)}, {1u});
  EXPECT_EQ(old.chip.registerValue("pipeline[0]/processor/lag_group_data0"), 1u);
}

/// Each side can be written by itself.
TEST(LagGroup, pipelinesAndCpuApart) {
  Rig<LagGroupTable> rig;
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
  Rig<LagGroupTable> rig;
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
  Rig<LagGroupTable> again("vela-48-5.1", rig.chip);
  EXPECT_EQ(again.table->entry({ChipPortId(1)})->lagGroupId(), 8u);
  EXPECT_EQ(again.table->entry({ChipPortId(2)}), nullptr);
}

TEST(LagLookUp, everyPipelineHasABlockForEachPipe) {
  Rig<LagLookUpTable> rig;
  EXPECT_THAT(rig.words(0, 4), ElementsAre(0xff, 16)) << "all buckets, fifth port of its pipe";
  EXPECT_EQ(rig.writes({ChipPortId(24)}, LagLookUpResult{0x11u}), 3u);
  for (const char* block :
       {"pipeline[0]/lag_lut[1]/", "pipeline[1]/lag_lut[1]/", "cpu_pipeline[0]/lag_lut[1]/"}) {
    EXPECT_EQ(rig.chip.registerValue(std::string(block) + "lag_lut_data0"), 0x11u) << block;
    EXPECT_EQ(rig.chip.registerValue(std::string(block) + "lag_lut_ctl"), 1u) << block;
  }
  EXPECT_EQ(rig.writes({ChipPortId(24)}, LagLookUpResult{0x11u}), 0u);
  rig.table->entryDel({ChipPortId(24)});
  EXPECT_THAT(rig.words(2, 24), ElementsAre(0xff, 1));
  EXPECT_EQ(testing::PrintToString(LagLookUpResult{11u}), "0x0B");
}

TEST(LagMembership, masksAndSelection) {
  Rig<LagMembershipTable> rig;
  LagMembershipResult result(4u);
  result.portIs(ChipPortId(0), true);
  result.portIs(ChipPortId(33), true);
  result.portIs(ChipPortId(34), false);
  EXPECT_EQ(rig.writes({ChipPortId(26)}, result), 2u);
  EXPECT_THAT(rig.words(1, 26), ElementsAre(1, 2, 4)) << "third port of its table";
  EXPECT_THAT(rig.words(2, 26), ElementsAre(1, 2));
  EXPECT_EQ(rig.writes({ChipPortId(26)}, result), 0u);
  EXPECT_THAT(rig.path.lagMembership(26)->port(), ElementsAre(0, 33));
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
      EXPECT_EQ(chip.path.lagMember(ingress, 3, bucket)->portId(), members[bucket % 4]);
    }
  }
  EXPECT_EQ(chip.path.lagMember(0, 4, 0), std::nullopt);
}

TEST(RxPortMirror, rows) {
  Rig<RxPortMirrorTable> rig;
  rig.table->entryIs({ChipPortId(25)}, {IngressPortMask(0x800000000001), true});
  EXPECT_THAT(rig.words(1, 25), ElementsAre(1, 0x00018000, 0x80000002));
  EXPECT_TRUE(rig.path.rxPortMirror(25)->enabled());
  EXPECT_FALSE(rig.path.rxPortMirror(24)->enabled());
}

TEST(MacVlan, rows) {
  Rig<MacVlanTable> rig;
  const auto mac = Orb::fromText<Bridging::EthAddr>("01:00:5e:01:02:03");
  rig.table->entryIs({U16{1023}}, {true, Bridging::VlanIdOrNone(100), mac,
                                   IngressPortMask(0x1000000000003), true, false});
  // 100 | 0x01005e010203 << 12 | mask << 60 | multicast 109 | valid 111 | parity 112
  EXPECT_THAT(rig.words(0, 1023),
              ElementsAre(0x10203064, 0x301005e0, 0x00000000, 0x0000b000, 0x003203ff));
  EXPECT_EQ(rig.path.macVlan(1023)->macAddr(), mac);
  EXPECT_EQ(rig.chip.registerValue("cpu_pipeline[0]/processor_l2/hash_ctl"), 0x003203ffu);
}

TEST(VlanGroup, everyEgressProcessorHasEveryGroup) {
  Rig<VlanGroupTable> rig;
  VlanGroupResult result;
  for (U16 i = 0; i < 8; ++i)
    result.vlanIds.value[i] = Bridging::VlanIdOrNone(i == 7 ? 0 : 100 + i);
  EXPECT_EQ(rig.writes({U8{15}}, result), 24u);
  for (const U32 processor : {0u, 23u}) {
    EXPECT_THAT(rig.words(0, processor * 16 + 15),
                ElementsAre(0x00650064, 0x000043c8, 0x00670066, 0x000043d8, 0x00690068, 0x000043e8,
                            0x0000006a, 0x000043f0));
    EXPECT_THAT(rig.path.vlanGroup(processor, 15)->vlanIds(),
                ElementsAre(100, 101, 102, 103, 104, 105, 106, 0));
  }
  EXPECT_EQ(rig.chip.registerValue("egress/processor[23]/lum_ctl_addr_data"), 0x43f0u);
}

TEST(VlanGroup, everyPairOfWordsHasItsParity) {
  Rig<VlanGroupTable> rig;
  U32* words = rig.chip.find("VlanGroup", 0, 0)->row(5);
  for (U32 pair = 0; pair < 4; ++pair) {
    for (const auto& [word, bit] : {std::pair{2 * pair, 1u}, {2 * pair + 1, 8u}}) {
      words[word] ^= bit;
      rig.table->syncEntries();
      const auto& findings = rig.table->profileConvertorPtr()->auditFindings();
      ASSERT_EQ(findings.size(), 1u);
      EXPECT_TRUE(findings[0].corrupt) << "pair " << pair;
      words[word] ^= bit;
    }
  }
}

TEST(ProtocolRemap, usualClassesUnlessRemapped) {
  Rig<ProtocolRemapTable> rig;
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

TEST(Copp, limitersGoToEveryTable) {
  Rig<CoppTable> rig;
  EXPECT_EQ(rig.writes({U8{6}}, CoppEntry{0u, 0.0f, 150u, 2u}), 3u);
  EXPECT_EQ(rig.chip.registerValue("ingress/rate_limiter[0]/ptp_limit"), 99u | 2u << 20);
  EXPECT_EQ(rig.chip.registerValue("ingress/rate_limiter[1]/ptp_limit"), 99u | 2u << 20);
  EXPECT_EQ(rig.chip.registerValue("cpu_tx_pipeline[0]/rate_limiter/ptp_limit"), 150u | 2u << 20);
  EXPECT_EQ(rig.path.copp(0, 6)->increment(), 99u);

  Rig<CoppTable> oldest("vela-20-4.0");
  EXPECT_EQ(oldest.writes({U8{12}}, CoppEntry{7u, 0.0f, 0u, 0u}), 0u) << "no register";
  EXPECT_EQ(oldest.writes({U8{11}}, CoppEntry{7u, 0.0f, 0u, 0u}), 2u);
  EXPECT_EQ(oldest.chip.registerValue("pipeline[0]/rate_limiter/mac_learn_limit"), 7u);
}

// What was announced is what a cold start finds, without a write; and a flipped bit is found.

template <class Table, class Fill>
void survivesAColdStart(const Fill& fill) {
  for (const auto& profile : VelaSwitch::ProfileInfo::builtIns()) {
    SCOPED_TRACE(profile->name());
    Rig<Table> rig(profile->name().c_str());
    SCOPED_TRACE(rig.name());
    fill(*rig.table, *profile);
    const U64 writes = rig.chip.rowWrites();
    Rig<Table> again(profile->name().c_str(), rig.chip);
    EXPECT_EQ(again.chip.rowWrites(), writes);
    ASSERT_EQ(again.table->entries().keys(), rig.table->entries().keys());
    again.table->entries().forEach([&](const auto& at, const auto& held) {
      if constexpr (requires { Table::Family::announced(held); }) {
        // Registers do not hold the time of a change.
        EXPECT_EQ(Table::Family::announced(held), Table::Family::announced(*rig.table->entry(at)));
      } else {
        EXPECT_EQ(held, *rig.table->entry(at));
      }
    });
    again.table->syncEntries();
    EXPECT_THAT(again.table->profileConvertorPtr()->auditFindings(), IsEmpty());
    const auto& hwTable = *again.table->profileConvertorPtr()->hwTable(0);
    ASSERT_TRUE(again.chip.flipBit(hwTable.busHandle(), hwTable.descriptor().first, 0, 0));
    again.table->syncEntries();
    EXPECT_EQ(again.table->profileConvertorPtr()->auditFindings().size(), 1u);
  }
}

TEST(IndexedTables, surviveAColdStart) {
  VelaTest::Random random;
  const auto eachPort = [](const VelaSwitch::ProfileInfo& profile, auto&& announce) {
    for (U32 port = 0; port < profile.ports(); ++port) announce(ChipPortId(port));
  };
  survivesAColdStart<NativeVlanTable>([&](auto& table, const auto& profile) {
    eachPort(profile, [&](ChipPortId port) {
      table.entryIs({port}, {Bridging::VlanId(2 + random() % 4093), static_cast<U8>(random() % 2),
                             static_cast<U8>(random() % 8)});
    });
  });
  survivesAColdStart<PortConfigTable>([&](auto& table, const auto& profile) {
    eachPort(profile, [&](ChipPortId port) {
      table.entryIs({port}, {static_cast<PortMode>(random() % 3), true, random() % 2 == 0});
    });
  });
  survivesAColdStart<L2ControlTable>([&](auto& table, const auto& profile) {
    eachPort(profile, [&](ChipPortId port) {
      table.entryIs({port}, {random() % 2 == 0, true, random() % 2 == 0});
    });
  });
  survivesAColdStart<LagHashControlTable>([&](auto& table, const auto& profile) {
    eachPort(profile, [&](ChipPortId port) {
      table.entryIs({port}, {true, random() % 2 == 0, false, static_cast<U8>(random() % 64)});
    });
  });
  survivesAColdStart<FloodSetTable>([&](auto& table, const auto& profile) {
    const U64 ports = (U64{1} << profile.ports()) - 1;
    for (U32 vid = 1; vid < 4095; vid += 40) {
      table.entryIs(Bridging::VlanId(vid),
                    {(U64{random()} << 16 | 1) & ports, U64{random()} & ports});
    }
  });
  survivesAColdStart<LagGroupTable>([&](auto& table, const auto& profile) {
    eachPort(profile, [&](ChipPortId port) { table.entryIs({port}, {1 + random() % 60}); });
  });
  survivesAColdStart<LagLookUpTable>([&](auto& table, const auto& profile) {
    eachPort(profile, [&](ChipPortId port) { table.entryIs({port}, {random() << 8 | 1}); });
  });
  survivesAColdStart<LagMembershipTable>([&](auto& table, const auto& profile) {
    eachPort(profile, [&](ChipPortId port) {
      LagMembershipResult result;
      result.portIs(port, true);
      result.portIs(ChipPortId(random() % profile.ports()), true);
      table.entryIs({port}, result);
    });
  });
  survivesAColdStart<RxPortMirrorTable>([&](auto& table, const auto& profile) {
    eachPort(profile, [&](ChipPortId port) {
      table.entryIs({port}, {IngressPortMask(U64{1} << port.value()), true});
    });
  });
  survivesAColdStart<MacVlanTable>([&](auto& table, const auto&) {
    for (U32 row = 0; row < 1024; row += 7) {
      table.entryIs({static_cast<U16>(row)},
                    {true, Bridging::VlanIdOrNone(random() % 4095),
                     Bridging::EthAddr(U64{random()} << 16 | row),
                     IngressPortMask(random() % 0xfffff), random() % 2 == 0, random() % 2 == 0});
    }
  });
  survivesAColdStart<VlanGroupTable>([&](auto& table, const auto&) {
    for (U32 group = 0; group < 16; ++group) {
      VlanGroupResult result;
      for (auto& vlan : result.vlanIds.value) vlan = Bridging::VlanIdOrNone(1 + random() % 4094);
      table.entryIs({static_cast<U8>(group)}, result);
    }
  });
  survivesAColdStart<CoppTable>([&](auto& table, const auto& profile) {
    const bool scale = profile.hwApi() >= VelaSwitch::ProfileHwApi{5u, 1u};
    for (const U8 index : {U8{0}, U8{1}, U8{2}, U8{3}, U8{4}, U8{11}}) {
      const CoppEntryKey at{index};
      table.entryIs(at, CoppEntry::fromCpuHardwareValue(at, 1 + random() % 0x3fffe, scale));
    }
  });
}

}  // namespace
