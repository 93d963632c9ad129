#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <map>
#include <set>

#include "Support.h"
#include "agent/Profiles.h"
#include "service/Configuration.h"

namespace {

using namespace VelaService;
using VelaAgent::Json;
using VelaTest::Random;

/// What an engine keeps for a switch: entries that can be read by their ids.
struct Engine {
  using Entries = std::map<EntryId, StreamEntry>;

  EntryId add(Entries& to, std::map<std::string, std::string, std::less<>> fields) {
    const EntryId id{++clock, 0};
    to[id] = {id, std::move(fields)};
    return id;
  }
  void change(const std::string& lines) {
    add(changes, {{"sequence", std::to_string(++sequence)}, {"lines", lines}});
  }
  /// All that is desired, a line an entry.
  void publishSnapshot(const std::vector<std::string>& lines, bool trims) {
    const EntryId at = add(changes, {{"sequence", std::to_string(++sequence)}, {"snapshot", "1"}});
    snapshot.clear();
    for (const std::string& line : lines) add(snapshot, {{"lines", line}});
    add(snapshot, {{"at", toText(at)},
                   {"sequence", std::to_string(sequence)},
                   {"parts", std::to_string(lines.size())}});
    if (trims) changes.erase(changes.begin(), changes.lower_bound(at));
  }
  std::vector<StreamEntry> read(const StreamFollower::Reading& reading, U32 most) const {
    const bool ofChanges = reading.stream == StreamFollower::Reading::Stream::changes;
    const Entries& from = ofChanges ? changes : snapshot;
    std::vector<StreamEntry> all;
    auto at = from.lower_bound(reading.from);
    if (reading.inclusive) {
      if (at != from.end() && at->first == reading.from) all.push_back(at->second);
      return all;
    }
    for (at = from.upper_bound(reading.from); at != from.end() && all.size() < most; ++at) {
      all.push_back(at->second);
    }
    return all;
  }

  Entries changes;
  Entries snapshot;
  U64 clock = 1000;
  U64 sequence = 0;
};

/// A switch whose daemon is killed and started again, and its stream.
struct Site {
  Site() {
    settings.switchName = "one";
    settings.positionFile = file;
    std::filesystem::remove(file);
    start();
  }
  ~Site() { std::filesystem::remove(file); }

  /// Whatever a daemon knew is gone; the switch and the file stay.
  void start() {
    follower.reset();
    const bool restart = chip.used();
    agent = std::make_unique<VelaAgent::Agent>(profile, chip);
    agent->make();
    agent->start(restart ? VelaAgent::Agent::Start::restart : VelaAgent::Agent::Start::fresh);
    follower = std::make_unique<StreamFollower>(*agent, settings, restart,
                                                [this](const std::string&) { ++warnings; });
    follower->connected();
  }
  void step(Random& random) {
    if (!follower->idle()) return follower->work();
    const auto reading = follower->reading();
    follower->take(engine.read(*reading, 1 + random.below(5)));
    if (reading->news) follower->retry();
  }
  /// Until there is no news.
  void settle(Random& random) {
    for (int rounds = 0; rounds < 100000; ++rounds) {
      const auto reading = follower->reading();
      if (follower->idle() && reading && reading->news && engine.read(*reading, 1).empty()) return;
      step(random);
    }
    FAIL() << "no end";
  }
  /// What the registers hold, as announcements.
  std::set<std::string> held() const {
    VelaDevice::SimulatedSwitch copy = chip;
    VelaAgent::Agent reader(profile, copy);
    reader.make();
    reader.decode();
    std::set<std::string> all;
    for (const auto* table : reader.announced()) {
      table->forEachEntry([&](const Json& key, const Json& result) {
        if (reader.routesAt(*table, key).empty())
          all.insert(table->name() + key.dump() + result.dump());
      });
    }
    return all;
  }

  std::string file = testing::TempDir() + "position." + std::to_string(getpid());
  StreamSettings settings;
  Orb::PtrConst<VelaSwitch::ProfileInfo> profile = VelaAgent::loadProfile("vela-20-4.0");
  VelaDevice::SimulatedSwitch chip;
  std::unique_ptr<VelaAgent::Agent> agent;
  std::unique_ptr<StreamFollower> follower;
  Engine engine;
  int warnings = 0;
};

/// What a controller desires: by key, the line that announces it and what registers then hold.
class Controller {
 public:
  explicit Controller(Random& random) : random_(random) {}

