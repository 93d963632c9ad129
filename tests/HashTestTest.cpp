#include <map>

#include "Support.h"
#include "VelaSwitchTable/VelaTableHashTest.h"

namespace {

using namespace VelaSwitchTable;
using testing::ElementsAre;
using VelaSwitchApi::EntryProgrammedStatus;

struct HashTest : testing::Test {
  HashTest() { chip.start(*table); }
  EntryProgrammedStatus status(U32 key) {
    return table->tableStatus()->entryStatus(HashTestKey{key})->status();
  }
  double lastHit(U32 key) {
    return table->tableStatus()->entryStatus(HashTestKey{key})->lastHit().value();
  }
  bool found(U32 key, U32 result) {
    const auto hit = chip.path.hashTest(key);
    return hit && hit->result() == result;
  }

  VelaTest::Chip chip;
  Orb::Ptr<HashTestTable> table = HashTestTableIs("hashTest");
};

TEST_F(HashTest, keysChooseTheirRows) {
  const auto item = HashTestTableCuckooEntryIs(HashTestKey{0x38u});
  EXPECT_EQ(item->getHash(0), 0u);
  EXPECT_EQ(item->getHash(1), 7u);
}

TEST_F(HashTest, rowsAreBitExact) {
  table->entryIs(HashTestKey{0x12345605u}, HashTestResult{0xCAFEu});
  EXPECT_THAT(chip.row("HashTest", 0, 0, 5), ElementsAre(0x12345605, 0xCAFE, 0x8005));
  table->entryIs(HashTestKey{0x12345685u}, HashTestResult{1u});
  EXPECT_THAT(chip.row("HashTest", 0, 0, 8 + 0), ElementsAre(0x12345685, 1, 0xC000));
}

/// Key 0 with result 0 is an entry like any other: it is told from an empty row.
TEST_F(HashTest, zeroIsAKey) {
  EXPECT_EQ(chip.path.hashTest(0), std::nullopt);
  table->entryIs(HashTestKey{0u}, HashTestResult{0u});
  EXPECT_TRUE(found(0, 0));
  table->entryDel(HashTestKey{0u});
  EXPECT_EQ(chip.path.hashTest(0), std::nullopt);
}

TEST_F(HashTest, twoOfEqualRowsFitAndRoomIsFoundAgain) {
  table->entryIs(HashTestKey{0u}, HashTestResult{1u});
  table->entryIs(HashTestKey{64u}, HashTestResult{2u});
  table->entryIs(HashTestKey{128u}, HashTestResult{3u});
  EXPECT_EQ(status(128), EntryProgrammedStatus::tableFull);
  EXPECT_TRUE(found(0, 1) && found(64, 2));
  table->entryDel(HashTestKey{64u});
  table->handleEntry(HashTestKey{128u});
  EXPECT_EQ(status(128), EntryProgrammedStatus::programmed);
  EXPECT_TRUE(found(128, 3));
}

TEST_F(HashTest, hitsAreTheLatestAndSurviveUpdates) {
  auto& convertor = table->profileConvertor();
  for (const U32 key : {1u, 2u}) table->entryIs(HashTestKey{key}, HashTestResult{key});
  EXPECT_EQ(lastHit(1), 0);
  chip.path.hashTest(1);
  EXPECT_TRUE(convertor.pollHitBits(Orb::Seconds(10)));
  EXPECT_EQ(lastHit(1), 10);
  EXPECT_EQ(lastHit(2), 0);
  convertor.pollHitBits(Orb::Seconds(11));
  EXPECT_EQ(lastHit(1), 10) << "reading clears the bits";
  chip.path.hashTest(1);
  convertor.pollHitBits(Orb::Seconds(20));
  chip.path.hashTest(1);
  convertor.pollHitBits(Orb::Seconds(15));
  EXPECT_EQ(lastHit(1), 20);
  table->entryIs(HashTestKey{1u}, HashTestResult{99u});
  EXPECT_EQ(lastHit(1), 20);
  chip.path.hashTest(1);
  chip.chip.failReadsIs(1);
  EXPECT_FALSE(convertor.pollHitBits(Orb::Seconds(30)));
  EXPECT_TRUE(convertor.pollHitBits(Orb::Seconds(31)));
  EXPECT_EQ(lastHit(1), 31) << "a poll that failed loses no hit";
}

/// Two entries for each pair of rows leave no row free: those at the ends are polled like the rest.
TEST_F(HashTest, hitsAreReportedFromEveryRow) {
  std::vector<U32> keys;
  for (U32 row = 0; row < 8; ++row) {
    for (const U32 key : {row << 3 | row, row << 3 | row | 64}) {
      table->entryIs(HashTestKey{key}, HashTestResult{key});
      ASSERT_TRUE(found(key, key));
      keys.push_back(key);
    }
  }
  ASSERT_EQ(table->profileConvertor().physicalTable().engine().size(), 16u);
  EXPECT_TRUE(table->profileConvertor().pollHitBits(Orb::Seconds(3)));
  for (const U32 key : keys) EXPECT_EQ(lastHit(key), 3) << key;
}

TEST_F(HashTest, anUnchangedEntryWritesNothing) {
  table->entryIs(HashTestKey{9u}, HashTestResult{1u});
  const U64 writes = chip.chip.registerWrites();
  EXPECT_FALSE(table->entryIs(HashTestKey{9u}, HashTestResult{1u}));
  table->handleEntry(HashTestKey{9u});
  EXPECT_EQ(chip.chip.registerWrites(), writes);
  table->entryIs(HashTestKey{9u}, HashTestResult{2u});
  EXPECT_EQ(chip.chip.registerWrites(), writes + 3);
}

TEST_F(HashTest, occupancyIsWhatIsPlaced) {
  const auto& counter = table->profileConvertor().entryCounters().front();
  EXPECT_EQ(counter.size, 16u);
  for (const U32 key : {0u, 64u, 128u, 1u}) table->entryIs(HashTestKey{key}, HashTestResult{key});
  EXPECT_EQ(counter.used(), 3u);
  table->entryDel(HashTestKey{128u});
  EXPECT_EQ(counter.used(), 3u);
  table->entryDel(HashTestKey{0u});
  EXPECT_EQ(counter.used(), 2u);
}

/// Everything in the table is looked up after every single register write, over a table that is
/// mostly full.
TEST_F(HashTest, noEntryIsEverMissing) {
  VelaTest::Random random;
  std::map<U32, U32> programmed;
  U32 changing = ~0u;
  U64 checks = 0;
  chip.chip.writeObserverIs([&](const auto&, U32) {
    for (const auto& [key, result] : programmed) {
      if (key == changing) continue;
      ++checks;
      ASSERT_TRUE(found(key, result)) << key;
    }
  });
  for (int step = 0; step < 400000; ++step) {
    changing = random() % 256;
    if (random() % 3 == 0) {
      table->entryDel(HashTestKey{changing});
      programmed.erase(changing);
    } else {
      const U32 result = random();
      table->entryIs(HashTestKey{changing}, HashTestResult{result});
      if (status(changing) == EntryProgrammedStatus::programmed) {
        programmed[changing] = result;
      } else {
        table->entryDel(HashTestKey{changing});  // or else all rows belong to waiting ones soon
      }
    }
    ASSERT_FALSE(HasFatalFailure());
  }
  EXPECT_GT(table->profileConvertor().physicalTable().engine().moves(), 1000u);
  EXPECT_GT(checks, 1000000u);
}

}  // namespace
