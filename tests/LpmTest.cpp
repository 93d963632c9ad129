#include "Support.h"
#include "VelaSwitchTable/VelaTableLpm11.h"
#include "VelaSwitchTable/VelaTableLpmTables.h"

namespace {

using namespace VelaSwitchTable;
using testing::ElementsAre;
using testing::HasSubstr;
using VelaSwitch::L3LagIndex;
using VelaSwitch::LpmKey;
using VelaSwitch::NexthopIndexes;
using VelaSwitchApi::EntryProgrammedStatus;
using VelaTest::Chip;
using VelaTest::errorText;
using VelaTest::fatalText;
using VelaTest::Random;

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

// The first level.

TEST(Lpm11, keysAndRowsNameEachOther) {
  const LpmKey at = key(3, "10.224.0.0/11");
  EXPECT_EQ(Lpm11Family::hwIndex(at), 6231u);
  EXPECT_EQ(Lpm11Family::keyOf(6231), at);
  EXPECT_EQ(Lpm11Family::keyOf(65535), key(31, "255.224.0.0/11"));
  EXPECT_THAT(fatalText([&] { Lpm11Family::hwIndex(key(3, "10.224.0.0/12")); }),
              HasSubstr("key.prefix().len() == 11"));
}

struct Lpm11Rows : testing::Test {
  /// The row of 10.224.0.0/11 in VRF 3 once the entry is announced, and once it is gone.
  std::pair<std::vector<U32>, std::vector<U32>> rows(const char* profile) {
    Chip chip(profile);
    const auto table = lpm11TableFactory("lpm11");
    chip.start(*table);
    EntryCellResult result = cell(12, 34, 8);
    result.maskLength = MaskLength(8);
    table->entryIs(key(3, "10.224.0.0/11"), {result, true});
    const auto set = chip.row("Lpm11", 0, 0, 6231);
    EXPECT_EQ(chip.row("Lpm11", 0, chip.profile->pipelines() - 1, 6231), set);
    EXPECT_EQ(table->profileConvertorPtr()->hwTable(0)->image(6231)[2], 8u);
    table->entryDel(key(3, "10.224.0.0/11"));
    return {set, chip.row("Lpm11", 0, 0, 6231)};
  }
};

TEST_F(Lpm11Rows, areBitExactFromInterface51On) {
  const auto [set, gone] = rows("vela-48-5.1");
  EXPECT_THAT(set, ElementsAre(0x0002788c, 0x001e1857));
  EXPECT_THAT(gone, ElementsAre(0x00000039, 0x001e1857));
}

TEST_F(Lpm11Rows, areBitExactBefore) {
  const auto [set, gone] = rows("vela-48-4.1");
  EXPECT_THAT(set, ElementsAre(0x0000988c, 0x001e1857));
  EXPECT_THAT(gone, ElementsAre(0x00000039, 0x001e1857));
}

TEST(Lpm11, everyMaskLengthComesBack) {
  Chip chip;
  const auto table = lpm11TableFactory("lpm11");
  chip.start(*table);
  for (U8 length = 0; length <= 11; ++length) {
    EntryCellResult result = cell(length, 1, length);
    result.maskLength = MaskLength(length);
    table->entryIs(Lpm11Family::keyOf(length), {result, length % 2 == 0});
  }
  table->entryIs(Lpm11Family::keyOf(12), {cell(12, 1, 0), false});
  Chip cold;
  cold.chip = chip.chip;
  const auto again = lpm11TableFactory("lpm11");
  const U64 writes = cold.chip.registerWrites();
  cold.start(*again, Chip::Start::restart);
  EXPECT_EQ(cold.chip.registerWrites(), writes);
  EXPECT_EQ(again->entries().size(), 13u);
  for (const LpmKey& at : table->entries().keys()) {
    ASSERT_NE(again->entry(at), nullptr);
    EXPECT_EQ(*again->entry(at), *table->entry(at));
  }
}

TEST(Lpm11, refusesWhatItDoesNotServe) {
  Chip chip;
  const auto table = lpm11TableFactory("lpm11");
  chip.start(*table);
  const U64 writes = chip.chip.registerWrites();
  EXPECT_THAT(fatalText([&] {
                table->entryIs(Lpm11Family::keyOf(0), {cell(1, 1, 12), false});
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
  EXPECT_EQ(chip.path.lpm11(0, Ipnet::IpAddr(7u << 21))->cellResult().l3LagIndex(), 1);
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

struct LevelRow {
  const char* profile;
  U8 longest;
  LpmKey at;
  LpmResult result;
  U32 row;  ///< In way 0.
  std::vector<U32> image;
};

TEST(LpmLevels, rowsAreBitExact) {
  const LevelRow rows[] = {
      {"vela-48-4.1",
       32,
       key(3, "10.1.2.4/30"),
       cells({cell(5, 2, 30), cell(5, 2, 30), cell(56, 63, 32), none}, true),
       321,
       {0x10bc2804, 0x9ff1042c, 0x0000381c, 0, 0x00020141, 0x0a010204, 0x0002079e}},
      {"vela-48-5.1",
       29,
       key(6, "192.168.77.64/27"),
       cells({cell(1, 1, 27), cell(1, 1, 27), cell(2, 0, 28), cell(3, 9, 29)}),
       3428,
       {0x60036054, 0x0a041810, 0x00024340, 0, 0x00060d64, 0xc0a84d40, 0x0075c6db}},
      {"vela-48-32vrf",
       14,
       key(31, "172.16.0.0/12"),
       cells({cell(7, 0, 12), cell(7, 0, 12), cell(7, 0, 12), cell(7, 0, 12)}),
       451,
       {0x01e007fe, 0x801e0078, 0x00000002, 0, 0x000201c3, 0xac100000, 0x0030c30c}},
      {"vela-48-5.1",
       26,
       key(0, "203.0.113.0/24"),
       cells({none, cell(9, 5, 26), none, none}),
       2294,
       {0x70398cb0, 0xe7039052, 0x000000c0, 0, 0x000208f6, 0xcb007100, 0x00000680}},
  };
  for (const LevelRow& expected : rows) {
    SCOPED_TRACE(int{expected.longest});
    Chip chip(expected.profile);
    const auto table = lpmLevelTableFactory(expected.longest, "level");
    chip.start(*table);
    table->entryIs(expected.at, expected.result);
    const auto* hwTable = table->profileConvertorPtr()->hwTable(0).get();
    EXPECT_EQ(std::vector<U32>(hwTable->image(expected.row), hwTable->image(expected.row) + 7),
              expected.image);
    const std::vector<U32> registers(expected.image.begin(), expected.image.begin() + 5);
    const std::string family = "Lpm" + std::to_string(expected.longest);
    for (U32 pipeline = 0; pipeline < chip.profile->pipelines(); ++pipeline) {
      EXPECT_EQ(chip.row(family.c_str(), 0, pipeline, expected.row), registers);
    }
  }
}

TEST(LpmLevels, constants) {
  constexpr U32 rowsPerWay[] = {1024, 1024, 1024, 1024, 4096, 4096, 4096};
  constexpr U32 tableIds[] = {16, 15, 14, 13, 12, 11, 10};
  constexpr int stored[] = {4, 7, 10, 13, 14, 17, 20};
  for (std::size_t i = 0; i < lpmLevels.size(); ++i) {
    const auto table = lpmLevelTableFactory(lpmLevels[i].longest(), "level");
    Chip chip("vela-48-4.1");
    chip.create(*table);
    const auto& helper = static_cast<const LpmBaseHelper&>(*table->helper());
    const auto properties = helper.doGetPhysTableProperties();
    EXPECT_EQ(properties->tableId(), tableIds[i]);
    EXPECT_EQ(properties->rowsPerWay(), rowsPerWay[i]);
    EXPECT_EQ(properties->ways(), 2);
    EXPECT_EQ(properties->rowWords(), 7);
    EXPECT_TRUE(properties->fields().hitBits && properties->fields().hitBitsClearOnRead);
    EXPECT_EQ(helper.level().storedAddressBits() + helper.numVrfBits(), stored[i]);
    EXPECT_EQ(helper.storedWidth(), i == 5 ? 29 : stored[i]);
    EXPECT_EQ(table->fwkType().name(),
              "VelaSwitchTable::Lpm" + std::to_string(lpmLevels[i].longest()) + "Table");
    EXPECT_TRUE(table->hwTablesDuplicate() && table->statusSupported() &&
                table->hitBitsSupported());
  }
}

TEST(LpmLevels, refuseWhatTheyDoNotServe) {
  Chip chip;
  const auto table = lpmLevelTableFactory(32, "level");
  chip.start(*table);
  const U64 writes = chip.chip.registerWrites();
  const LpmKey at = key(0, "10.0.0.0/30");
  const auto announce = [&](U8 realLength) {
    return fatalText([&] {
      table->entryIs(at, cells({none, none, none, cell(1, 1, realLength)}));
    });
  };
  EXPECT_THAT(announce(29), HasSubstr("realPrefixLen >= prefixLen"));
  EXPECT_THAT(announce(33), HasSubstr("realPrefixLen <= prefixLen + prefixRange"));
  EXPECT_THAT(fatalText([&] { table->entryIs(key(0, "10.0.0.0/27"), {}); }),
              HasSubstr("key.prefix().len() == prefixBaseLen"));
  EXPECT_THAT(fatalText([&] { table->entryIs(key(8, "10.0.0.0/30"), {}); }),
              HasSubstr("key.vrf() < helper.profile().vrfs()"));
  EXPECT_EQ(chip.chip.registerWrites(), writes);
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
  Chip chip;
  const auto table = lpmLevelTableFactory(20, "level");
  chip.start(*table);
  LpmLevel odd = lpmLevel<20>;
  odd.crcLength = 11;
  const auto item = Orb::make<LpmBaseTableCuckooEntry>(table.get(), key(0, "10.0.0.0/18"), odd);
  EXPECT_THAT(fatalText([&] { item->getHash(0); }), HasSubstr("false"));
}

/// The cells of every real length, next hop and absence survive the row.
TEST(LpmLevels, cellsComeBackFromTheirEncoding) {
  Random random;
  for (int i = 0; i < 20000; ++i) {
    const U8 width = static_cast<U8>(14 + 3 * (random() % 7));
    const EntryCellResult original =
        cell(static_cast<U16>(random() % 64), static_cast<U8>(random() % 64),
             static_cast<U8>(width - random() % 3));
    const U32 encoded = original.hwEncoding(false, width, {5u, 1u});
    EXPECT_LT(encoded, 1u << 14);
    const EntryCellResult expected = original.valid() ? original : none;
    EXPECT_EQ(EntryCellResult::fromHwEncoding(encoded, false, width, {5u, 1u}), expected);
  }
}

/// Key bits that a row does not store come back from its place: the same as from the words that
/// hardware does not hold.
TEST(LpmLevels, aColdStartFindsTheSameEntries) {
  for (const char* profile : {"vela-48-4.1", "vela-48-5.1", "vela-48-32vrf"}) {
    for (const LpmLevel& level : lpmLevels) {
      SCOPED_TRACE(std::string(profile) + " " + std::to_string(level.longest()));
      Random random(level.longest());
      Chip chip(profile);
      const auto table = lpmLevelTableFactory(level.longest(), "level");
      chip.start(*table);
      for (U32 i = 0; i < 600; ++i) {
        const LpmKey at{static_cast<U8>(random() % chip.profile->vrfs()),
                        Ipnet::IpPrefix(Ipnet::IpAddr(random()), level.prefixBaseLen)};
        const U8 length = static_cast<U8>(level.prefixBaseLen + random() % 3);
        table->entryIs(
            at, cells({none, cell(1, 2, length), none, cell(static_cast<U16>(i % 57), 3, length)},
                      i % 2 == 0));
        // Some sets of keys share too few rows.
        if (!table->cachedItem(at)->placed()) table->entryDel(at);
      }
      const auto& physical = table->profileConvertor().physicalTable();
      table->entries().forEach([&](const LpmKey& at, const LpmResult& result) {
        const auto item = table->cachedItem(at);
        const U32 index = physical.indexOf(*item);
        const U32* image = physical.hwTable(0)->image(index);
        EXPECT_EQ(image[5], at.prefix().address().number());
        const auto decoded = table->helper()->decodeHwEntry(index);
        ASSERT_TRUE(decoded->valid());
        EXPECT_TRUE(decoded->isEqual(*item));
        EXPECT_EQ(static_cast<const LpmBaseTableCuckooEntry&>(*decoded).result(), result);
      });

      Chip cold(profile);
      cold.chip = chip.chip;
      const U64 writes = cold.chip.registerWrites();
      const auto again = lpmLevelTableFactory(level.longest(), "level");
      cold.start(*again, Chip::Start::restart);
      EXPECT_EQ(cold.chip.registerWrites(), writes);
      EXPECT_EQ(again->entries().keys(), table->entries().keys());
      again->entries().forEach(
          [&](const LpmKey& at, const LpmResult& result) { EXPECT_EQ(result, *table->entry(at)); });
    }
  }
}

}  // namespace