  /// Some changes, and what they mean.
  std::string lines() {
    std::string all;
    for (U32 count = 1 + random_.below(6); count > 0; --count) {
      const U32 number = random_.below(60);
      const bool route = number % 2 == 0;
      // Longer ones cover a part of the shorter, and registers do not tell the length of the first.
      static constexpr std::array<const char*, 3> ends{".0.0.0/10", ".0.0.0/14", ".0.0.0/16"};
      const std::string prefix = std::to_string(10 + number / 6) + ends[number / 2 % 3];
      const Json key = route ? Json{{"prefix", prefix}, {"vrf", 0}} : Json(number);
      const U32 port = 1 + random_.below(7);
      const Json result = route ? Json{{"l3LagIndex", port}, {"rewriteIndex", number}} : Json(port);
      const char* table = route ? "Route" : "AclIndirectCounterHash";
      Json event = {{"op", "set"}, {"table", table}, {"key", key}, {"result", result}};
      const std::string name = table + key.dump();
      desired.erase(name);
      switch (random_.below(5)) {
        case 0:
          event["op"] = "del";
          event.erase("result");
          break;
        case 1:
          // A line that is wrong takes nothing back.
          all += "{\"op\":\"set\",\"table\":\"\xFF\",\"key\":1}\n";
          [[fallthrough]];
        default:
          desired[name] = event.dump();
      }
      all += event.dump() + "\n";
    }
    return all;
  }
  std::vector<std::string> snapshot() const {
    std::vector<std::string> all;
    for (const auto& [name, line] : desired) all.push_back(line);
    return all;
  }
  /// What a switch holds that was told this alone.
  std::set<std::string> model() const {
    Site site;
    VelaAgent::EventRunner runner(*site.agent);
    for (const auto& [name, line] : desired) runner.applyLine(line);
    return site.held();
  }

  std::map<std::string, std::string> desired;

