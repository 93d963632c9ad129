#include <algorithm>
#include <map>
#include <set>

#include "Keel/Cuckoo.h"
#include "Support.h"

namespace {

using namespace Keel::Cuckoo;

class Item final : public HashItem {
 public:
  explicit Item(std::vector<U32> rows) : rows_(std::move(rows)) {}
  bool isEqual(const HashItem& other) const override { return &other == this; }
  U32 getHash(U8 way) const override { return rows_[way]; }
  std::string toStrep() const override { return "Item"; }
  const std::vector<U32>& rows() const { return rows_; }

 private:
  std::vector<U32> rows_;
};

/// Stands for hardware: keeps what each row holds and checks, at every write, that no placed item
/// is missing.
class Rows final : public Keel::Cuckoo::RowWriter {
 public:
  Rows(Table& table, const std::set<Item*>& placed) : table_(table), placed_(placed) {}

  bool hashItemWrite(HashItem& item, CuckooLocation location) override {
    if (failAt_ == 0) return false;
    --failAt_;
    EXPECT_EQ(table_.candidate(item, location.way), location) << "not one of its rows";
    const auto old = content_.find(location);
    if (old != content_.end() && old->second != &item && placed_.contains(old->second)) {
      const auto copies = std::count_if(content_.begin(), content_.end(),
                                        [&](const auto& row) { return row.second == old->second; });
      EXPECT_GE(copies, 2) << "the last copy of a placed item is overwritten";
    }
    content_[location] = static_cast<Item*>(&item);
    ++writes;
    return true;
  }
  void clear(CuckooLocation location) { content_.erase(location); }
  void failAfter(int writesThatWork) { failAt_ = writesThatWork; }

  int writes = 0;

 private:
  Table& table_;
  const std::set<Item*>& placed_;
  std::map<CuckooLocation, Item*> content_;
  int failAt_ = -1;
};

/// Maximum matching by augmenting paths: whether items could have rows at all, asked of code that
/// shares nothing with the engine.
class Matching {
 public:
  bool add(Item* item) {
    std::set<CuckooLocation> tried;
    return augment(item, tried);
  }
  void remove(Item* item) {
    std::erase_if(row_, [&](const auto& pair) { return pair.second == item; });
  }

 private:
  bool augment(Item* item, std::set<CuckooLocation>& tried) {
    for (U32 way = 0; way < item->rows().size(); ++way) {
      const CuckooLocation at{static_cast<U8>(way), item->rows()[way]};
      if (!tried.insert(at).second) continue;
      if (!row_.contains(at) || augment(row_[at], tried)) {
        row_[at] = item;
        return true;
      }
    }
    return false;
  }
  std::map<CuckooLocation, Item*> row_;
};

/// A table with what lies in it and what waits, as it should be.
struct Engine {
  Engine(VelaTest::Random& numbers, U32 rowsPerWay, U8 ways)
      : random(numbers), table(rowsPerWay, ways), rows(table, placed) {}

  /// A new item that chooses among the first `spread` rows of each way.
  Item& item(U32 spread) {
    std::vector<U32> candidates;
    for (U8 way = 0; way < table.ways(); ++way) candidates.push_back(random() % spread);
    return *all.emplace_back(Orb::make<Item>(candidates));
  }
  InsertResult insert(Item& item) {
    const U32 free = table.freeRow(item);
    const bool found = free != Table::noRow;
    const InsertResult result = table.insert(item, rows);
    if (result.outcome == Outcome::failed) return result;
    const bool came = result.outcome == Outcome::placed;
    EXPECT_EQ(found, came && result.moves == 0);
    if (found) {
      EXPECT_EQ(table.row(item), free);
    }
    if (came) placed.insert(&item);
    return result;
  }
  void wait(Item& item) {
    table.waitIs(item);
    waiting.push_back(&item);
  }
  /// One of those that wait, which does so no longer.
  void stopWaiting() {
    const auto at = waiting.begin() + random.below(static_cast<U32>(waiting.size()));
    table.waitDel(**at);
    ASSERT_FALSE((*at)->waits());
    waiting.erase(at);
  }
  /// One of those that are placed, as if it were not any more.
  Item* takePlaced() {
    Item* item = *std::next(placed.begin(), random.below(static_cast<U32>(placed.size())));
    placed.erase(item);
    return item;
  }
  /// Who comes in for one that goes.
  Item* succeed(Item& gone) {
    const CuckooLocation freed = table.location(gone);
    const SuccessionResult next = table.succeed(gone, rows);
    Item* item = static_cast<Item*>(next.item.get());
    if (!item) {
      EXPECT_EQ(table.at(freed), nullptr);
      rows.clear(freed);
      return nullptr;
    }
    EXPECT_TRUE(item->placed());
    placed.insert(item);
    std::erase(waiting, item);
    return item;
  }

