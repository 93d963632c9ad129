#include "Generator.h"

// Register writes and reads fail at random, amid whatever the tables of each family do. Statuses
// tell the truth all the time, and once the faults end software and hardware agree again.
//
// VELA_SCHEDULES says how many random schedules of faults each profile sees.

namespace {

using VelaAgent::Agent;
using VelaTest::Desired;
using VelaTest::EntryKey;
using VelaTest::EntryProgrammedStatus;
using VelaTest::Group;

class Schedules : public VelaTest::ProfileTest {
 protected:
  struct Rig : VelaTest::GroupAgent {
    using GroupAgent::GroupAgent;
    Desired desired;
  };

  void step(Rig& rig) {
    if (random.below(3) == 0)
      rig.chip().failWritesIs(random.below(6), random.below(5), random.below(4));
    if (random.below(5) == 0) rig.chip().failReadsIs(random.below(8));
    const std::string& family = rig.group.name();
    const EntryKey key = generator.randomKey(rig.group, std::min(generator.keys(family), 40u));
    const U32 what = random.below(8);
    if (what == 0) {
      rig.of(key).pollHitBits(Orb::Seconds(1.0 * random.below(1000)));
    } else if (what == 1) {
      for (const auto& table : rig.tables()) {
        table->audit();
        if (random.flip()) table->repair();
      }
      rig.settle();
    } else if (what < 4) {
      rig.del(key);
      rig.desired.erase(key);
    } else if (what == 4) {
      Desired batch;
      for (U32 i = 0; i < 6; ++i) {
        const EntryKey each = generator.randomKey(rig.group, std::min(generator.keys(family), 40u));
        batch[each] = rig.desired[each] = generator.result(rig.of(each).name(), each.second);
      }
      rig.setAll(batch);
    } else {
      rig.desired[key] = generator.result(rig.of(key).name(), key.second);
      if (rig.set(key, rig.desired[key]) == EntryProgrammedStatus::programmed) {
        rig.expectFound(key, rig.desired[key]);
      }
    }
  }

  /// The faults are over: what is desired is in hardware, and nothing else.
  void expectAgreement(Rig& rig) {
    rig.chip().failWritesIs(0);
    rig.chip().failReadsIs(0);
    rig.reconcile();
    ASSERT_NO_FATAL_FAILURE(VelaTest::expectNoFindings(rig));
    for (const auto& table : rig.announced()) {
      for (const auto& status : table->statuses()) {
        ASSERT_NE(status.status, EntryProgrammedStatus::hardwareError) << status.key;
      }
    }
    U32 entriesOfFirst = 0;
    for (const auto& [key, result] : rig.desired) {
      const auto status = rig.set(key, result);
      ASSERT_NE(status, EntryProgrammedStatus::hardwareError) << key.second;
      if (status == EntryProgrammedStatus::programmed) {
        ASSERT_NO_FATAL_FAILURE(rig.expectFound(key, result));
      }
      entriesOfFirst += key.first == 0 ? 1 : 0;
    }
    ASSERT_EQ(rig.of({0, {}}).entries(), entriesOfFirst);
  }
};

TEST_P(Schedules, statusesTellTheTruthAndFaultsAreMended) {
  const char* wanted = std::getenv("VELA_SCHEDULES");
  const U32 schedules = wanted                ? static_cast<U32>(std::stoul(wanted))
                        : VelaTest::sanitized ? 100
                                              : 300;
  const auto all = VelaTest::groups(*profile);
  const U32 each = std::max(schedules / static_cast<U32>(all.size()), 1u);
  for (const Group& group : all) {
    SCOPED_TRACE(group.name());
    VelaDevice::SimulatedSwitch chip;
    Rig rig(profile, group, chip);
    rig.start(Agent::Start::fresh);
    for (U32 schedule = 0; schedule < each; ++schedule) {
      for (int i = 0; i < 12; ++i) {
        step(rig);
        ASSERT_NO_FATAL_FAILURE(rig.expectTruth()) << "schedule " << schedule;
      }
      ASSERT_NO_FATAL_FAILURE(expectAgreement(rig)) << "schedule " << schedule;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Profiles, Schedules, testing::ValuesIn(VelaTest::profileNames()),
                         VelaTest::profileTestName);

}  // namespace
