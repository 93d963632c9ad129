#include <map>

#include "Generator.h"
#include "agent/Profiles.h"

// Hits belong to entries: however entries move, change and go, each hit is reported for the entry
// that the data path found, and for no other, at the next poll. Whether hardware clears a row's bit
// when the row is written must not matter.

namespace {

using VelaAgent::Agent;
using VelaAgent::Json;
using VelaSwitchApi::EntryProgrammedStatus;
using VelaTest::Generator;
using VelaTest::Group;
using VelaTest::Random;

class Hits : public testing::TestWithParam<bool> {
 protected:
  using Key = std::pair<std::size_t, Json>;

  /// Tables that share rows, and what should be known of their entries' hits.
  struct Rig {
    Rig(const Orb::PtrConst<VelaSwitch::ProfileInfo>& profile, const Group& ofGroup, bool clear)
        : group(ofGroup), agent(profile, chip) {
      chip.writesClearHitsIs(clear);
      agent.make(group.make);
      agent.start(Agent::Start::fresh);
    }
    VelaAgent::HwTableAdapter& table(std::size_t number) const {
      return *agent.table(group.tables[number].first, group.tables[number].second).hardware();
    }
    U64 moves() const { return table(0).moves(); }

    Group group;
    VelaDevice::SimulatedSwitch chip;
    Agent agent;
    std::map<Key, double> lastHits;  ///< Of the entries there are.
    std::set<Key> hit;               ///< Since the last poll.
  };

  Key randomKey(Rig& rig, U32 numbers) {
    const std::size_t table = random.below(static_cast<U32>(rig.group.tables.size()));
    const auto tables = static_cast<U32>(rig.group.tables.size());
    const U32 number = random.below(numbers) * tables + static_cast<U32>(table);
    const std::string& name = rig.group.tables[table].first;
    Json key = generator.key(name, number);
    // As statuses spell it.
    if (name.starts_with("Nat")) {
      key = VelaAgent::toJson(VelaAgent::fromJson<VelaSwitch::NatMatchKey>(key));
    }
    return {table, key};
  }

  void set(Rig& rig, const Key& key) {
    const std::string& name = rig.group.tables[key.first].first;
    rig.table(key.first).set(key.second, generator.result(name, key.second));
    rig.lastHits.try_emplace(key, 0);
  }
  void del(Rig& rig, const Key& key) {
    rig.table(key.first).del(key.second);
    rig.lastHits.erase(key);
    rig.hit.erase(key);
  }
  void hit(Rig& rig, const Key& key) {
    const Json found = rig.table(key.first).lookup(rig.agent.dataPath(), key.second);
    if (!found.is_null()) rig.hit.insert(key);
  }
  /// A flipped bit of the row, which an audit finds and a repair writes again.
  void damage(Rig& rig, const Key& key) {
    auto& table = rig.table(key.first);
    const auto place = table.place(key.second);
    if (!place) return;
    const auto& hwTable = *table.convertor().hwTables().begin()->second;
    ASSERT_TRUE(rig.chip.flipBit(hwTable.busHandle(), place->index, 0, random.below(8)));
    table.audit();
    table.repair();
  }

  void poll(Rig& rig, double now) {
    for (std::size_t i = 0; i < rig.group.tables.size(); ++i) {
      ASSERT_TRUE(rig.table(i).pollHitBits(Orb::Seconds(now)));
    }
    for (const Key& key : rig.hit) rig.lastHits[key] = now;
    rig.hit.clear();
    U32 seen = 0;
    for (std::size_t i = 0; i < rig.group.tables.size(); ++i) {
      for (const auto& status : rig.table(i).statuses()) {
        const auto expected = rig.lastHits.find({i, status.key});
        ASSERT_NE(expected, rig.lastHits.end()) << status.key;
        ASSERT_EQ(status.lastHit.value(), expected->second)
            << rig.table(i).name() << status.key << " at " << now;
        ++seen;
      }
    }
    ASSERT_EQ(seen, rig.lastHits.size());
  }

