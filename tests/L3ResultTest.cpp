#include "Support.h"
#include "VelaSwitchTable/VelaTableL3FloodArp.h"
#include "VelaSwitchTable/VelaTableL3FloodBitmap.h"
#include "VelaSwitchTable/VelaTableL3Lag.h"
#include "VelaSwitchTable/VelaTableNatRewrite.h"

namespace {

using namespace VelaSwitchTable;
using testing::ElementsAre;
using testing::HasSubstr;
using VelaSwitch::ChipPortId;
using VelaSwitch::IngressPortMask;
using VelaSwitch::L3FloodId;
using VelaSwitch::L3LagIndex;
using VelaSwitch::NatRewriteKey;
using VelaTest::Chip;
using VelaTest::errorText;
using VelaTest::fatalText;

constexpr U64 ports48 = 0x1800000000003;
constexpr U64 ports20 = 0x1f0f07;

TEST(L3FloodArp, rowsAreBitExactOnEveryEgressProcessor) {
  Chip chip;
  const auto table = L3FloodArpTableIs("arp");
  chip.start(*table);
  const auto mac = Orb::fromText<Bridging::EthAddr>("02:1c:73:aa:bb:cd");
  table->entryIs(L3FloodId(0), {mac, Bridging::VlanIdOrNone(100)});
  table->entryIs(L3FloodId(127), {mac, Bridging::VlanIdOrNone(4094)});
  for (const U32 processor : {0u, 23u}) {
    EXPECT_THAT(chip.row("L3FloodArp", 0, processor, 0),
                ElementsAre(0x021c73aa, 0x4808, 0x021c73aa, 0x6808, 0xbbcd0064, 0x4810, 0xbbcd0064,
                            0x6810));
    EXPECT_THAT(chip.row("L3FloodArp", 0, processor, 127),
                ElementsAre(0x021c73aa, 0x57e8, 0x021c73aa, 0x77e8, 0xbbcd0ffe, 0x57f0, 0xbbcd0ffe,
                            0x77f0));
  }
  EXPECT_EQ(table->profileConvertorPtr()->hwTables().size(), 24u);
  EXPECT_EQ(chip.path.l3FloodArp(127)->ethAddr(), mac);
  table->entryDel(L3FloodId(127));
  EXPECT_THAT(chip.row("L3FloodArp", 0, 0, 127),
              ElementsAre(0, 0x57e0, 0, 0x77e0, 0, 0x57f0, 0, 0x77f0));
}

TEST(L3FloodArp, idsAndVlansOutOfRangeAreRefused) {
  EXPECT_EQ(errorText([] { L3FloodArpFamily::keyOf(200); }),
            "VelaSwitch::L3FloodId::value < VelaSwitch::L3FloodId::min or > "
            "VelaSwitch::L3FloodId::null not allowed");
  Chip chip;
  const auto table = L3FloodArpTableIs("arp");
  chip.start(*table);
  auto& convertor = static_cast<L3FloodArpConvertor&>(*table->profileConvertorPtr());
  U32* row = convertor.hwTable(0)->image(5);
  row[4] = 4095;
  EXPECT_EQ(convertor.decodeHwEntry(5), nullptr);
  EXPECT_THAT(L3FloodArpEntry(L3FloodId(3)).toStrep(),
              testing::AllOf(testing::StartsWith("L3FloodArpEntry("), HasSubstr("mac:"),
                             HasSubstr("vid:")));
  EXPECT_THAT(errorText([] { Orb::fromText<Bridging::EthAddr>("02:1c:73:aa:bb"); }),
              HasSubstr("is not an Ethernet address"));
}

TEST(L3FloodBitmap, rowsAreBitExact) {
  Chip chip;
  const auto table = L3FloodBitmapTableIs("bitmap");
  chip.start(*table);
  table->entryIs(L3FloodId(127), {IngressPortMask(ports48)});
  EXPECT_THAT(chip.row("L3FloodBitmap", 0, 0, 127), ElementsAre(3, 0x00018000, 0x002a007f));
  EXPECT_EQ(chip.row("L3FloodBitmap", 0, 1, 127), chip.row("L3FloodBitmap", 0, 0, 127));
  table->entryDel(L3FloodId(127));
  EXPECT_THAT(chip.row("L3FloodBitmap", 0, 0, 127), ElementsAre(0, 0, 0x002a007f));

  Chip small("vela-20-4.0");
  const auto twenty = L3FloodBitmapTableIs("bitmap");
  small.start(*twenty);
  twenty->entryIs(L3FloodId(0), {IngressPortMask(ports20)});
  EXPECT_THAT(small.row("L3FloodBitmap", 0, 0, 0), ElementsAre(0x001f0f07, 0, 0x002a0000));
  EXPECT_EQ(small.path.l3FloodBitmap(0)->portMask().bits(), ports20 & 0xfffff);
}

TEST(L3Lag, rowsAreBitExact) {
  Chip chip;
  const auto table = L3LagTableIs("lag");
  chip.start(*table);
  table->entryIs(L3LagIndex(56), {IngressPortMask(ports48), true});
  EXPECT_THAT(chip.row("L3Lag", 0, 1, 56), ElementsAre(3, 0x00078000, 0x00260038));
  table->entryDel(L3LagIndex(56));
  EXPECT_THAT(chip.row("L3Lag", 0, 1, 56), ElementsAre(0, 0, 0x00260038));

  Chip small("vela-20-4.0");
  const auto twenty = L3LagTableIs("lag");
  small.start(*twenty);
  twenty->entryIs(L3LagIndex(63), {IngressPortMask(ports20), true});
  EXPECT_THAT(small.row("L3Lag", 0, 0, 63), ElementsAre(0x007f0f07, 0, 0x0026003f));
  EXPECT_TRUE(small.path.l3Lag(63)->cpuPriority());
  EXPECT_EQ(errorText([] { L3LagIndex(64); }),
            "VelaSwitch::L3LagIndex::value < VelaSwitch::L3LagIndex::min or > "
            "VelaSwitch::L3LagIndex::mcastSnat not allowed");
}

TEST(NatRewrite, everyPortPairHasItsRows) {
  const NatRewriteKey at{ChipPortId(6), U16{17}};
  EXPECT_EQ(NatRewriteFamily::hwIndex(at), 12305u);
  EXPECT_EQ(NatRewriteFamily::keyOf(12305), at);
  EXPECT_EQ(errorText([] { NatRewriteFamily::keyOf(25 * 4096); }),
            "VelaSwitch::ChipPortId::value < VelaSwitch::ChipPortId::min or > "
            "VelaSwitch::ChipPortId::null not allowed");
  EXPECT_THAT(fatalText([] {
                NatRewriteFamily::hwIndex({ChipPortId(7), U16{0}});
              }),
              HasSubstr("key.baseChipPortId() % 2 == 0"));
  Chip chip;
  const auto table = NatRewriteTableIs("rewrite");
  chip.start(*table);
  table->entryIs(at, {Orb::fromText<Ipnet::IpAddr>("192.0.2.1"), U16{1024}, U16{0xbeef}});
  const NatRewriteKey last{ChipPortId(46), U16{4095}};
  table->entryIs(last, {Orb::fromText<Ipnet::IpAddr>("255.1.2.3"), U16{65535}, U16{1}});
  EXPECT_THAT(chip.row("NatRewrite", 0, 0, 12305), ElementsAre(0xc0000201, 0xbeef0400, 0x2022));
  EXPECT_THAT(chip.row("NatRewrite", 0, 0, 23 * 4096 + 4095),
              ElementsAre(0xff010203, 0x0001ffff, 0x3ffe));
  EXPECT_EQ(chip.chip.registerValue("egress/processor[23]/nat_lum_ip"), 0xff010203);
  EXPECT_EQ(chip.path.natRewrite(6, 17)->newPort(), 1024);
  const auto& counters = table->profileConvertorPtr()->entryCounters();
  ASSERT_EQ(counters.size(), 24u);
  EXPECT_EQ(counters[3].used(), 1u);
  EXPECT_EQ(counters[4].used(), 0u);
  EXPECT_EQ(counters[3].size, 4096u);
  table->entryDel(at);
  EXPECT_THAT(chip.row("NatRewrite", 0, 0, 12305), ElementsAre(0, 0, 0x2022));
}

/// What was announced is what a cold start finds, in every table, without a write.
template <class Table, class Make, class Fill>
void survivesAColdStart(const Make& make, const Fill& fill) {
  for (const char* profile : {"vela-48-5.1", "vela-20-4.0"}) {
    Chip chip(profile);
    const Orb::Ptr<Table> table = make();
    chip.start(*table);
    fill(*table);
    Chip cold(profile);
    cold.chip = chip.chip;
    const U64 writes = cold.chip.registerWrites();
    const Orb::Ptr<Table> again = make();
    cold.start(*again, Chip::Start::restart);
    EXPECT_EQ(cold.chip.registerWrites(), writes);
    ASSERT_EQ(again->entries().keys(), table->entries().keys());
    again->entries().forEach(
        [&](const auto& at, const auto& held) { EXPECT_EQ(held, *table->entry(at)); });
    again->syncEntries();
    EXPECT_TRUE(again->profileConvertorPtr()->auditFindings().empty());
  }
}

TEST(L3Results, surviveAColdStart) {
  VelaTest::Random random;
  survivesAColdStart<L3FloodArpTable>(
      [] { return L3FloodArpTableIs("arp"); },
      [&](auto& table) {
        for (U32 id = 0; id < 128; id += 3) {
          table.entryIs(L3FloodId(id), {Bridging::EthAddr(U64{random()} << 16 | id | 1),
                                        Bridging::VlanIdOrNone(random() % 4095)});
        }
      });
  survivesAColdStart<L3FloodBitmapTable>(
      [] { return L3FloodBitmapTableIs("bitmap"); },
      [&](auto& table) {
        for (U32 id = 0; id < 128; ++id) {
          table.entryIs(L3FloodId(id), {IngressPortMask(random() % 0xfffff + 1)});
        }
      });
  survivesAColdStart<L3LagTable>(
      [] { return L3LagTableIs("lag"); },
      [&](auto& table) {
        for (U32 id = 0; id < 64; ++id) {
          table.entryIs(L3LagIndex(id), {IngressPortMask(random() % 0x1fffff + 1), id % 2 == 0});
        }
      });
  survivesAColdStart<NatRewriteTable>(
      [] { return NatRewriteTableIs("rewrite"); },
      [&](auto& table) {
        for (U32 i = 0; i < 500; ++i) {
          table.entryIs({ChipPortId(random() % 10 * 2), static_cast<U16>(random() % 4096)},
                        {Ipnet::IpAddr(random()), static_cast<U16>(random()), U16{1}});
        }
      });
}

}  // namespace
