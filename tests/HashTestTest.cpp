#include <malloc.h>

#include <map>

#include "Support.h"
#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "VelaSwitchTable/VelaTableHashTest.h"
#include "device/AclLookup.h"

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
    const auto hit = hashTest(chip.path, key);
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
  EXPECT_EQ(hashTest(chip.path, 0), std::nullopt);
  table->entryIs(HashTestKey{0u}, HashTestResult{0u});
  EXPECT_TRUE(found(0, 0));
  table->entryDel(HashTestKey{0u});
  EXPECT_EQ(hashTest(chip.path, 0), std::nullopt);
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

/// What observers heard of each key last.
struct Told final : Orb::KeyObserver<HashTestKey> {
  explicit Told(HashTestTable& of) : table(of) { table.tableStatusIs()->observerIs(this); }
  ~Told() { table.tableStatus()->observerDel(this); }
  void handleKey(const HashTestKey& key) override { last[key] = table.status(key); }

  HashTestTable& table;
  std::map<HashTestKey, EntryProgrammedStatus> last;
};

TEST_F(HashTest, observersKnowEveryStatus) {
  Told told(*table);
  VelaTest::Random random;
  auto& convertor = table->profileConvertor();
  const auto rows = convertor.hwTables().begin()->second->busHandle();
  for (int round = 0; round < 4000; ++round) {
    if (random.below(4) == 0) chip.chip.failWritesIs(random.below(3));
    const HashTestKey key{random.below(256)};
    switch (random.below(6)) {
      case 0:
        table->entryDel(key);
        break;
      case 1:
        chip.chip.flipBit(rows, random.below(16), random.below(2), random.below(32));
        table->syncEntries();
        break;
      case 2:
        for (const auto& finding : std::vector(convertor.auditFindings())) {
          convertor.repair(finding);
        }
        break;
      default:
        table->entryIs(key, HashTestResult{random()});
    }
    for (U32 each = 0; each < 256; ++each) {
      ASSERT_EQ(told.last[HashTestKey{each}], table->status(HashTestKey{each}))
          << each << " in round " << round;
    }
  }
}

// A full table's worth of memory is fetched when it is made.
TEST_F(HashTest, programmingAllocatesNothing) {
  const VelaTest::Started<AclHashTable> acls;
  const auto allocated = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  const std::size_t before = allocated();
  for (U32 i = 0; i < 3000; ++i) {
    VelaSwitch::AclHashKey key;
    key.dstIp = Ipnet::IpAddr(i);
    acls.table->entryIs(key, {});
  }
  const std::size_t after = allocated();
  // Where each record has memory of its own, it is another matter.
  if (!VelaTest::sanitized) {
    EXPECT_EQ(after, before);
  }
  EXPECT_EQ(acls.table->tableStatus()->size(), 3000u);
}

}  // namespace