  Orb::PtrConst<VelaSwitch::ProfileInfo> profile = VelaAgent::loadProfile("vela-48-5.1");
  Random random;
  Generator generator{*profile, random};
};

TEST_P(Hits, staysWithTheEntryThatWasHit) {
  for (const Group& group : VelaTest::groups(*profile)) {
    Rig rig(profile, group, GetParam());
    const auto* first = rig.agent.table(group.name(), group.tables[0].second).hardware();
    if (!first || first->convertor().hitBitTables().empty()) continue;
    SCOPED_TRACE(group.name());
    U32 rows = 0;
    for (std::size_t i = 0; i < group.tables.size(); ++i) {
      if (rig.table(i).borrowsRows()) continue;
      for (const auto& counter : rig.table(i).convertor().entryCounters()) rows += counter.size;
    }
    const U32 keys = generator.keys(group.name()) / static_cast<U32>(group.tables.size());
    const U32 numbers = std::min(rows * 5 / 4 / static_cast<U32>(group.tables.size()), keys);
    for (U32 i = 0; i < rows * 3 / 4; ++i) set(rig, randomKey(rig, numbers));
    const U64 movesBefore = rig.moves();
    double now = 1;
    for (int round = 0; round < 12; ++round) {
      for (U32 step = 0; step < std::max(rows / 8, 60u); ++step) {
        const Key key = randomKey(rig, numbers);
        switch (random.below(16)) {
          case 0:
          case 1:
          case 2:
            del(rig, key);
            break;
          case 3:
            if (rig.lastHits.contains(key)) damage(rig, key);
            break;
          case 4:
          case 5:
          case 6:
          case 7:
          case 8:
            set(rig, key);
            break;
          default:
            hit(rig, key);
        }
      }
      ASSERT_FALSE(rig.hit.empty());
      ASSERT_NO_FATAL_FAILURE(poll(rig, now));
      now += 1;
    }
    EXPECT_GT(rig.moves(), movesBefore) << "nothing moved";
  }
}

/// When bits cannot be read before rows change, a hit may be given to too many, never to too few.
TEST_P(Hits, failedReadsLoseNone) {
  const Group group{{"HashTest"}, {{"HashTest", 0}}};
  Rig rig(profile, group, GetParam());
  U32 doubted = 0;
  for (int round = 0; round < 3000; ++round) {
    const double now = round + 1;
    for (int step = 0; step < 12; ++step) {
      const Key key{0, random.below(64)};
      if (random.below(4) == 0) rig.chip.failReadsIs(random.below(3));
      const U32 what = random.below(4);
      if (what == 0) del(rig, key);
      if (what == 1) set(rig, key);
      // What hardware clears before anybody read it is gone, whatever the tables do.
      if (what > 1 && !GetParam()) hit(rig, key);
    }
    rig.chip.failReadsIs(0);
    ASSERT_TRUE(rig.table(0).pollHitBits(Orb::Seconds(now)));
    for (const auto& status : rig.table(0).statuses()) {
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

/// A hit that is known but not reported yet ends with its entry.
TEST_P(Hits, ofARemovedEntryAreNotItsSuccessors) {
  VelaDevice::SimulatedSwitch chip;
  chip.writesClearHitsIs(GetParam());
  Agent agent(profile, chip);
  agent.make({"HashTest"});
  agent.start(Agent::Start::fresh);
  auto& table = *agent.table("HashTest", 0).hardware();
  const auto found = [&](U32 key) { return !table.lookup(agent.dataPath(), key).is_null(); };
  const auto lastHit = [&](U32 key) {
    for (const auto& status : table.statuses()) {
      if (status.key == key) return status.lastHit.value();
    }
    return -1.0;
  };
  table.set(5, 1);
  EXPECT_TRUE(found(5));
  table.set(5, 2);  // its hit is kept
  table.del(5);
  table.set(5, 3);
  table.set(6, 1);
  EXPECT_TRUE(found(6));
  table.set(6, 2);
  EXPECT_TRUE(table.pollHitBits(Orb::Seconds(9)));
  EXPECT_EQ(lastHit(5), 0);
  EXPECT_EQ(lastHit(6), 9);
  EXPECT_TRUE(table.pollHitBits(Orb::Seconds(10)));
  EXPECT_EQ(lastHit(6), 9) << "reported once";
}

/// What only looks at a switch, to compare it with what is desired, takes no hit from it.
TEST_P(Hits, outlastAComparison) {
  VelaDevice::SimulatedSwitch chip;
  chip.writesClearHitsIs(GetParam());
  const auto each = [](Agent& agent, const auto& action) {
    for (U32 key = 0; key < 6; ++key) action(*agent.table("HashTest", 0).hardware(), Json(key));
  };
  {
    Agent agent(profile, chip);
    agent.make({"HashTest"});
    agent.start(Agent::Start::fresh);
    each(agent, [](auto& table, const Json& key) { table.set(key, 1); });
    each(agent, [&](auto& table, const Json& key) { table.lookup(agent.dataPath(), key); });
  }
  Agent agent(profile, chip);
  agent.make({"HashTest"});
  agent.desireBegin();
  each(agent, [](auto& table, const Json& key) { table.set(key, 1); });
  each(agent, [](auto& table, const Json& key) { table.del(key); });
  each(agent, [](auto& table, const Json& key) { table.set(key, 1); });
  agent.desireEnd();
  auto& table = *agent.table("HashTest", 0).hardware();
  table.audit();
  EXPECT_TRUE(table.findings().empty());
  EXPECT_TRUE(table.pollHitBits(Orb::Seconds(5)));
  EXPECT_EQ(table.statuses().size(), 6u);
  for (const auto& status : table.statuses()) EXPECT_EQ(status.lastHit.value(), 5) << status.key;
}

/// An entry that was behind another one of the same hardware key takes over its row, not its hits.
TEST_P(Hits, doNotPassToADuplicate) {
  VelaDevice::SimulatedSwitch chip;
  chip.writesClearHitsIs(GetParam());
  Agent agent(profile, chip);
  agent.make({"NatMatch"});
  agent.start(Agent::Start::fresh);
  auto& table = *agent.table("NatMatch", 0).hardware();
  // The destination takes no part in a source key.
  const auto key = [](U32 dport) {
    return Json{{"natType", 1}, {"srcIp", "10.0.0.1"}, {"sport", 7}, {"dport", dport}};
  };
  const Json result{{"valid", true}, {"natRewriteId", 3}};
  EXPECT_EQ(table.set(key(1), result), EntryProgrammedStatus::programmed);
  EXPECT_EQ(table.set(key(2), result), EntryProgrammedStatus::duplicateKey);
  EXPECT_FALSE(table.lookup(agent.dataPath(), key(1)).is_null());
  table.del(key(1));
  EXPECT_TRUE(table.pollHitBits(Orb::Seconds(5)));
  ASSERT_EQ(table.statuses().size(), 1u);
  EXPECT_EQ(table.statuses()[0].lastHit.value(), 0);
  EXPECT_FALSE(table.lookup(agent.dataPath(), key(2)).is_null());
  EXPECT_TRUE(table.pollHitBits(Orb::Seconds(6)));
  EXPECT_EQ(table.statuses()[0].lastHit.value(), 6);
}

INSTANTIATE_TEST_SUITE_P(Hardware, Hits, testing::Bool(), [](const auto& clears) {
  return clears.param ? std::string("clearsBitsOnWrites") : std::string("keepsBitsOnWrites");
});

}  // namespace
