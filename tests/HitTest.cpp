#include "Generator.h"

// Hits belong to entries: however entries move, change and go, each hit is reported for the entry
// that the data path found, and for no other, at the next poll. Whether hardware clears a row's bit
// when the row is written must not matter.

namespace {

using VelaAgent::Agent;
using VelaAgent::Json;
using VelaTest::EntryKey;
using VelaTest::EntryProgrammedStatus;
using VelaTest::Group;

class Hits : public testing::TestWithParam<bool> {
 protected:
  Hits() { chip.writesClearHitsIs(GetParam()); }

  /// Tables that share rows, and what should be known of their entries' hits.
  struct Rig : VelaTest::GroupAgent {
    using GroupAgent::GroupAgent;
    VelaAgent::HwTableAdapter& hardware(std::size_t number) const {
      return *of({number, {}}).hardware();
    }
    U64 moves() const { return hardware(0).moves(); }

    std::map<EntryKey, double> lastHits;  ///< Of the entries there are.
    std::set<EntryKey> hit;               ///< Since the last poll.
  };

  void set(Rig& rig, const EntryKey& key) {
    rig.set(key, generator.result(rig.of(key).name(), key.second));
    rig.lastHits.try_emplace(key, 0);
  }
  static void del(Rig& rig, const EntryKey& key) {
    rig.del(key);
    rig.lastHits.erase(key);
    rig.hit.erase(key);
  }
  static void hit(Rig& rig, const EntryKey& key) {
    if (!rig.find(key).is_null()) rig.hit.insert(key);
  }
  /// A flipped bit of the row, which an audit finds and a repair writes again.
  void damage(Rig& rig, const EntryKey& key) {
    auto& table = rig.hardware(key.first);
    const auto place = table.place(key.second);
    if (!place) return;
    const auto& hwTable = *table.convertor().hwTables().begin()->second;
    ASSERT_TRUE(chip.flipBit(hwTable.busHandle(), place->index, 0, random.below(8)));
    table.audit();
    table.repair();
  }

  void poll(Rig& rig, double now) {
    for (std::size_t i = 0; i < rig.group.tables.size(); ++i) {
      ASSERT_TRUE(rig.hardware(i).pollHitBits(Orb::Seconds(now)));
    }
    for (const EntryKey& key : rig.hit) rig.lastHits[key] = now;
    rig.hit.clear();
    U32 seen = 0;
    for (std::size_t i = 0; i < rig.group.tables.size(); ++i) {
      for (const auto& status : rig.hardware(i).statuses()) {
        const auto expected = rig.lastHits.find({i, status.key});
        ASSERT_NE(expected, rig.lastHits.end()) << status.key;
        ASSERT_EQ(status.lastHit.value(), expected->second)
            << rig.hardware(i).name() << status.key << " at " << now;
        ++seen;
      }
    }
    ASSERT_EQ(seen, rig.lastHits.size());
  }

