#include "Support.h"
#include "VelaSwitchTable/VelaTableSG.h"
#include "VelaSwitchTable/VelaTableStarG.h"
#include "device/RouteLookup.h"

namespace {

using namespace VelaSwitchTable;
using testing::ElementsAre;
using testing::HasSubstr;
using VelaSwitch::IngressPortMask;
using VelaSwitch::MrouteKey;
using VelaTest::Chip;
using VelaTest::Started;

constexpr U64 ports = 0x1800000000003;

MrouteKey key(const char* source, const char* group, U16 vlan) {
  return {Orb::fromText<Ipnet::IpAddr>(source), Orb::fromText<Ipnet::IpAddr>(group),
          Bridging::VlanIdOrNone(vlan)};
}

std::vector<U32> image(const VelaSwitchApi::SwTable& table, U32 index, U8 words) {
  const U32* row = table.profileConvertorPtr()->hwTable(0)->image(index);
  return {row, row + words};
}

TEST(SG, rowsAreBitExactInBothLayouts) {
  const MrouteKey at = key("10.0.0.1", "239.1.2.3", 100);
  for (const auto& [profile, expected] :
       {std::pair{"vela-48-5.1", std::vector<U32>{0x0000f808, 0xb8320500, 0x00000003, 0x00038000,
                                                  0x00221095, 0xef010203}},
        std::pair{"vela-48-32vrf", std::vector<U32>{0x0000f808, 0x70320500, 0x00000007, 0x00070000,
                                                    0x00221095, 0xef010203}}}) {
    SCOPED_TRACE(profile);
    Started<SGTable> chip(profile);
    chip.table->entryIs(at, {U8{11}, IngressPortMask(ports)});
    EXPECT_EQ(image(*chip.table, 4245, 6), expected);
    const std::vector<U32> registers(expected.begin(), expected.begin() + 5);
    EXPECT_EQ(chip.row("SG", 0, 0, 4245), registers);
    EXPECT_EQ(chip.row("SG", 0, 1, 4245), registers);
    EXPECT_EQ(sg(chip.path, at)->portMask().bits(), ports);
    EXPECT_EQ(sg(chip.path, key("10.0.0.2", "239.1.2.3", 100)), std::nullopt);
  }
}

TEST(StarG, rowsAreBitExact) {
  {
    Started<StarGTable> chip;
    chip.table->entryIs(key("0.0.0.0", "239.1.2.3", 100), {U8{11}, IngressPortMask(ports)});
    EXPECT_THAT(image(*chip.table, 1465, 7),
                ElementsAre(0xf064f010, 0x0000000e, 0x000e0000, 0, 0x000605b9, 0xef010203, 0));
  }
  Started<StarGTable> chip("vela-20-4.0");
  chip.table->entryIs(key("0.0.0.0", "224.0.0.5", 4094), {U8{3}, IngressPortMask(0x1f0f0f)});
  EXPECT_THAT(image(*chip.table, 3474, 7),
              ElementsAre(0xfffe0000, 0x007c3c3c, 0, 0, 0x00060d92, 0xe0000005, 0));
  EXPECT_EQ(starG(chip.path, key("9.9.9.9", "224.0.0.5", 4094))->vlanGroupId(), 3);
}

/// The source's own route wins, the group's is there for the others.
TEST(Multicast, theSourcesRouteComesFirst) {
  Chip chip;
  const auto level = Orb::make<Lpm29Table>("level");
  const auto sg = SGTableIs("sg");
  const auto starG = StarGTableIs("starG");
  chip.startTogether({level.get(), starG.get(), sg.get()});
  starG->entryIs(key("0.0.0.0", "225.0.0.1", 7), {U8{1}, IngressPortMask(1)});
  sg->entryIs(key("10.0.0.1", "225.0.0.1", 7), {U8{2}, IngressPortMask(2)});
  EXPECT_EQ(multicast(chip.path, key("10.0.0.1", "225.0.0.1", 7))->vlanGroupId(), 2);
  EXPECT_EQ(multicast(chip.path, key("10.0.0.2", "225.0.0.1", 7))->vlanGroupId(), 1);
  EXPECT_EQ(multicast(chip.path, key("10.0.0.2", "225.0.0.1", 8)), std::nullopt);
  sg->entryDel(key("10.0.0.1", "225.0.0.1", 7));
  EXPECT_EQ(multicast(chip.path, key("10.0.0.1", "225.0.0.1", 7))->vlanGroupId(), 1);
}

TEST(StarG, aValidRowWithoutTheTagIsAnInternalError) {
  Started<StarGTable> chip;
  chip.table->profileConvertorPtr()->hwTable(0)->image(77)[0] = 1u << 29 | 1;  // of even parity
  EXPECT_THAT(VelaTest::fatalText([&] { chip.table->helper()->decodeHwEntry(77); }),
              HasSubstr("!valid || multicast"));
}

}  // namespace
