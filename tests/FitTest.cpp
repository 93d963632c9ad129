#include "agent/Fit.h"

#include "Generator.h"
#include "Ipnet/IpPrefix.h"
#include "agent/Events.h"
#include "agent/Explain.h"

// Whether a set fits is said without a switch, and what is said against it is a proof.

namespace {

using VelaAgent::Agent;
using VelaAgent::EventRunner;
using VelaAgent::Json;
using VelaAgent::Misfit;

/// A switch that is told entries of some families, and counts those that it has no room for.
struct Told {
  Told(const Orb::PtrConst<VelaSwitch::ProfileInfo>& profile, const std::vector<std::string>& make,
       bool writes)
      : agent(profile, chip) {
    agent.make(make);
    if (writes) {
      agent.start(Agent::Start::fresh);
    } else {
      agent.desireBegin();
    }
  }
  void set(const std::string& table, const Json& key, const Json& result) {
    runner.emplace(agent);
    runner->apply({{"op", "set"}, {"table", table}, {"key", key}, {"result", result}});
  }

  VelaDevice::SimulatedSwitch chip;
  Agent agent;
  std::optional<EventRunner> runner;
};

struct Fit : VelaTest::ProfileTest {
  /// Routes crowd into one level; other families have keys of their own.
  std::pair<Json, Json> entry(const std::string& table) {
    if (table != "Route") {
      const Json key =
          table == "HashTest" ? Json(random.below(200)) : generator.key(table, random() % 100000);
      return {key, generator.result(table, key)};
    }
    const Ipnet::IpPrefix prefix(Ipnet::IpAddr(random()), static_cast<U8>(12 + random.below(3)));
    return {VelaAgent::toJson(VelaSwitch::LpmKey{0, prefix}), {{"l3LagIndex", 1}}};
  }
  void check(const std::string& table, const std::vector<std::string>& tables);
  void checkProof(const Agent& agent, const std::string& table, const Misfit& misfit);

  std::vector<std::string> make;
  std::map<Json, Json> results;
  U32 proofs = 0;
};

void Fit::checkProof(const Agent& agent, const std::string& table, const Misfit& misfit) {
  ++proofs;
  const auto& adapter = agent.table(table, 0);
  std::vector<std::vector<Json>> set{{adapter.keyToJson(misfit.key)}};
  for (const auto& each : adapter.competing(misfit.key)) {
    set.push_back(announcedAt(agent, adapter, each));
  }
  const auto refused = [&](std::size_t without) {
    Told few(profile, make, false);
    U32 keysRefused = 0;
    for (std::size_t i = 0; i < set.size(); ++i) {
      if (i == without) continue;
      bool in = true;
      for (const Json& key : set[i]) {
        const bool other = key.contains("table");
        const Json& own = other ? key["key"] : key;
        few.set(other ? key["table"].get<std::string>() : table, own, results[own]);
        in = few.runner->refusals() == 0;
      }
      keysRefused += in ? 0 : 1;
    }
    return keysRefused;
  };
  EXPECT_EQ(refused(set.size()), 1u) << table << " with " << set.size();
  // Without any one of them there is room; of many a few are tried.
  constexpr std::size_t most = 12;
  const std::size_t step = set.size() / most + 1;
  for (std::size_t i = random.below(static_cast<U32>(step)); i < set.size(); i += step) {
    EXPECT_EQ(refused(i), 0u) << table << " without " << i;
  }
}

void Fit::check(const std::string& table, const std::vector<std::string>& tables) {
  make = tables;
  results.clear();
  Told real(profile, make, true);
  Told meant(profile, make, false);
  const auto* level =
      table == "Route" ? &real.agent.table("Lpm14", 0) : &real.agent.table(table, 0);
  const U64 capacity = level->hardware()->typed().engine()->capacity();
  EventRunner written(real.agent);
  EventRunner told(meant.agent);
  for (U64 i = 0; i < capacity * (10 + random.below(6)) / 10; ++i) {
    const auto [key, result] = entry(table);
    results[key] = result;
    Json event = {{"op", "set"}, {"table", table}, {"key", key}, {"result", result}};
    if (random.below(8) == 0) event = {{"op", "del"}, {"table", table}, {"key", key}};
    written.apply(event);
    told.apply(event);
  }
  EXPECT_EQ(told.refused(), written.refused()) << table;
  EXPECT_EQ(meant.agent.recorder().rowWrites(), 0u);
  const auto misfits = VelaAgent::misfits(meant.agent, meant.agent.table(table, 0), ~U64{0});
  EXPECT_EQ(misfits.size(), told.refused()) << table;
  VelaAgent::FitMeter meter;
  const auto fit = meter.measure(meant.agent.table(level->name(), 0));
  EXPECT_EQ(fit.taken, real.agent.table(level->name(), 0).hardware()->typed().engine()->size());
  for (int i = 0; i < 2 && !misfits.empty(); ++i) {
    checkProof(meant.agent, table, misfits[random.below(static_cast<U32>(misfits.size()))]);
  }
}

TEST_P(Fit, saysWhatARunWouldRefuse) {
  for (int i = 0; i < 5; ++i) check("HashTest", {"HashTest"});
  check("NatDynMatch", {"NatDynMatch"});
  check("Route", VelaTest::groups(*profile).back().make);
  EXPECT_GE(proofs, 2u);
}

/// The shares at which random keys of three and of four ways are refused follow from theory.
TEST(FitMeter, knowsWhatRandomKeysDo) {
  Told told(VelaAgent::loadProfile("vela-48-5.1"), {"NatMatch", "NatDynMatch"}, false);
  VelaAgent::FitMeter meter;
  for (const auto& [table, share] : {std::pair("NatMatch", 0.918), {"NatDynMatch", 0.977}}) {
    const auto& adapter = told.agent.table(table, 0);
    EXPECT_FALSE(meter.measure(adapter).randomLoad) << "there is nothing to tell of";
    told.set(table, {{"natType", 1}}, {{"valid", true}});
    const auto fit = meter.measure(adapter);
    EXPECT_NEAR(*fit.randomLoad, share, 0.008) << table;
    EXPECT_NEAR(static_cast<double>(fit.headRoom()), share * static_cast<double>(fit.capacity),
                0.01 * static_cast<double>(fit.capacity));
  }
}

INSTANTIATE_TEST_SUITE_P(Profiles, Fit, testing::ValuesIn(VelaTest::profileNames()),
                         VelaTest::profileTestName);

}  // namespace
