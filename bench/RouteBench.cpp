#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <random>
#include <set>

#include "agent/Agent.h"

// Routes of a real shape: most of them of 24 bits, the rest spread over all lengths. The
// environment variable VELA_ROUTES names a file of prefixes to use instead.

namespace {

using VelaAgent::Agent;
using VelaSwitch::LpmKey;

std::vector<LpmKey> someRoutes() {
  std::vector<LpmKey> routes;
  std::mt19937 random(11);
  if (const char* file = std::getenv("VELA_ROUTES")) {
    std::ifstream in(file);
    for (std::string prefix; in >> prefix;) {
      routes.push_back({U8{0}, Orb::fromText<Ipnet::IpPrefix>(prefix)});
    }
  } else {
    struct {
      U8 length;
      U32 count;
    } constexpr shape[] = {{8, 16},   {10, 40},  {11, 100}, {12, 300}, {16, 450},  {18, 300},
                           {19, 320}, {20, 310}, {21, 330}, {22, 600}, {24, 3300}, {32, 890}};
    for (const auto& [length, count] : shape) {
      std::set<LpmKey> keys;
      // Blocks of neighbours, as they are allocated.
      while (keys.size() < count) {
        const U32 block = static_cast<U32>(random());
        for (U32 i = 0; i < 4 && keys.size() < count; ++i) {
          keys.insert(
              {U8{0}, Ipnet::IpPrefix(Ipnet::IpAddr(block + (i << (32 - length))), length)});
        }
      }
      routes.insert(routes.end(), keys.begin(), keys.end());
    }
  }
  std::shuffle(routes.begin(), routes.end(), random);
  return routes;
}

const std::vector<LpmKey>& routes() {
  static const std::vector<LpmKey> all = someRoutes();
  return all;
}

struct Rig {
  Rig() : agent(VelaSwitch::ProfileInfo::builtIn("vela-48-5.1"), chip) {
    agent.make();
    agent.start(Agent::Start::fresh);
  }
  void set(std::size_t first, std::size_t end, U32 nexthop) {
    auto& table = agent.routeWriter().routes();
    for (std::size_t i = first; i < end; ++i) {
      const LpmKey& key = routes()[i];
      const auto number = static_cast<U32>(i) + nexthop;
      table.entryIs(key, VelaAgent::RouteWriter::resultOf(
                             VelaAgent::nexthopOfNumber(number % VelaAgent::nexthopNumbers),
                             key.prefix().len()));
      agent.settle();
    }
  }
  void del(std::size_t first, std::size_t end) {
    for (std::size_t i = first; i < end; ++i) {
      agent.routeWriter().routes().entryDel(routes()[i]);
      agent.settle();
    }
  }

  VelaDevice::SimulatedSwitch chip;
  Agent agent;
};

/// Times `action` on `items` routes and counts the rows that each of them writes.
template <class Action>
void timed(benchmark::State& state, Rig& rig, std::size_t items, const Action& action) {
  const U64 writes = rig.chip.rowWrites();
  const auto begin = std::chrono::steady_clock::now();
  action();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  state.SetIterationTime(took.count());
  const auto count = static_cast<double>(items);
  state.counters["ns_per_item"] = took.count() * 1e9 / count;
  state.counters["routes_per_s"] = count / took.count();
  state.counters["rows_per_route"] = static_cast<double>(rig.chip.rowWrites() - writes) / count;
}

void RouteAdd(benchmark::State& state) {
  for (auto _ : state) {
    Rig rig;
    timed(state, rig, routes().size(), [&] { rig.set(0, routes().size(), 0); });
  }
}
BENCHMARK(RouteAdd)->UseManualTime()->Iterations(1);

void RouteReplace(benchmark::State& state) {
  for (auto _ : state) {
    Rig rig;
    rig.set(0, routes().size(), 0);
    timed(state, rig, routes().size(), [&] { rig.set(0, routes().size(), 1); });
  }
}
BENCHMARK(RouteReplace)->UseManualTime()->Iterations(1);

void RouteWithdraw(benchmark::State& state) {
  for (auto _ : state) {
    Rig rig;
    rig.set(0, routes().size(), 0);
    timed(state, rig, routes().size(), [&] { rig.del(0, routes().size()); });
  }
}
BENCHMARK(RouteWithdraw)->UseManualTime()->Iterations(1);

/// Adding some routes when so many (per cent of all) are there.
void RouteAddAt(benchmark::State& state) {
  const std::size_t there = routes().size() * static_cast<std::size_t>(state.range(0)) / 100;
  const std::size_t batch = routes().size() / 20;
  for (auto _ : state) {
    Rig rig;
    rig.set(0, there, 0);
    timed(state, rig, batch, [&] { rig.set(there, there + batch, 0); });
  }
}
BENCHMARK(RouteAddAt)->Arg(5)->Arg(25)->Arg(50)->Arg(75)->Arg(95)->UseManualTime()->Iterations(1);

}  // namespace