  Orb::PtrConst<VelaSwitch::ProfileInfo> profile = VelaAgent::loadProfile("vela-48-5.1");
  VelaTest::Random random;
  VelaTest::Generator generator{*profile, random};
  VelaDevice::SimulatedSwitch chip;
};

TEST_P(Hits, staysWithTheEntryThatWasHit) {
  // Of all families together: in the time that sanitizers leave, one alone may move nothing.
  U64 moves = 0;
  for (const Group& group : VelaTest::groups(*profile)) {
    Rig rig(profile, group, chip);
    if (!rig.of({0, {}}).hardware() || rig.hardware(0).convertor().hitBitTables().empty()) continue;
    rig.start(Agent::Start::fresh);
    SCOPED_TRACE(group.name());
    U32 rows = 0;
    for (std::size_t i = 0; i < group.tables.size(); ++i) {
      if (rig.hardware(i).borrowsRows()) continue;
      for (const auto& counter : rig.hardware(i).convertor().entryCounters()) rows += counter.size;
    }
    const U32 keys = generator.keys(group.name()) / static_cast<U32>(group.tables.size());
    const U32 numbers = std::min(rows * 5 / 4 / static_cast<U32>(group.tables.size()), keys);
    for (U32 i = 0; i < rows * 3 / 4; ++i) set(rig, generator.randomKey(group, numbers));
    const U64 movesBefore = rig.moves();
    std::size_t hits = 0;
    double now = 1;
    for (int round = 0; round < (VelaTest::sanitized ? 4 : 12); ++round) {
      // An audit reads the whole table, so there are few.
      U32 damages = 4;
      for (U32 step = 0; step < std::max(rows / 8, 60u); ++step) {
        const EntryKey key = generator.randomKey(group, numbers);
        const U32 what = random.below(16);
        if (what < 3) {
          del(rig, key);
        } else if (what == 3) {
          if (damages > 0 && rig.lastHits.contains(key)) {
            --damages;
            damage(rig, key);
          }
        } else if (what < 9) {
          set(rig, key);
        } else {
          hit(rig, key);
        }
      }
      hits += rig.hit.size();
      ASSERT_NO_FATAL_FAILURE(poll(rig, now));
      now += 1;
    }
    moves += rig.moves() - movesBefore;
    EXPECT_GT(hits, 0u);
  }
  EXPECT_GT(moves, 0u);
}

/// When bits cannot be read before rows change, a hit may be given to too many, never to too few.
TEST_P(Hits, failedReadsLoseNone) {
  const Group group{{"HashTest"}, {{"HashTest", 0}}};
  Rig rig(profile, group, chip);
  rig.start(Agent::Start::fresh);
  U32 doubted = 0;
  for (int round = 0; round < 3000; ++round) {
    const double now = round + 1;
    for (int step = 0; step < 12; ++step) {
      const EntryKey key{0, random.below(64)};
      if (random.below(4) == 0) chip.failReadsIs(random.below(3));
      const U32 what = random.below(4);
      if (what == 0) del(rig, key);
      if (what == 1) set(rig, key);
      // What hardware clears before anybody read it is gone, whatever the tables do.
      if (what > 1 && !GetParam()) hit(rig, key);
    }
    chip.failReadsIs(0);
    ASSERT_TRUE(rig.hardware(0).pollHitBits(Orb::Seconds(now)));
    for (const auto& status : rig.hardware(0).statuses()) {
      const bool reported = status.lastHit.value() == now;
      const bool was = rig.hit.contains({0, status.key});
      ASSERT_TRUE(reported || !was) << status.key;
      if (reported && !was) ++doubted;
    }
    rig.hit.clear();
  }
  if (!GetParam()) {
    EXPECT_GT(doubted, 0u) << "no read failed where it mattered";
  }
}

/// What only looks at a switch, to compare it with what is desired, takes no hit from it.
TEST_P(Hits, outlastAComparison) {
  const Group group{{"HashTest"}, {{"HashTest", 0}}};
  const auto each = [](const auto& action) {
    for (U32 key = 0; key < 6; ++key) action(EntryKey{0, key});
  };
  {
    Rig rig(profile, group, chip);
    rig.start(Agent::Start::fresh);
    each([&](const EntryKey& key) { rig.set(key, 1); });
    each([&](const EntryKey& key) { rig.find(key); });
  }
  Rig rig(profile, group, chip);
  rig.desireBegin();
  each([&](const EntryKey& key) { rig.set(key, 1); });
  each([&](const EntryKey& key) { rig.del(key); });
  each([&](const EntryKey& key) { rig.set(key, 1); });
  rig.desireEnd();
  VelaTest::expectNoFindings(rig);
  each([&](const EntryKey& key) { rig.hit.insert(key); });
  each([&](const EntryKey& key) { rig.lastHits[key] = 0; });
  poll(rig, 5);
}

/// What hardware cannot tell apart, also in two tables that share their rows: the first stands, the
/// second waits behind it and takes over its row, but not its hits.
TEST_P(Hits, doNotPassToADuplicate) {
  const Json acl{{"type", 11}, {"srcIp", "10.0.0.1"}, {"dstIp", "0.0.0.0"}, {"qualifier", 1}};
  const Json flow{{"natType", 1}, {"proto", 1}, {"srcIp", "10.0.0.1"}, {"sport", 80}};
  const Json connection{{"srcIp", "10.0.0.1"}, {"dstIp", "2.2.2.2"}, {"sport", 1}, {"dport", 2}};
  const Json source{{"source", "10.0.0.1"}, {"group", "225.0.0.1"}, {"vlanId", 7}};
  const struct {
    std::vector<std::pair<std::string, U32>> tables;
    Json key;
    Json others;  ///< What the twin has in place of the key's.
  } twins[] = {
      {{{"AclHash", 0}, {"AclHash", 0}}, acl, {{"dstIp", "255.255.255.255"}, {"l4Port", 65535}}},
      // The destination takes no part in a source key.
      {{{"NatMatch", 0}, {"NatMatch", 0}},
       flow,
       {{"dstIp", "2.2.2.2"}, {"dport", 2}, {"qualifier", 64}}},
      {{{"NatMatch", 0}, {"NatMatch", 1}}, flow, Json::object()},
      {{{"NatDynMatch", 0}, {"NatDynMatch", 0}}, connection, {{"natType", 2}, {"qualifier", 5}}},
      // Groups differ in the lower 28 bits.
      {{{"SG", 0}, {"SG", 0}}, source, {{"group", "241.0.0.1"}}},
  };
  for (const auto& twin : twins) {
    SCOPED_TRACE(twin.tables[1].first);
    Rig rig(profile, {{twin.tables[0].first}, twin.tables}, chip);
    rig.start(Agent::Start::fresh);
    const EntryKey first{0, twin.key};
    EntryKey second{1, twin.key};
    second.second.update(twin.others);
    const auto result = [&] { return generator.result(twin.tables[0].first, twin.key); };
    const Json stays = result();
    EXPECT_EQ(rig.set(first, stays), EntryProgrammedStatus::programmed);
    EXPECT_EQ(rig.set(second, result()), EntryProgrammedStatus::duplicateKey);
    const Json later = result();
    EXPECT_EQ(rig.set(second, later), EntryProgrammedStatus::duplicateKey);
    rig.expectFound(second, stays);
    rig.del(first);
    const auto expectHit = [&](double at) {
      EXPECT_TRUE(rig.of(second).pollHitBits(Orb::Seconds(at)));
      const auto statuses = rig.of(second).statuses();
      ASSERT_EQ(statuses.size(), 1u);
      EXPECT_EQ(statuses[0].status, EntryProgrammedStatus::programmed);
      const bool hits = !rig.hardware(1).convertor().hitBitTables().empty();
      EXPECT_EQ(statuses[0].lastHit.value(), at == 5 || !hits ? 0 : at);
    };
    ASSERT_NO_FATAL_FAILURE(expectHit(5));
    rig.expectFound(first, later);
    ASSERT_NO_FATAL_FAILURE(expectHit(6));
    rig.del(second);
    EXPECT_TRUE(rig.find(second).is_null());
    EXPECT_TRUE(rig.of(second).statuses().empty());
  }
}

/// An entry that comes back while the row of its former life could not be cleared has not been hit.
TEST_P(Hits, endWithTheEntry) {
  Rig rig(profile, {{"NatMatch"}, {{"NatMatch", 0}}}, chip);
  rig.start(Agent::Start::fresh);
  const EntryKey key{0, generator.key("NatMatch", 1)};
  set(rig, key);
  hit(rig, key);
  ASSERT_NO_FATAL_FAILURE(poll(rig, 3));
  chip.failWritesIs(1);
  rig.del(key);
  EXPECT_EQ(rig.of(key).statuses().at(0).status, EntryProgrammedStatus::hardwareError);
  set(rig, key);
  EXPECT_EQ(rig.of(key).statuses().at(0).status, EntryProgrammedStatus::programmed);
  EXPECT_EQ(rig.of(key).statuses().at(0).lastHit.value(), 0);
}

INSTANTIATE_TEST_SUITE_P(Hardware, Hits, testing::Bool(), [](const auto& clears) {
  return clears.param ? std::string("clearsBitsOnWrites") : std::string("keepsBitsOnWrites");
});

}  // namespace
