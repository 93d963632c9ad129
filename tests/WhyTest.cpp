#include "agent/Why.h"

#include "Generator.h"
#include "Ipnet/IpPrefix.h"
#include "agent/Events.h"

// A scenario for each cause, and what is said of refusals put to the test.

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;
using VelaAgent::Json;

/// A switch that is told events, and asked why.
struct Why : testing::Test {
  explicit Why(const std::string& name = "vela-48-5.1") : profile(VelaAgent::loadProfile(name)) {
    agent.make();
    agent.start(VelaAgent::Agent::Start::fresh);
  }
  void apply(const Json& event) { runner.apply(event); }
  void set(const std::string& table, const Json& key, const Json& result) {
    apply({{"op", "set"}, {"table", table}, {"key", key}, {"result", result}});
  }
  void route(const std::string& prefix, U32 lag, U32 vrf = 0) {
    set("Route", {{"vrf", vrf}, {"prefix", prefix}}, {{"l3LagIndex", lag}});
  }
  Json entry(const std::string& table, const Json& key) {
    return VelaAgent::Reasons(agent, true).entry(agent.table(table, 0), key);
  }
  Json route(const std::string& prefix) { return entry("Route", {{"prefix", prefix}}); }
  Json address(const std::string& address) {
    return VelaAgent::Reasons(agent, true).address({{"vrf", 0}, {"address", address}});
  }
  bool programmed(const std::string& table, const Json& key) const {
    const auto& adapter = agent.table(table, 0);
    return adapter.typed().status(adapter.keyFromJson(key)) ==
           VelaTest::EntryProgrammedStatus::programmed;
  }

  Orb::PtrConst<VelaSwitch::ProfileInfo> profile;
  VelaDevice::SimulatedSwitch chip;
  VelaAgent::Agent agent{profile, chip};
  VelaAgent::EventRunner runner{agent};
};

const Json flow = {{"natType", 1}, {"proto", 1}, {"srcIp", "10.0.0.1"}, {"sport", 80}};

TEST_F(Why, lengthsThatRegistersCannotTellAreNotTold) {
  route("0.0.0.0/0", 3);
  const Json row = {{"vrf", 0}, {"prefix", "10.0.0.0/11"}};
  const Json lengths = {nullptr, nullptr, 4, 8};
  for (U32 bit = 0; bit < lengths.size(); ++bit) {
    const Json flip = {{"op", "corrupt"}, {"table", "Lpm11"}, {"key", row}, {"bit", 15 + bit}};
    apply(flip);
    EXPECT_EQ(address("10.1.2.3")["hit"]["realPrefixLen"], lengths[bit]);
    apply(flip);
  }
  EXPECT_EQ(address("10.1.2.3")["hit"]["realPrefixLen"], 0);
}

TEST_F(Why, nothingIsTheMatter) {
  set("NatMatch", flow, {{"valid", true}, {"natRewriteId", 9}});
  route("10.1.0.0/16", 3);
  const Json why = entry("NatMatch", flow);
  EXPECT_EQ(why["causes"], Json::array());
  EXPECT_EQ(why["rows"][0]["fields"]["natRewriteId"], "0x9");
  EXPECT_EQ(why["mayTake"].size(), 3u);
  EXPECT_EQ(address("10.1.2.3")["causes"], Json::array());
  EXPECT_EQ(address("10.1.2.3")["route"]["prefix"], "10.1.0.0/16");
}

TEST_F(Why, nobodyWantsIt) {
  route("10.0.0.0/8", 1);
  route("10.1.0.0/16", 2, 1);
  EXPECT_THAT(entry("HashTest", 5)["causes"], ElementsAre("notDesired"));
  const Json why = route("10.1.0.0/16");
  EXPECT_EQ(why["desired"], false);
  EXPECT_THAT(why["causes"], ElementsAre("notDesired", "wrongVrf"));
  EXPECT_EQ(why["covered"]["prefix"], "10.0.0.0/8");
  route("11.0.0.0/12", 2, 1);
  const Json packet = address("11.0.0.1");
  EXPECT_THAT(packet["causes"], ElementsAre("notDesired", "wrongVrf"));
  EXPECT_EQ(packet["elsewhere"][0], (Json{{"vrf", 1}, {"prefix", "11.0.0.0/12"}}));
}

TEST_F(Why, itWaits) {
  for (const U32 key : {0u, 64u, 128u}) set("HashTest", key, key);
  const Json why = entry("HashTest", 128);
  EXPECT_THAT(why["causes"], ElementsAre("waiting"));
  EXPECT_EQ(why["competing"]["rows"], 2);
  EXPECT_THAT(why["letsIn"], UnorderedElementsAre(Json{0}, Json{64}));
  set("HashTest", 192, 0);
  EXPECT_EQ(entry("HashTest", 192)["letsIn"], Json::array()) << "another waits longer";
  EXPECT_EQ(entry("HashTest", 192)["turn"], (Json{{"place", 2}, {"waiting", 2}}));
}

TEST_F(Why, hardwareTakesItForAnother) {
  const Json first{{"source", "10.0.0.1"}, {"group", "225.0.0.1"}, {"vlanId", 7}};
  Json second = first;
  second["group"] = "241.0.0.1";
  set("SG", first, {});
  set("SG", second, {});
  const Json why = entry("SG", second);
  EXPECT_THAT(why["causes"], ElementsAre("duplicate"));
  EXPECT_EQ(why["counterpart"], (Json{{"table", "SG"}, {"instance", 0}, {"key", first}}));
}

