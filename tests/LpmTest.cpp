#include "Support.h"
#include "VelaSwitchTable/VelaTableLpm11.h"
#include "VelaSwitchTable/VelaTableLpmTables.h"
#include "device/RouteLookup.h"

namespace {

using namespace VelaSwitchTable;
using testing::ElementsAre;
using testing::HasSubstr;
using VelaSwitch::L3LagIndex;
using VelaSwitch::LpmKey;
using VelaSwitch::NexthopIndexes;
using VelaTest::Chip;
using VelaTest::errorText;
using VelaTest::fatalText;
using VelaTest::Started;

LpmKey key(U8 vrf, const char* prefix) { return {vrf, Orb::fromText<Ipnet::IpPrefix>(prefix)}; }

EntryCellResult cell(U16 lag, U8 rewrite, U8 realLength) {
  EntryCellResult result;
  result.nexthopIndexes = NexthopIndexes{L3LagIndex(lag), rewrite};
  result.realPrefixLen = realLength;
  return result;
}

LpmResult cells(const std::array<EntryCellResult, 4>& four, bool cpuTrap = false) {
  return {four, cpuTrap};
}

const EntryCellResult none{};

// The whole routes.

struct Heard final : Orb::KeyObserver<LpmKey> {
  std::vector<LpmKey> keys;
  void handleKey(const LpmKey& changed) override { keys.push_back(changed); }
};

/// Also while nobody writes them into levels.
TEST(LpmRoutes, tellObserversOfEachChangedKeyOnce) {
  const auto table = lpmTableFactory("Route");
  Heard entries;
  Heard statuses;
  table->entries().observerIs(&entries);
  table->entryStatuses().observerIs(&statuses);
  const LpmKey one = key(1, "10.1.2.0/24");
  const LpmKey other = key(1, "10.1.2.0/25");
  const LpmResult odd = cells({cell(1, 2, 9), none, cell(3, 4, 24), none}, true);
  EXPECT_TRUE(table->entryIs(one, odd));
  EXPECT_FALSE(table->entryIs(one, odd));
  EXPECT_EQ(*table->entry(one), odd);
  EXPECT_TRUE(table->entryIs(one, routeResult({L3LagIndex(1), U8{2}}, 24)));
  EXPECT_EQ(*table->entry(one), cells({cell(1, 2, 24), none, none, none}));
  EXPECT_FALSE(table->entryDel(other));
  table->entryIs(other, odd);
  EXPECT_EQ(table->entryStatusIs(one).key, one);
  table->entryStatusIs(one);
  EXPECT_EQ(table->entryStatus(other), std::nullopt);
  table->entryDelAll();
  EXPECT_THAT(entries.keys, ElementsAre(one, one, other, one, other));
  EXPECT_THAT(table->entryStatuses().keys(), ElementsAre(one));
  table->entryStatusDelAll();
  EXPECT_THAT(statuses.keys, ElementsAre(one, one));
}

// The first level.

TEST(Lpm11, keysAndRowsNameEachOther) {
  const LpmKey at = key(3, "10.224.0.0/11");
  EXPECT_EQ(Lpm11Family::hwIndex(at), 6231u);
  EXPECT_EQ(Lpm11Family::keyOf(6231), at);
  EXPECT_EQ(Lpm11Family::keyOf(65535), key(31, "255.224.0.0/11"));
  EXPECT_THAT(fatalText([&] { Lpm11Family::hwIndex(key(3, "10.224.0.0/12")); }),
              HasSubstr("key.prefix().len() == 11"));
}

TEST(Lpm11, rowsAreBitExactInBothLayouts) {
  for (const auto& [profile, word] :
       {std::pair{"vela-48-5.1", 0x0002788cu}, {"vela-48-4.1", 0x0000988cu}}) {
    SCOPED_TRACE(profile);
    Started<Lpm11Table> chip(profile);
    EntryCellResult result = cell(12, 34, 8);
    result.maskLength = MaskLength(8);
    chip.table->entryIs(key(3, "10.224.0.0/11"), {result, true});
    for (U32 pipeline = 0; pipeline < chip.profile->pipelines(); ++pipeline) {
      EXPECT_THAT(chip.row("Lpm11", 0, pipeline, 6231), ElementsAre(word, 0x001e1857));
    }
    EXPECT_EQ(chip.table->profileConvertorPtr()->hwTable(0)->image(6231)[2], 8u);
    chip.table->entryDel(key(3, "10.224.0.0/11"));
    EXPECT_THAT(chip.row("Lpm11", 0, 0, 6231), ElementsAre(0x00000039, 0x001e1857));
  }
}

TEST(Lpm11, refusesWhatItDoesNotServe) {
  Started<Lpm11Table> chip;
  const U64 writes = chip.chip.registerWrites();
  EXPECT_THAT(fatalText([&] {
                chip.table->entryIs(Lpm11Family::keyOf(0), {cell(1, 1, 12), false});
              }),
              HasSubstr("cellResult.realPrefixLen() <= 11"));
  EXPECT_EQ(chip.chip.registerWrites(), writes);
  EXPECT_EQ(errorText([] { MaskLength{34}; }),
            "VelaSwitchTable::MaskLength::value < VelaSwitchTable::MaskLength::min or > "
            "VelaSwitchTable::MaskLength::null not allowed");
}

TEST(Lpm11, doesNothingBeforeItIsInitialized) {
  Chip chip;
  const auto table = lpm11TableFactory("lpm11");
  chip.create(*table);
  table->entryIs(Lpm11Family::keyOf(7), {cell(1, 2, 11), false});
  EXPECT_EQ(chip.chip.registerWrites(), 0u);
  table->initHwEntries(true);
  table->initializedIs(true);
  EXPECT_EQ(lpm11(chip.path, 0, Ipnet::IpAddr(7u << 21))->cellResult().l3LagIndex(), 1);
}

TEST(Lpm11, textForms) {
  EXPECT_EQ(Orb::text(Lpm11Result{}),
            "Value('VelaSwitchTable::Lpm11Result', ** {'cellResult': "
            "Value('VelaSwitchTable::EntryCellResult', ** {'nexthopIndexes': "
            "Value('VelaSwitch::NexthopIndexes', ** {'l3LagIndex': 57, 'rewriteIndex': 0}), "
            "'maskLength': 33, 'realPrefixLen': 0}), 'cpuTrap': false})");
  EXPECT_THAT(Lpm11Entry(Lpm11Family::keyOf(0)).toStrep(), testing::StartsWith("Lpm11Entry("));
  const LpmResult result = cells({cell(1, 2, 12), none, none, cell(3, 4, 14)}, true);
  EXPECT_EQ(Orb::fromText<LpmResult>(Orb::text(result)), result);
}

// The hashed levels.

/// `row` lies in way 0.
void levelRowIs(const char* profile, U8 longest, const LpmKey& at, const LpmResult& result, U32 row,
                const std::vector<U32>& image) {
  SCOPED_TRACE(int{longest});
  Started<LpmBaseTable> chip(profile, lpmLevelTableFactory(longest, "level"));
  chip.table->entryIs(at, result);
  const auto* hwTable = chip.table->profileConvertorPtr()->hwTable(0).get();
  EXPECT_EQ(std::vector<U32>(hwTable->image(row), hwTable->image(row) + 7), image);
  // Field by field, as rows that are traced are packed.
  std::vector<U32> again(image.size());
  VelaTest::traced(LpmBaseFamily::trace, 9, [&] {
    chip.table->helper()->setHwBuffer(*chip.table->cachedItem(at), {0, row},
                                      reinterpret_cast<U8*>(again.data()));
  });
  EXPECT_EQ(again, image);
  const std::vector<U32> registers(image.begin(), image.begin() + 5);
  const std::string family = "Lpm" + std::to_string(longest);
  for (U32 pipeline = 0; pipeline < chip.profile->pipelines(); ++pipeline) {
    EXPECT_EQ(chip.row(family.c_str(), 0, pipeline, row), registers);
  }
}

TEST(LpmLevels, rowsAreBitExact) {
  levelRowIs("vela-48-4.1", 32, key(3, "10.1.2.4/30"),
             cells({cell(5, 2, 30), cell(5, 2, 30), cell(56, 63, 32), none}, true), 321,
             {0x10bc2804, 0x9ff1042c, 0x0000381c, 0, 0x00020141, 0x0a010204, 0x0002079e});
  levelRowIs("vela-48-5.1", 29, key(6, "192.168.77.64/27"),
             cells({cell(1, 1, 27), cell(1, 1, 27), cell(2, 0, 28), cell(3, 9, 29)}), 3428,
             {0x60036054, 0x0a041810, 0x00024340, 0, 0x00060d64, 0xc0a84d40, 0x0075c6db});
  levelRowIs("vela-48-32vrf", 14, key(31, "172.16.0.0/12"),
             cells({cell(7, 0, 12), cell(7, 0, 12), cell(7, 0, 12), cell(7, 0, 12)}), 451,
             {0x01e007fe, 0x801e0078, 0x00000002, 0, 0x000201c3, 0xac100000, 0x0030c30c});
  levelRowIs("vela-48-5.1", 26, key(0, "203.0.113.0/24"), cells({none, cell(9, 5, 26), none, none}),
             2294, {0x70398cb0, 0xe7039052, 0x000000c0, 0, 0x000208f6, 0xcb007100, 0x00000680});
}

TEST(LpmLevels, refuseWhatTheyDoNotServe) {
  Started<LpmBaseTable> chip("vela-48-5.1", lpmLevelTableFactory(32, "level"));
  const U64 writes = chip.chip.registerWrites();
  const LpmKey at = key(0, "10.0.0.0/30");
  const auto announce = [&](U8 realLength) {
    return fatalText([&] {
      chip.table->entryIs(at, cells({none, none, none, cell(1, 1, realLength)}));
    });
  };
  EXPECT_THAT(announce(29), HasSubstr("realPrefixLen >= prefixLen"));
  EXPECT_THAT(announce(33), HasSubstr("realPrefixLen <= prefixLen + prefixRange"));
  EXPECT_THAT(fatalText([&] { chip.table->entryIs(key(0, "10.0.0.0/27"), {}); }),
              HasSubstr("key.prefix().len() == prefixBaseLen"));
  EXPECT_THAT(fatalText([&] { chip.table->entryIs(key(8, "10.0.0.0/30"), {}); }),
              HasSubstr("key.vrf() < helper.profile().vrfs()"));
  EXPECT_EQ(chip.chip.registerWrites(), writes);

  // What lies in a row is as it was: other entries may move it, audits compare it.
  const LpmResult good = cells({none, none, none, cell(1, 1, 32)});
  chip.table->entryIs(at, good);
  EXPECT_THAT(announce(33), HasSubstr("realPrefixLen <= prefixLen + prefixRange"));
  EXPECT_EQ(*chip.table->entry(at), good);
  chip.table->syncEntries();
  EXPECT_TRUE(chip.table->profileConvertor().auditFindings().empty());
}

TEST(LpmLevels, sixteenVrfsAreRefused) {
  VelaSwitch::ProfileFields fields = VelaSwitch::ProfileInfo::builtIn("vela-48-5.1")->fields();
  fields.vrfs = 16u;
  Chip chip;
  chip.types = Orb::make<VelaSwitchApi::SwTableTypes>(
      Orb::make<VelaSwitch::ProfileInfo>(std::move(fields)), chip.chip);
  const auto table = lpmLevelTableFactory(20, "level");
  EXPECT_THAT(fatalText([&] { table->doSetProfileConvertor(chip.types); }),
              HasSubstr("Unsupported number of VRFs "));
}

TEST(LpmLevels, aHashOfAnotherLengthIsRefused) {
  const U8 buffer[8]{};
  constexpr U8 bits = 24;  // No level's keys have so many.
  EXPECT_THAT(fatalText([&] { LpmBaseFamily::hash(buffer, 0, bits); }), HasSubstr("false"));
}

}  // namespace
