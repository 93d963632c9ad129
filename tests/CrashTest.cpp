#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "Generator.h"

// An agent is killed at a register write, whatever it was doing. The switch keeps its rows; the
// next agent finds them, is told what is desired, and leaves every row alone that is right.
//
// VELA_KILLS says how often each group of tables is killed in each profile; a few times unless told
// otherwise, since a thousand take a while.

namespace {

using VelaAgent::Agent;
using VelaAgent::Json;
using VelaTest::Desired;
using VelaTest::EntryKey;
using VelaTest::EntryProgrammedStatus;
using VelaTest::Group;
using VelaTest::GroupAgent;

U32 killsPerGroup() {
  const char* kills = std::getenv("VELA_KILLS");
  return kills ? static_cast<U32>(std::stoul(kills)) : VelaTest::sanitized ? 2 : 6;
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

/// An entry, and what it shall be: null to withdraw it.
using Operation = std::pair<EntryKey, Json>;

class Crash : public VelaTest::ProfileTest {
 protected:
  void run(const Group& group) {
    SCOPED_TRACE(group.name());
    VelaDevice::SimulatedSwitch chip;
    GroupAgent agent(profile, group, chip);
    agent.start(Agent::Start::fresh);
    U32 keys = 0;
    for (const auto& [table, instance] : group.tables) keys += generator.keys(table);
    // Half of all keys, in big tables fewer; small tables are full then.
    const U32 filled = std::min(keys / 2, U32{1800});
    Desired desired;
    progress().refused = 0;
    for (U32 i = 0; i < filled; ++i) apply(agent, operation(group, filled, true), desired);
    const U32 refused = progress().refused;

    const VelaDevice::SimulatedSwitch kept(chip);
    for (U32 kill = 0; kill < killsPerGroup() && !HasFailure(); ++kill) {
      std::vector<Operation> operations;
      for (U32 i = 0; i < 12; ++i) operations.push_back(operation(group, filled, false));
      progress().refused = refused;
      killWhileApplying(agent, chip, operations, 1 + random.below(60));
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
    const EntryKey key = generator.randomKey(group, std::max(filled, 1u) * 2);
    if (!set && random.below(3) == 0) return {key, nullptr};
    return {key, generator.result(group.tables[key.first].first, key.second)};
  }

  static void note(const Operation& operation, Desired& desired) {
    if (operation.second.is_null()) {
      desired.erase(operation.first);
    } else {
      desired[operation.first] = operation.second;
    }
  }

  static void apply(GroupAgent& agent, const Operation& operation, Desired& desired) {
    if (operation.second.is_null()) {
      agent.del(operation.first);
    } else if (agent.set(operation.first, operation.second) != EntryProgrammedStatus::programmed) {
      progress().refused = progress().refused + 1;
    }
    note(operation, desired);
  }

  void killWhileApplying(GroupAgent& agent, VelaDevice::SimulatedSwitch& chip,
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
        apply(agent, each, ignored);
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
    GroupAgent agent(profile, group, chip);
    // What no operation touched is found from the crash on, whatever is being written.
    std::map<EntryKey, Json> untouched;
    for (const auto& [key, result] : before) {
      const bool touched =
          std::any_of(operations.begin(), operations.end(), [&, at = key](const Operation& each) {
            // What limits a class of packets is told with the interval, the first entry.
            const bool interval = group.name() == "Copp" && each.first.second == 0;
            return each.first.first == at.first && (each.first.second == at.second || interval);
          });
      if (touched || untouched.size() == 12 || random.below(20) != 0) continue;
      // One that had no room before may have some now.
      const Json hit = agent.find(key);
      if (!hit.is_null()) untouched[key] = hit;
    }
    U32 lost = 0;
    chip.writeObserverIs([&](const auto&, U32) {
      for (const auto& [key, hit] : untouched) lost += agent.find(key) != hit ? 1 : 0;
    });
    agent.start(Agent::Start::restart);
    agent.setAll(desired);
    agent.reconcile();
    agent.complete();
    chip.writeObserverIs(nullptr);
    EXPECT_EQ(lost, 0u);
    if (idle) {
      EXPECT_EQ(agent.recorder().rowWrites(), 0u) << "nothing was in flight";
    }
    ASSERT_NO_FATAL_FAILURE(VelaTest::expectNoFindings(agent));
    for (const auto& [key, result] : desired) {
      if (random.below(30) != 0) continue;
      if (agent.set(key, result) == EntryProgrammedStatus::programmed) {
        ASSERT_NO_FATAL_FAILURE(agent.expectFound(key, result));
      }
    }
  }

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