  VelaTest::Random& random;
  Table table;
  std::set<Item*> placed;
  Rows rows;
  std::vector<Orb::Ptr<Item>> all;
  std::vector<Item*> waiting;
};

struct Geometry {
  U32 rows;
  U8 ways;
  U32 spread;  ///< Keys choose among this many rows: small values crowd them.
};

std::string geometryName(const testing::TestParamInfo<Geometry>& geometry) {
  return Orb::text(geometry.param.rows, "x", U32{geometry.param.ways}, "among",
                   geometry.param.spread);
}

/// The proof of a refusal: the competitors and the new item have, among them all, one row too few.
void expectProof(Table& table, const Item& item) {
  std::set<CuckooLocation> common;
  std::set<const HashItem*> competitors{&item};
  for (const U32 row : table.competitors(item)) competitors.insert(table.at(row));
  for (const HashItem* each : competitors) {
    for (U8 way = 0; way < table.ways(); ++way) common.insert(table.candidate(*each, way));
  }
  ASSERT_EQ(competitors.size(), common.size() + 1);
}

class Placement : public testing::TestWithParam<Geometry> {};

/// The engine against the matching, over insertions and removals around the point of overflow.
TEST_P(Placement, refusesExactlyWhatNoArrangementHolds) {
  const auto [rowCount, ways, spread] = GetParam();
  VelaTest::Random random(rowCount * 10 + ways);
  Engine engine(random, rowCount, ways);
  Table& table = engine.table;
  Matching model;
  int refusals = 0;
  for (int step = 0; step < 4000; ++step) {
    if (!engine.placed.empty() && random() % 4 == 0) {
      Item* item = engine.takePlaced();
      const CuckooLocation freed = table.location(*item);
      table.remove(*item);
      engine.rows.clear(freed);
      model.remove(item);
      EXPECT_EQ(table.at(freed), nullptr);
      continue;
    }
    Item& item = engine.item(spread);
    std::map<Item*, CuckooLocation> before;
    for (Item* each : engine.placed) before[each] = table.location(*each);
    const int writesBefore = engine.rows.writes;
    const InsertResult result = engine.insert(item);
    ASSERT_EQ(result.outcome == Outcome::placed, model.add(&item));
    if (result.outcome == Outcome::placed) {
      ASSERT_EQ(engine.rows.writes - writesBefore, static_cast<int>(result.moves) + 1);
      continue;
    }
    ++refusals;
    ASSERT_EQ(result.outcome, Outcome::refused);
    ASSERT_FALSE(item.placed());
    ASSERT_EQ(engine.rows.writes, writesBefore) << "a refusal writes nothing";
    for (const auto& [each, location] : before) ASSERT_EQ(table.location(*each), location);
    ASSERT_NO_FATAL_FAILURE(expectProof(table, item));
  }
  EXPECT_GT(refusals, 0) << "the load never reached the limit";
  EXPECT_EQ(table.size(), engine.placed.size());
  for (Item* item : engine.placed) EXPECT_EQ(table.find(*item), item);
}

INSTANTIATE_TEST_SUITE_P(Geometries, Placement,
                         testing::Values(Geometry{8, 1, 8}, Geometry{8, 2, 8}, Geometry{64, 2, 64},
                                         Geometry{64, 2, 9}, Geometry{32, 3, 32},
                                         Geometry{32, 3, 5}, Geometry{32, 4, 32},
                                         Geometry{64, 4, 7}, Geometry{512, 2, 512}),
                         geometryName);

/// Fewest items that must leave their place for all of `items` to have one; -1 when they have none.
int fewestChanges(const std::vector<Item*>& items, const Table& table, std::size_t next,
                  std::set<CuckooLocation>& taken) {
  if (next == items.size()) return 0;
  int best = -1;
  for (U8 way = 0; way < table.ways(); ++way) {
    const CuckooLocation at = table.candidate(*items[next], way);
    if (taken.contains(at)) continue;
    taken.insert(at);
    const int rest = fewestChanges(items, table, next + 1, taken);
    taken.erase(at);
    if (rest < 0) continue;
    const bool moved = items[next]->placed() && table.location(*items[next]) != at;
    if (best < 0 || rest + moved < best) best = rest + moved;
  }
  return best;
}

TEST(Cuckoo, makesTheFewestMoves) {
  VelaTest::Random random;
  int longest = 0;
  for (int round = 0; round < 3000; ++round) {
    Engine engine(random, 4, static_cast<U8>(2 + random() % 2));
    std::vector<Item*> items;
    for (int i = 0; i < 9; ++i) {
      items.push_back(&engine.item(4));
      std::set<CuckooLocation> taken;
      const int fewest = fewestChanges(items, engine.table, 0, taken);
      const InsertResult result = engine.insert(*items.back());
      ASSERT_EQ(result.outcome == Outcome::placed, fewest >= 0);
      if (fewest < 0) {
        items.pop_back();
        continue;
      }
      ASSERT_EQ(static_cast<int>(result.moves), fewest);
      longest = std::max(longest, fewest);
    }
  }
  EXPECT_GE(longest, 2) << "nothing had to move far";
}

/// Who comes in when one goes, against all arrangements of a small table: whoever needs the fewest
/// moves, and among those the first to come.
TEST(Cuckoo, theNearestThatWaitsComesIn) {
  VelaTest::Random random;
  int successions = 0;
  int byDistance = 0;
  for (int round = 0; round < 1500; ++round) {
    const U8 ways = static_cast<U8>(2 + random() % 2);
    Engine engine(random, ways == 2 ? 4 : 3, ways);
    Table& table = engine.table;
    for (int step = 0; step < 40; ++step) {
      if (engine.placed.size() < table.capacity() - 2u || random.flip()) {
        Item& item = engine.item(table.rowsPerWay());
        if (engine.insert(item).outcome != Outcome::placed) engine.wait(item);
        continue;
      }
      if (!engine.waiting.empty() && random.below(4) == 0) {
        ASSERT_NO_FATAL_FAILURE(engine.stopWaiting());
        continue;
      }
      Item* gone = engine.takePlaced();
      Item* expected = nullptr;
      int fewest = -1;
      for (Item* each : engine.waiting) {
        std::vector<Item*> items(engine.placed.begin(), engine.placed.end());
        items.push_back(each);
        std::set<CuckooLocation> taken;
        const int moves = fewestChanges(items, table, 0, taken);
        if (moves < 0 || (expected && moves >= fewest)) continue;
        if (expected) ++byDistance;
        expected = each;
        fewest = moves;
      }
      const int writes = engine.rows.writes;
      ASSERT_EQ(engine.succeed(*gone), expected);
      ASSERT_EQ(engine.rows.writes - writes, fewest + 1);
      successions += expected ? 1 : 0;
      ASSERT_EQ(table.waiting().size(), engine.waiting.size());
    }
  }
  EXPECT_GT(successions, 1000);
  EXPECT_GT(byDistance, 100) << "the first to come was always the nearest";
}

class Waiting : public testing::TestWithParam<Geometry> {};

/// The same in tables too big to try everything: nobody waits who has room, whatever went before.
TEST_P(Waiting, nobodyWaitsWhoHasRoom) {
  const auto [rowCount, ways, spread] = GetParam();
  VelaTest::Random random(rowCount * 10 + ways);
  Engine engine(random, rowCount, ways);
  Matching model;
  int successions = 0;
  for (int step = 0; step < 3000; ++step) {
    const U32 what = random.below(8);
    if (what < 3 && !engine.placed.empty()) {
      Item* gone = engine.takePlaced();
      model.remove(gone);
      if (Item* item = engine.succeed(*gone)) {
        ++successions;
        ASSERT_TRUE(model.add(item));
      }
      for (Item* each : engine.waiting) {
        Matching without = model;
        ASSERT_FALSE(without.add(each)) << "step " << step;
      }
    } else if (what == 3 && !engine.waiting.empty()) {
      ASSERT_NO_FATAL_FAILURE(engine.stopWaiting());
    } else {
      Item& item = engine.item(spread);
      const bool fits = engine.insert(item).outcome == Outcome::placed;
      ASSERT_EQ(fits, model.add(&item));
      if (!fits && engine.waiting.size() < 40) {
        engine.wait(item);
        ASSERT_EQ(engine.table.findWaiting(item), &item);
        ASSERT_NO_FATAL_FAILURE(expectProof(engine.table, item));
      }
    }
    ASSERT_EQ(engine.table.waiting().size(), engine.waiting.size());
  }
  EXPECT_GT(successions, 100);
}

INSTANTIATE_TEST_SUITE_P(Geometries, Waiting,
                         testing::Values(Geometry{8, 2, 8}, Geometry{64, 2, 64}, Geometry{64, 2, 9},
                                         Geometry{32, 3, 32}, Geometry{64, 4, 7}),
                         geometryName);

TEST(Cuckoo, aFailedWriteLosesNothing) {
  VelaTest::Random random;
  int failuresAfterMoves = 0;
  for (int round = 0; round < 2000; ++round) {
    Engine engine(random, 4, 2);
    for (int i = 0; i < 8; ++i) {
      Item& item = engine.item(4);
      engine.rows.failAfter(static_cast<int>(random() % 3));
      const InsertResult result = engine.insert(item);
      if (result.outcome == Outcome::failed) {
        ASSERT_FALSE(item.placed());
        ASSERT_EQ(engine.table.at(result.failedAt), nullptr);
        if (result.moves > 0) ++failuresAfterMoves;
      }
      for (Item* each : engine.placed) ASSERT_EQ(engine.table.find(*each), each);
      ASSERT_EQ(engine.table.size(), engine.placed.size());
    }
  }
  EXPECT_GT(failuresAfterMoves, 0);
}

/// Which item it is goes by a name; several may have one.
class Named final : public HashItem {
 public:
  explicit Named(U32 name) : name_(name) {}
  bool isEqual(const HashItem& other) const override {
    return static_cast<const Named&>(other).name_ == name_;
  }
  U32 getHash(U8 way) const override { return (name_ + way) % 4; }
  std::string toStrep() const override { return "Named"; }

