#include "Support.h"
#include "VelaSwitchTable/VelaTableL3FloodArp.h"
#include "VelaSwitchTable/VelaTableL3FloodBitmap.h"
#include "VelaSwitchTable/VelaTableL3Lag.h"
#include "VelaSwitchTable/VelaTableNatRewrite.h"
#include "device/NatLookup.h"
#include "device/RouteLookup.h"

namespace {

using namespace VelaSwitchTable;
using testing::ElementsAre;
using testing::HasSubstr;
using VelaSwitch::ChipPortId;
using VelaSwitch::IngressPortMask;
using VelaSwitch::L3FloodId;
using VelaSwitch::L3LagIndex;
using VelaSwitch::NatRewriteKey;
using VelaTest::errorText;
using VelaTest::Started;

constexpr U64 ports48 = 0x1800000000003;
constexpr U64 ports20 = 0x1f0f07;

TEST(L3FloodArp, rowsAreBitExactOnEveryEgressProcessor) {
  Started<L3FloodArpTable> chip;
  const auto mac = Orb::fromText<Bridging::EthAddr>("02:1c:73:aa:bb:cd");
  chip.table->entryIs(L3FloodId(0), {mac, Bridging::VlanIdOrNone(100)});
  chip.table->entryIs(L3FloodId(127), {mac, Bridging::VlanIdOrNone(4094)});
  for (const U32 processor : {0u, 23u}) {
    EXPECT_THAT(chip.row("L3FloodArp", 0, processor, 0),
                ElementsAre(0x021c73aa, 0x4808, 0x021c73aa, 0x6808, 0xbbcd0064, 0x4810, 0xbbcd0064,
                            0x6810));
    EXPECT_THAT(chip.row("L3FloodArp", 0, processor, 127),
                ElementsAre(0x021c73aa, 0x57e8, 0x021c73aa, 0x77e8, 0xbbcd0ffe, 0x57f0, 0xbbcd0ffe,
                            0x77f0));
  }
  EXPECT_EQ(chip.table->profileConvertorPtr()->hwTables().size(), 24u);
  EXPECT_EQ(l3FloodArp(chip.path, 127)->ethAddr(), mac);
  chip.table->entryDel(L3FloodId(127));
  EXPECT_THAT(chip.row("L3FloodArp", 0, 0, 127),
              ElementsAre(0, 0x57e0, 0, 0x77e0, 0, 0x57f0, 0, 0x77f0));
}

TEST(L3FloodArp, vlansOutOfRangeAreRefused) {
  Started<L3FloodArpTable> chip;
  auto& convertor = static_cast<L3FloodArpConvertor&>(*chip.table->profileConvertorPtr());
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
  Started<L3FloodBitmapTable> chip;
  chip.table->entryIs(L3FloodId(127), {IngressPortMask(ports48)});
  EXPECT_THAT(chip.row("L3FloodBitmap", 0, 0, 127), ElementsAre(3, 0x00018000, 0x002a007f));
  EXPECT_EQ(chip.row("L3FloodBitmap", 0, 1, 127), chip.row("L3FloodBitmap", 0, 0, 127));
  chip.table->entryDel(L3FloodId(127));
  EXPECT_THAT(chip.row("L3FloodBitmap", 0, 0, 127), ElementsAre(0, 0, 0x002a007f));

  Started<L3FloodBitmapTable> small("vela-20-4.0");
  small.table->entryIs(L3FloodId(0), {IngressPortMask(ports20)});
  EXPECT_THAT(small.row("L3FloodBitmap", 0, 0, 0), ElementsAre(0x001f0f07, 0, 0x002a0000));
  EXPECT_EQ(l3FloodBitmap(small.path, 0)->portMask().bits(), ports20 & 0xfffff);
}

TEST(L3Lag, rowsAreBitExact) {
  Started<L3LagTable> chip;
  chip.table->entryIs(L3LagIndex(56), {IngressPortMask(ports48), true});
  EXPECT_THAT(chip.row("L3Lag", 0, 1, 56), ElementsAre(3, 0x00078000, 0x00260038));
  chip.table->entryDel(L3LagIndex(56));
  EXPECT_THAT(chip.row("L3Lag", 0, 1, 56), ElementsAre(0, 0, 0x00260038));

  Started<L3LagTable> small("vela-20-4.0");
  small.table->entryIs(L3LagIndex(63), {IngressPortMask(ports20), true});
  EXPECT_THAT(small.row("L3Lag", 0, 0, 63), ElementsAre(0x007f0f07, 0, 0x0026003f));
  EXPECT_TRUE(l3Lag(small.path, 63)->cpuPriority());
}

TEST(NatRewrite, everyPortPairHasItsRows) {
  const NatRewriteKey at{ChipPortId(6), U16{17}};
  EXPECT_EQ(NatRewriteFamily::hwIndex(at), 12305u);
  EXPECT_EQ(NatRewriteFamily::keyOf(12305), at);
  Started<NatRewriteTable> chip;
  chip.table->entryIs(at, {Orb::fromText<Ipnet::IpAddr>("192.0.2.1"), U16{1024}, U16{0xbeef}});
  const NatRewriteKey last{ChipPortId(46), U16{4095}};
  chip.table->entryIs(last, {Orb::fromText<Ipnet::IpAddr>("255.1.2.3"), U16{65535}, U16{1}});
  EXPECT_THAT(chip.row("NatRewrite", 0, 0, 12305), ElementsAre(0xc0000201, 0xbeef0400, 0x2022));
  EXPECT_THAT(chip.row("NatRewrite", 0, 0, 23 * 4096 + 4095),
              ElementsAre(0xff010203, 0x0001ffff, 0x3ffe));
  EXPECT_EQ(chip.chip.registerValue("egress/processor[23]/nat_lum_ip"), 0xff010203);
  EXPECT_EQ(natRewrite(chip.path, 6, 17)->newPort(), 1024);
  const auto& counters = chip.table->profileConvertorPtr()->entryCounters();
  ASSERT_EQ(counters.size(), 24u);
  EXPECT_EQ(counters[3].used(), 1u);
  EXPECT_EQ(counters[4].used(), 0u);
  EXPECT_EQ(counters[3].size, 4096u);
  chip.table->entryDel(at);
  EXPECT_THAT(chip.row("NatRewrite", 0, 0, 12305), ElementsAre(0, 0, 0x2022));
}

}  // namespace