TEST_F(Why, aRegisterAccessFailed) {
  apply({{"op", "fail"}, {"writes", 1}});
  set("HashTest", 7, 1007);
  EXPECT_THAT(entry("HashTest", 7)["causes"], Contains("hardwareError"));
}

TEST_F(Why, aFieldIsCut) {
  set("NatMatch", flow, {{"valid", true}, {"natRewriteId", 5000}});
  const Json why = entry("NatMatch", flow);
  EXPECT_THAT(why["causes"], ElementsAre("cutField"));
  EXPECT_THAT(why["says"].back(), HasSubstr("natRewriteId 5000 to 904"));
}

TEST_F(Why, aBitFlipped) {
  set("NatMatch", flow, {{"valid", true}, {"natRewriteId", 9}});
  apply({{"op", "corrupt"}, {"table", "NatMatch"}, {"key", flow}, {"bit", 60}});
  const Json why = entry("NatMatch", flow);
  EXPECT_THAT(why["causes"], ElementsAre("rowDiffers"));
  EXPECT_EQ(why["status"], "programmed");
  EXPECT_THAT(why["says"].dump(), HasSubstr("(1 bit flipped)"));
  route("10.1.0.0/16", 3);
  const Json level = {{"prefix", "10.0.0.0/15"}};
  apply({{"op", "corrupt"}, {"table", "Lpm17"}, {"key", level}, {"bit", 3}});
  const Json packet = address("10.1.2.3");
  EXPECT_THAT(packet["causes"], ElementsAre("rowDiffers"));
  EXPECT_EQ(packet["better"][0]["key"]["prefix"], "10.1.0.0/16");
}

TEST_F(Why, longerRoutesTakeItsPackets) {
  route("10.0.0.0/12", 1);
  route("10.0.0.0/13", 2);
  EXPECT_EQ(route("10.0.0.0/12")["longer"]["addresses"], 1u << 19);
  route("10.8.0.0/14", 3);
  route("10.12.0.0/14", 4);
  route("10.12.3.0/24", 4);
  const Json why = route("10.0.0.0/12");
  EXPECT_THAT(why["causes"], ElementsAre("shadowed"));
  EXPECT_EQ(why["longer"]["addresses"], why["longer"]["of"]);
  EXPECT_EQ(why["level"]["cells"], Json::array());
  EXPECT_EQ(route("10.8.0.0/14")["causes"], Json::array());
}

/// Random full tables: what is named as the way in is one, and nothing else is.
struct WhyFull : Why, testing::WithParamInterface<std::string> {
  WhyFull() : Why(GetParam()) {}

  std::pair<Json, Json> random(const std::string& table) {
    if (table == "Route") {
      const Ipnet::IpPrefix prefix(Ipnet::IpAddr(source()), static_cast<U8>(12 + source.below(3)));
      return {VelaAgent::toJson(VelaSwitch::LpmKey{0, prefix}), {{"l3LagIndex", 1}}};
    }
    const Json key =
        table == "HashTest" ? Json(source.below(200)) : generator.key(table, source() % 100000);
    return {key, generator.result(table, key)};
  }
  /// Fills the table until some wait; returns them.
  std::vector<Json> fill(const std::string& table, U32 wait) {
    std::vector<Json> keys;
    while (agent.table(table, 0).refused() < wait) {
      const auto [key, result] = random(table);
      set(table, key, result);
      if (!programmed(table, key)) keys.push_back(key);
    }
    return keys;
  }
  void check(const std::string& table, U32 wait);

  VelaTest::Random source;
  VelaTest::Generator generator{*profile, source};
};

void WhyFull::check(const std::string& table, U32 wait) {
  U32 tried = 0;
  for (const Json& key : fill(table, wait)) {
    // It may have come in by an earlier withdrawal, and gone by another.
    const Json why = entry(table, key);
    if (programmed(table, key) || !why["desired"]) continue;
    ASSERT_THAT(why["causes"], Contains("waiting")) << why;
    const Json& keys = why["competing"]["keys"];
    ASSERT_EQ(keys.size(), why["competing"]["rows"]);
    const Json& gone = keys[source.below(static_cast<U32>(keys.size()))];
    const bool named =
        std::find(why["letsIn"].begin(), why["letsIn"].end(), gone) != why["letsIn"].end();
    for (const Json& each : gone) apply({{"op", "del"}, {"table", table}, {"key", each}});
    EXPECT_EQ(programmed(table, key), named) << why;
    ++tried;
  }
  EXPECT_GT(tried, 0u) << table;
}

TEST_P(WhyFull, whatIsNamedLetsItIn) {
  check("HashTest", 12);
  check("NatDynMatch", 6);
  check("Route", 20);
}

/// Where the longest route waits, packets take what is there, and are told why.
TEST_P(WhyFull, packetsPassByWhatWaits) {
  route("0.0.0.0/0", 5);
  for (const Json& key : fill("Route", 5)) {
    const auto route = VelaAgent::fromJson<VelaSwitch::LpmKey>(key);
    const Json why = address(Orb::text(route.prefix().address()));
    EXPECT_THAT(why["causes"], Contains("coveredByRefused"));
    EXPECT_THAT(why["causes"], Contains("waiting"));
    EXPECT_EQ(why["route"]["prefix"], "0.0.0.0/0") << why;
    EXPECT_EQ(why["levels"].back()["table"], "Lpm11");
    EXPECT_EQ(why["better"].back()["status"], "tableFull");
  }
}

INSTANTIATE_TEST_SUITE_P(Profiles, WhyFull, testing::ValuesIn(VelaTest::profileNames()),
                         VelaTest::profileTestName);

}  // namespace