 private:
  U32 name_;
};

/// An item that takes another's row is found there by any that is equal to it, although nobody
/// asked for its own rows before.
TEST(Cuckoo, anItemThatTakesARowOverIsFound) {
  struct Unchecked final : Keel::Cuckoo::RowWriter {
    bool hashItemWrite(HashItem&, CuckooLocation) override { return true; }
  } rows;
  Table table(4, 2);
  const auto held = Orb::make<Named>(3u);
  const auto next = Orb::make<Named>(3u);
  ASSERT_EQ(table.insert(*held, rows).outcome, Outcome::placed);
  table.replace(*held, *next);
  EXPECT_FALSE(held->placed());
  EXPECT_EQ(table.find(*Orb::make<Named>(3u)), next.get());
  EXPECT_EQ(table.find(*Orb::make<Named>(7u)), nullptr);
}

TEST(Cuckoo, adoptsOnlyWhereAnItemMayLie) {
  Table table(8, 2);
  const auto item = Orb::make<Item>(std::vector<U32>{3, 5});
  const auto rival = Orb::make<Item>(std::vector<U32>{0, 5});
  EXPECT_FALSE(table.adopt(*item, {0, 5}));
  EXPECT_FALSE(table.adopt(*item, {2, 3}));
  EXPECT_TRUE(table.adopt(*item, {1, 5}));
  EXPECT_FALSE(table.adopt(*rival, {1, 5}));
  EXPECT_EQ(table.size(), 1u);
}

/// Searches are counted in 16 bits: what an earlier one noted of a row means nothing to one that
/// has its number again.
TEST(Cuckoo, searchesMayHaveNumbersAgain) {
  struct Anywhere final : Keel::Cuckoo::RowWriter {
    bool hashItemWrite(HashItem&, CuckooLocation) override { return true; }
  } anywhere;
  const auto item = [](U32 row) { return Orb::make<Item>(std::vector{row, row}); };
  for (U32 others = 65530; others < 65540; ++others) {
    Table table(2, 2);
    const auto first = item(0);
    const auto second = item(0);
    table.insert(*first, anywhere);
    table.insert(*second, anywhere);
    const auto third = item(0);
    const auto beside = item(1);
    table.insert(*beside, anywhere);
    const auto free = item(1);
    EXPECT_EQ(table.insert(*free, anywhere).outcome, Outcome::placed);
    table.remove(*free);
    for (U32 i = 0; i < others; ++i) table.insert(*third, anywhere);
    EXPECT_EQ(table.insert(*free, anywhere).outcome, Outcome::placed) << others;

    // Rows that a failed search closed, and that were opened since.
    const auto last = item(1);
    EXPECT_EQ(table.insert(*last, anywhere).outcome, Outcome::refused);
    table.remove(*beside);
    for (U32 i = 0; i < others; ++i) {
      table.insert(*third, anywhere);
      table.remove(*first);
      table.insert(*first, anywhere);
    }
    EXPECT_EQ(table.insert(*last, anywhere).outcome, Outcome::placed) << others;
  }
}

}  // namespace