 private:
  Random& random_;
};

TEST(StreamFollower, SwitchIsAsDesiredWhateverDies) {
  Site site;
  Random random;
  Controller controller(random);
  site.engine.publishSnapshot({}, false);
  for (int round = 0; round < (VelaTest::sanitized ? 12 : 60); ++round) {
    Engine before = site.engine;
    const auto desired = controller.desired;
    for (U32 count = random.below(8); count > 0; --count) {
      site.engine.change(controller.lines());
      for (U32 steps = random.below(4); steps > 0; --steps) site.step(random);
    }
    switch (random.below(5)) {
      case 0:  // The next one may come while this one is read.
        for (U32 count = 1 + random.below(3); count > 0; --count) {
          site.engine.publishSnapshot(controller.snapshot(), random.flip());
          for (U32 steps = random.below(8); steps > 0; --steps) site.step(random);
          site.engine.change(controller.lines());
        }
        break;
      case 1:  // The server lost what it was told last, and the controller tells something else.
        site.settle(random);
        before.clock = site.engine.clock;
        site.engine = before;
        controller.desired = desired;
        if (random.flip()) site.engine.change(controller.lines());
        site.follower->connected();
        break;
      case 2:
        site.follower->connected();
        break;
      default:
        break;
    }
    if (random.below(3) == 0) site.start();
    if (random.below(3) == 0) continue;
    site.settle(random);
    EXPECT_EQ(site.held(), controller.model());
    EXPECT_EQ(site.follower->position().sequence, site.engine.sequence);
    const U64 writes = site.chip.rowWrites();
    site.start();
    site.settle(random);
    EXPECT_EQ(site.chip.rowWrites(), writes) << "what was applied is written again";
    EXPECT_EQ(site.follower->position().sequence, site.engine.sequence);
    if (HasFailure()) return;
  }
  EXPECT_EQ(site.warnings, 0);
}

TEST(StreamFollower, WhatTheStreamDroppedIsAskedFor) {
  Site site;
  Random random;
  Controller controller(random);
  for (int count = 0; count < 5; ++count) site.engine.change(controller.lines());
  site.settle(random);
  site.engine.change(controller.lines());
  site.engine.change(controller.lines());
  site.engine.changes.erase(std::prev(site.engine.changes.end(), 2));
  const U64 invalid = site.follower->report()["invalid"];
  site.engine.publishSnapshot({"no event"}, false);
  site.engine.snapshot.erase(std::prev(site.engine.snapshot.end()));
  const auto held = site.held();
  for (int steps = 0; steps < 100; ++steps) site.step(random);
  EXPECT_EQ(site.follower->report()["invalid"], invalid + 1)
      << "a line is counted as often as it is read";
  EXPECT_TRUE(site.follower->report()["wantsSnapshot"]);
  EXPECT_EQ(site.held(), held) << "a gap was passed over";
  site.engine.publishSnapshot({"no event"}, true);
  for (int steps = 0; steps < 100; ++steps) site.step(random);
  EXPECT_EQ(site.held(), held) << "a snapshot of wrong lines alone counts";
  site.engine.publishSnapshot(controller.snapshot(), true);
  site.settle(random);
  EXPECT_FALSE(site.follower->report()["wantsSnapshot"]);
  EXPECT_EQ(site.held(), controller.model());
}

TEST(StreamFollower, SwitchIsNotEmptiedByStreamsThatAreGone) {
  const std::string line = R"({"op":"set","table":"HashTest","key":1,"result":2})";
  const std::string other = R"({"op":"set","table":"AclIndirectCounterHash","key":9,"result":2})";
  Random random;
  for (const bool hasPosition : {true, false}) {
    for (const bool restarts : {true, false}) {
      if (!hasPosition && !restarts) continue;
      Site site;
      site.engine.change(line);
      site.settle(random);
      const auto held = site.held();
      const auto stays = [&] {
        for (int steps = 0; steps < 100; ++steps) site.step(random);
        EXPECT_TRUE(site.follower->report()["wantsSnapshot"]);
        EXPECT_EQ(site.held(), held);
      };
      site.engine = {{}, {}, site.engine.clock, 0};
      if (!hasPosition) std::filesystem::remove(site.file);
      restarts ? site.start() : site.follower->connected();
      stays();
      // A controller that goes on does not say what else is desired, however often it is asked.
      site.engine.change(other);
      site.engine.change(other);
      stays();
      site.start();
      stays();
      site.engine.publishSnapshot({}, true);
      site.settle(random);
      EXPECT_THAT(site.held(), testing::IsEmpty());
      EXPECT_FALSE(site.follower->report()["wantsSnapshot"]);
    }
  }
}

TEST(StreamFollower, SwitchThatWasKilledAmidItsFirstLinesIsOfItsStreams) {
  Site site;
  Random random;
  const auto line = [](U32 key) {
    return R"({"op":"set","table":"AclIndirectCounterHash","result":1,"key":)" +
           std::to_string(key) + "}\n";
  };
  const auto stays = [&](U64 entries) {
    site.start();
    for (int steps = 0; steps < 100; ++steps) site.step(random);
    EXPECT_TRUE(site.follower->report()["wantsSnapshot"]);
    EXPECT_EQ(site.held().size(), entries);
  };
  // Nothing was ever read; what the switch holds is somebody else's.
  site.settle(random);
  VelaAgent::EventRunner(*site.agent).applyLine(line(0));
  stays(1);
  site.engine.publishSnapshot({}, true);
  site.settle(random);
  const Engine none;
  site.engine = none;
  std::filesystem::remove(site.file);
  site.start();
  for (U32 key = 0; key < 900; ++key) site.engine.change(line(key));
  const U64 writes = site.chip.rowWrites();
  // A connection that never lasts is enough to read them.
  for (U32 steps = 0; steps < 2000 && site.chip.rowWrites() == writes; ++steps) {
    site.step(random);
    if (steps % 4 == 0) site.follower->connected();
  }
  const U64 part = site.held().size();
  EXPECT_GT(part, 0);
  EXPECT_LT(part, 900);
  const Engine all = std::exchange(site.engine, none);
  stays(part);
  site.engine.change(line(1000));
  stays(part);
  site.engine = all;
  site.start();
  site.settle(random);
  EXPECT_EQ(site.held().size(), 900);
}

TEST(StreamFollower, LinesBehindThePositionAreAppliedOneByOne) {
  Site site;
  Random random;
  const auto line = [](U32 result) {
    return R"({"op":"set","table":"HashTest","key":1,"result":)" + std::to_string(result) + "}\n";
  };
  for (U32 result = 0; result < 10; ++result) site.engine.change(line(result));
  site.settle(random);
  for (U32 result = 10; result < 15; ++result) site.engine.change(line(result));
  const U64 writes = site.chip.rowWrites();
  site.start();
  site.settle(random);
  EXPECT_EQ(site.follower->report()["lines"], 1 + 5);
  EXPECT_EQ(site.chip.rowWrites(), writes + 5 * site.profile->pipelines());
}

TEST(StreamFollower, RoutesOfOthersStay) {
  Site site;
  Random random;
  const std::string route =
      R"({"op":"set","table":"Route","key":{"vrf":0,"prefix":"10.0.0.0/14"},"result":{"l3LagIndex":1}})";
  const std::string other = R"({"op":"set","table":"AclIndirectCounterHash","key":9,"result":2})";
  VelaAgent::EventRunner(*site.agent).applyLine(route);
  VelaAgent::EventRunner(*site.agent).applyLine(other);
  const auto held = site.held();
  site.settings.routesAreOthers = true;
  for (const bool desired : {true, false}) {
    site.start();
    site.engine.publishSnapshot(desired ? std::vector{other} : std::vector<std::string>(), true);
    site.engine.change(R"({"op":"del","table":"Route","key":{"vrf":0,"prefix":"10.0.0.0/14"}})");
    site.settle(random);
    EXPECT_EQ(site.follower->report()["invalid"], 1);
    EXPECT_EQ(site.held().size(), held.size() - (desired ? 0 : 1));
    EXPECT_EQ(site.held().contains(*held.rbegin()), true) << *held.rbegin();
  }
}

TEST(StreamFollower, WatchTellsOfItsRoutes) {
  Site site;
  Random random;
  Controller controller(random);
  RouteService routes(*site.agent, {}, [](U32) { return std::string(); });
  Watch watch(*site.agent, routes);
  WatchQueue queue(watch, std::size_t{1} << 24);
  for (int count = 0; count < 40; ++count) site.engine.change(controller.lines());
  site.settle(random);
  std::map<Json, std::string> told;
  std::istringstream lines(queue.take());
  for (std::string line; std::getline(lines, line);) {
    const Json event = Json::parse(line);
    if (event["table"] != "Route") continue;
    std::string& status = told.try_emplace(event["key"], "notProgrammed").first->second;
    EXPECT_NE(status, event["status"]) << line;
    status = event["status"];
  }
  std::erase_if(told, [](const auto& each) { return each.second == "notProgrammed"; });
  std::map<Json, std::string> expected;
  const auto& table = site.agent->table("Route", 0);
  table.typed().forEachEntry([&](VelaAgent::AnyRef key, VelaAgent::AnyRef) {
    expected[table.keyToJson(key)] = VelaSwitchApi::nameOf(table.typed().status(key));
  });
  EXPECT_FALSE(expected.empty());
  EXPECT_EQ(told, expected);
}

TEST(StreamFollower, LinesForTheStatusesAreBoundedAndStayUntilSent) {
  Site site;
  const auto line = [](U32 number) {
    return std::to_string(100000 + number) + std::string(1018, '.');
  };
  for (U32 number = 0; number < 3000; ++number) site.follower->tell(line(number));
  EXPECT_EQ(site.follower->report()["dropped"], 3000 - 1024);
  EXPECT_EQ(site.follower->unsent(2500), line(1976) + "\n" + line(1977) + "\n");
  // More come while those are sent.
  site.follower->tell(line(3000));
  site.follower->sent();
  EXPECT_EQ(site.follower->unsent(1), line(1978) + "\n");
}

TEST(PositionFile, IsOfOneSwitch) {
  const std::string path = testing::TempDir() + "position.file." + std::to_string(getpid());
  const StreamPosition at{{1700000000000, 7}, 42};
  PositionFile(path, "one").write(at);
  EXPECT_EQ(PositionFile(path, "one").read(), at);
  EXPECT_EQ(PositionFile(path, "two").read(), std::nullopt);
  std::filesystem::resize_file(path, 20);
  EXPECT_EQ(PositionFile(path, "one").read(), std::nullopt);
  std::filesystem::remove(path);
}

TEST(Configuration, StreamHasAllTablesUnlessThereIsAnotherSource) {
  const std::string rest = R"("device":"d","control":"c",)";
  const std::string stream = R"("stream":{"server":"redis://h:1","switch":"leaf-1"})";
  std::vector<std::string> mistakes;
  const auto alone = readConfiguration("{" + rest + stream + "}", mistakes);
  EXPECT_THAT(alone.routes.sources, testing::IsEmpty());
  EXPECT_FALSE(alone.stream->routesAreOthers);
  EXPECT_EQ(alone.stream->positionFile, "d.position");
  const auto both =
      readConfiguration("{" + rest + stream + R"(,"fpm":{},"tables":{"254":0}})", mistakes);
  EXPECT_TRUE(both.stream->routesAreOthers);
  EXPECT_THAT(mistakes, testing::IsEmpty());
  readConfiguration("{" + rest + R"("tables":{"254":0},"stream":{"switch":"leaf 1","keep":0}})",
                    mistakes);
  EXPECT_THAT(mistakes, testing::UnorderedElementsAre(
                            "tables: is for a source of routes, and there is but a stream",
                            "stream.keep: is to be 1 or more", "stream.server: is missing",
                            testing::StartsWith("stream.switch: the name of a switch has")));
}

}  // namespace
