#include <map>

#include "Generator.h"
#include "agent/Events.h"
#include "agent/Profiles.h"

// Register writes and reads fail at random, amid whatever the tables of each family do. Statuses
// tell the truth all the time, and once the faults end software and hardware agree again.
//
// VELA_SCHEDULES says how many random schedules of faults each profile sees.

namespace {

using VelaAgent::Agent;
using VelaAgent::Json;
using VelaSwitchApi::EntryProgrammedStatus;
using VelaTest::Generator;
using VelaTest::Group;
using VelaTest::Random;

class Schedules : public testing::TestWithParam<std::string> {
 protected:
  using Key = std::pair<std::size_t, Json>;

  /// The tables of a group and what is desired of them, with the statuses that were reported.
  struct Rig {
    explicit Rig(const Orb::PtrConst<VelaSwitch::ProfileInfo>& profile, const Group& ofGroup)
        : group(ofGroup), agent(profile, chip) {
      agent.make(group.make);
      agent.start(Agent::Start::fresh);
    }
    VelaAgent::TableAdapter& table(const Key& key) const {
      return agent.table(group.tables[key.first].first, group.tables[key.first].second);
    }
    Json find(const Key& key) { return table(key).lookup(agent.dataPath(), key.second); }

    Group group;
    VelaDevice::SimulatedSwitch chip;
    Agent agent;
    std::map<Key, Json> desired;
    std::map<Key, EntryProgrammedStatus> statuses;
  };

  void step(Rig& rig) {
    if (random.below(3) == 0)
      rig.chip.failWritesIs(random.below(6), random.below(5), random.below(4));
    if (random.below(5) == 0) rig.chip.failReadsIs(random.below(8));
    const std::size_t at = random.below(static_cast<U32>(rig.group.tables.size()));
    const std::string& name = rig.group.tables[at].first;
    const U32 numbers = std::min(generator.keys(name), 40u);
    const Key key{at, generator.key(name, random.below(numbers) * 2 + static_cast<U32>(at))};
    switch (random.below(8)) {
      case 0:
        rig.table(key).pollHitBits(Orb::Seconds(1.0 * random.below(1000)));
        return;
      case 1:
        for (const auto& table : rig.agent.tables()) table->audit();
        break;
      case 2:
      case 3:
        rig.table(key).del(key.second);
        rig.desired.erase(key);
        rig.statuses.erase(key);
        break;
      default:
        rig.desired[key] = generator.result(name, key.second);
        rig.statuses[key] = rig.table(key).set(key.second, rig.desired[key]);
        if (rig.statuses[key] == EntryProgrammedStatus::programmed && VelaTest::comparable(name)) {
          EXPECT_TRUE(VelaAgent::meets(rig.find(key), rig.desired[key])) << name << key.second;
        }
    }
    rig.agent.settle();
  }

  /// Whether the entries that are said to be programmed are found.
  void expectTruth(Rig& rig) {
    for (const auto& table : rig.agent.announced()) {
      for (const auto& status : table->statuses()) {
        if (status.status != EntryProgrammedStatus::programmed) continue;
        for (std::size_t at = 0; at < rig.group.tables.size(); ++at) {
          if (rig.group.tables[at] != std::pair{table->name(), table->instance()}) continue;
          const Json hit = rig.find({at, status.key});
          ASSERT_FALSE(hit.is_null()) << table->name() << status.key;
        }
      }
    }
  }

  /// The faults are over: what is desired is in hardware, and nothing else.
  void expectAgreement(Rig& rig) {
    rig.chip.failWritesIs(0);
    rig.chip.failReadsIs(0);
    rig.agent.reconcile();
    for (const auto& table : rig.agent.tables()) {
      table->audit();
      ASSERT_TRUE(table->findings().empty()) << table->name();
    }
    for (const auto& [key, result] : rig.desired) {
      const auto status = rig.table(key).set(key.second, result);
      ASSERT_NE(status, EntryProgrammedStatus::hardwareError) << key.second;
      if (status != EntryProgrammedStatus::programmed) continue;
      const Json hit = rig.find(key);
      ASSERT_FALSE(hit.is_null()) << rig.group.name() << key.second;
      if (VelaTest::comparable(rig.table(key).name())) {
        ASSERT_TRUE(VelaAgent::meets(hit, result)) << rig.table(key).name() << hit << result;
      }
    }
    ASSERT_EQ(rig.table({0, {}}).entries(), entriesOfFirst(rig));
  }

  static U32 entriesOfFirst(const Rig& rig) {
    U32 count = 0;
    for (const auto& [key, result] : rig.desired) count += key.first == 0 ? 1 : 0;
    return count;
  }

  Orb::PtrConst<VelaSwitch::ProfileInfo> profile = VelaAgent::loadProfile(GetParam());
  Random random;
  Generator generator{*profile, random};
};

TEST_P(Schedules, statusesTellTheTruthAndFaultsAreMended) {
  const char* wanted = std::getenv("VELA_SCHEDULES");
  const U32 schedules = wanted ? static_cast<U32>(std::stoul(wanted)) : 300;
  const auto all = VelaTest::groups(*profile);
  const U32 each = std::max(schedules / static_cast<U32>(all.size()), 1u);
  for (const Group& group : all) {
    SCOPED_TRACE(group.name());
    Rig rig(profile, group);
    for (U32 schedule = 0; schedule < each; ++schedule) {
      for (int i = 0; i < 12; ++i) {
        step(rig);
        ASSERT_NO_FATAL_FAILURE(expectTruth(rig)) << "schedule " << schedule;
      }
      ASSERT_NO_FATAL_FAILURE(expectAgreement(rig)) << "schedule " << schedule;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Profiles, Schedules, testing::ValuesIn(VelaTest::profileNames()),
                         VelaTest::profileTestName);

}  // namespace
