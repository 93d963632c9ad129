#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <map>

#include "Generator.h"
#include "agent/Events.h"
#include "agent/Profiles.h"

// An agent is killed at a register write, whatever it was doing. The switch keeps its rows; the
// next agent finds them, is told what is desired, and leaves every row alone that is right.
//
// VELA_KILLS says how often each group of tables is killed in each profile; a few times unless told
// otherwise, since a thousand take a while.

namespace {

using VelaAgent::Agent;
using VelaAgent::HwTableAdapter;
using VelaAgent::Json;
using VelaSwitchApi::EntryProgrammedStatus;
using VelaTest::Generator;
using VelaTest::Group;
using VelaTest::Random;

U32 killsPerGroup() {
  const char* kills = std::getenv("VELA_KILLS");
  return kills ? static_cast<U32>(std::stoul(kills)) : 6;
}

/// What a killed process leaves behind of how far it came.
struct Progress {
  volatile U32 begun;  ///< Operations that it began.
  volatile U32 done;   ///< Operations that it finished.
  /// Entries that it could not place. They may have room later, without anyone trying them again.
  volatile U32 refused;
};

Progress& progress() {
  static auto* shared = static_cast<Progress*>(
      mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  return *shared;
}

/// Entry of one table of a group.
struct Operation {
  std::size_t table;
  Json key;
  Json result;  ///< Null to withdraw it.
};

class Crash : public testing::TestWithParam<std::string> {
 protected:
  using Desired = std::map<std::pair<std::size_t, Json>, Json>;

  void run(const Group& group) {
    SCOPED_TRACE(group.name());
    VelaDevice::SimulatedSwitch chip;
    Agent agent(profile, chip);
    agent.make(group.make);
    agent.start(Agent::Start::fresh);
    U32 keys = 0;
    for (const auto& [table, instance] : group.tables) keys += generator.keys(table);
    // Half of all keys, in big tables fewer; small tables are full then.
    const U32 filled = std::min(keys / 2, U32{1800});
    Desired desired;
    progress().refused = 0;
    for (U32 i = 0; i < filled; ++i) apply(agent, group, operation(group, filled, true), desired);
    const U32 refused = progress().refused;

    const VelaDevice::SimulatedSwitch kept(chip);
    for (U32 kill = 0; kill < killsPerGroup() && !HasFailure(); ++kill) {
      std::vector<Operation> operations;
      for (U32 i = 0; i < 12; ++i) operations.push_back(operation(group, filled, false));
      progress().refused = refused;
      killWhileApplying(agent, chip, group, operations, 1 + random.below(60));
      Desired now = desired;
      for (U32 i = 0; i < progress().begun; ++i) note(operations[i], now);
      const bool inFlight = progress().begun != progress().done;
      const bool idle = !inFlight && progress().refused == 0;
      ++(inFlight ? amid_ : between_);
      if (idle) ++idle_;
      restart(chip, group, desired, now, idle, operations);
      chip = kept;
    }
  }

  Operation operation(const Group& group, U32 filled, bool set) {
    Operation next;
    next.table = random.below(static_cast<U32>(group.tables.size()));
    const auto& [table, instance] = group.tables[next.table];
    const auto tables = static_cast<U32>(group.tables.size());
    const U32 number = random.below(std::max(filled, 1u) * 2) * tables;
    next.key = generator.key(table, number + static_cast<U32>(next.table));
    if (set || random.below(3) != 0) next.result = generator.result(table, next.key);
    return next;
  }

  static void note(const Operation& operation, Desired& desired) {
    if (operation.result.is_null()) {
      desired.erase({operation.table, operation.key});
    } else {
      desired[{operation.table, operation.key}] = operation.result;
    }
  }

  static void apply(Agent& agent, const Group& group, const Operation& operation,
                    Desired& desired) {
    auto& table =
        agent.table(group.tables[operation.table].first, group.tables[operation.table].second);
    if (operation.result.is_null()) {
      table.del(operation.key);
    } else {
      const auto status = table.set(operation.key, operation.result);
      if (status != EntryProgrammedStatus::programmed) progress().refused = progress().refused + 1;
    }
    agent.settle();
    note(operation, desired);
  }

  void killWhileApplying(Agent& agent, VelaDevice::SimulatedSwitch& chip, const Group& group,
                         const std::vector<Operation>& operations, U32 lastWrite) {
    progress().begun = 0;
    progress().done = 0;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      U32 writes = 0;
      chip.writeObserverIs([&](const auto&, U32) {
        if (++writes == lastWrite) kill(getpid(), SIGKILL);
      });
      Desired ignored;
      for (const Operation& each : operations) {
        progress().begun = progress().begun + 1;
        apply(agent, group, each, ignored);
        progress().done = progress().done + 1;
      }
      kill(getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;
  }

  /// The next agent: rebuilds, is told everything, and removes the rest.
  void restart(VelaDevice::SimulatedSwitch& chip, const Group& group, const Desired& before,
               const Desired& desired, bool idle, const std::vector<Operation>& operations) {
    Agent agent(profile, chip);
    agent.make(group.make);
    // What no operation touched is found from the crash on, whatever is being written.
    std::vector<std::pair<std::size_t, Json>> untouched;
    for (const auto& entry : before) {
      const auto& at = entry.first;
      const bool touched =
          std::any_of(operations.begin(), operations.end(),
                      [&](const Operation& each) {  // What limits a class of packets is told with
                                                    // the interval, the first entry.
                        const bool interval = group.name() == "Copp" && each.key == 0;
                        return each.table == at.first && (each.key == at.second || interval);
                      });
      if (!touched && untouched.size() < 12 && random.below(20) == 0) untouched.push_back(at);
    }
    const auto find = [&](const std::pair<std::size_t, Json>& at) {
      const auto& [name, instance] = group.tables[at.first];
      return agent.table(name, instance).lookup(agent.dataPath(), at.second);
    };
    std::vector<Json> hits;
    // One that had no room before may have some now.
    std::erase_if(untouched, [&](const auto& at) { return find(at).is_null(); });
    for (const auto& at : untouched) hits.push_back(find(at));
    U32 lost = 0;
    chip.writeObserverIs([&](const auto&, U32) {
      for (std::size_t i = 0; i < untouched.size(); ++i) {
        if (find(untouched[i]) != hits[i]) ++lost;
      }
    });
    agent.start(Agent::Start::restart);
    for (const auto& [at, result] : desired) {
      Desired ignored;
      apply(agent, group, {at.first, at.second, result}, ignored);
    }
    agent.reconcile();
    agent.complete();
    chip.writeObserverIs(nullptr);
    EXPECT_EQ(lost, 0u);
    if (idle) {
      EXPECT_EQ(agent.recorder().rowWrites(), 0u) << "nothing was in flight";
    }
    for (const auto& table : agent.tables()) {
      table->audit();
      EXPECT_TRUE(table->findings().empty()) << table->name();
    }
    for (const auto& [at, result] : desired) {
      const auto& [name, instance] = group.tables[at.first];
      if (random.below(30) != 0) continue;
      if (agent.table(name, instance).set(at.second, result) == EntryProgrammedStatus::programmed) {
        const Json hit = find(at);
        ASSERT_FALSE(hit.is_null()) << name << at.second;
        if (VelaTest::comparable(name)) {
          ASSERT_TRUE(VelaAgent::meets(hit, result)) << name << at.second << hit << result;
        }
      }
    }
  }

  Orb::PtrConst<VelaSwitch::ProfileInfo> profile = VelaAgent::loadProfile(GetParam());
  Random random;
  Generator generator{*profile, random};
  U32 amid_ = 0;     ///< Kills amid an operation.
  U32 between_ = 0;  ///< Kills between two.
  U32 idle_ = 0;     ///< Those with nothing left to do.
};

TEST_P(Crash, theNextAgentRepairsWhatWasInFlightAndNothingElse) {
  for (const Group& group : VelaTest::groups(*profile)) run(group);
  EXPECT_GT(amid_, 0u);
  EXPECT_GT(idle_, 0u);
  std::printf("%u kills amid an operation, %u between two; in %u nothing was left to do\n", amid_,
              between_, idle_);
}

INSTANTIATE_TEST_SUITE_P(Profiles, Crash, testing::ValuesIn(VelaTest::profileNames()),
                         VelaTest::profileTestName);

}  // namespace
