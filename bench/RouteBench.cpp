#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <span>

#include "agent/Agent.h"
#include "agent/RouteEntries.h"
#include "agent/TableAdapter.h"

// Routes of a real shape: most of them of 24 bits, the rest spread over all lengths. The
// environment variable VELA_ROUTES names a file of prefixes to use instead.

namespace {

using VelaAgent::Agent;
using VelaSwitch::LpmKey;

using Routes = std::vector<LpmKey>;

struct Shape {
  U8 length;
  U32 count;
};

Routes generated(std::span<const Shape> shape) {
  Routes routes;
  std::mt19937 random(11);
  for (const auto& [length, count] : shape) {
    std::set<LpmKey> keys;
    // Blocks of neighbours, as they are allocated.
    while (keys.size() < count) {
      const U32 block = static_cast<U32>(random());
      for (U32 i = 0; i < 4 && keys.size() < count; ++i) {
        keys.insert({U8{0}, Ipnet::IpPrefix(Ipnet::IpAddr(block + (i << (32 - length))), length)});
      }
    }
    routes.insert(routes.end(), keys.begin(), keys.end());
  }
  return routes;
}

Routes routesOr(std::span<const Shape> shape) {
  Routes routes;
  if (const char* file = std::getenv("VELA_ROUTES")) {
    std::ifstream in(file);
    for (std::string prefix; in >> prefix;) {
      routes.push_back({U8{0}, Orb::fromText<Ipnet::IpPrefix>(prefix)});
    }
  } else {
    routes = generated(shape);
  }
  std::shuffle(routes.begin(), routes.end(), std::mt19937(12));
  return routes;
}

/// Routes that there is room for.
const Routes& routes() {
  static constexpr Shape shape[] = {{8, 16},   {10, 40},  {11, 100},  {12, 300},
                                    {16, 450}, {18, 300}, {19, 320},  {20, 310},
                                    {21, 330}, {22, 600}, {24, 3300}, {32, 890}};
  static const Routes all = routesOr(shape);
  return all;
}

/// As many as the whole Internet has: forty times too many.
const Routes& fullTable() {
  static constexpr Shape shape[] = {
      {8, 16},     {9, 13},     {10, 40},     {11, 100},   {12, 300},    {13, 600},
      {14, 1200},  {15, 2100},  {16, 13500},  {17, 8200},  {18, 13800},  {19, 24900},
      {20, 42600}, {21, 50700}, {22, 108600}, {23, 96500}, {24, 537700}, {32, 900}};
  static const Routes all = routesOr(shape);
  return all;
}

struct Rig {
  Rig() : agent(VelaSwitch::ProfileInfo::builtIn("vela-48-5.1"), chip) {
    agent.make();
    agent.start(Agent::Start::fresh);
  }
  void set(std::size_t first, std::size_t end, U32 nexthop) { set(routes(), first, end, nexthop); }
  void set(const Routes& all, std::size_t first, std::size_t end, U32 nexthop) {
    auto& table = agent.routeWriter().routes();
    for (std::size_t i = first; i < end; ++i) {
      const LpmKey& key = all[i];
      const auto number = static_cast<U32>(i) + nexthop;
      table.entryIs(key, VelaAgent::routeResult(
                             VelaAgent::nexthopOfNumber(number % VelaAgent::nexthopNumbers),
                             key.prefix().len()));
      agent.settle();
    }
  }
  void del(std::size_t first, std::size_t end) { del(routes(), first, end); }
  void del(const Routes& all, std::size_t first, std::size_t end) {
    for (std::size_t i = first; i < end; ++i) {
      agent.routeWriter().routes().entryDel(all[i]);
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

/// Times `action` on all routes, after `prepare` on a new rig.
template <class Prepare, class Action>
void allRoutes(benchmark::State& state, const Prepare& prepare, const Action& action) {
  for (auto _ : state) {
    Rig rig;
    prepare(rig);
    timed(state, rig, routes().size(), [&] { action(rig); });
  }
}

/// Announces all routes, with other next hops for another number.
auto announce(U32 nexthop) {
  return [=](Rig& rig) { rig.set(0, routes().size(), nexthop); };
}

void RouteAdd(benchmark::State& state) {
  allRoutes(
      state, [](Rig&) {}, announce(0));
}
BENCHMARK(RouteAdd)->UseManualTime()->Iterations(1);

void RouteReplace(benchmark::State& state) { allRoutes(state, announce(0), announce(1)); }
BENCHMARK(RouteReplace)->UseManualTime()->Iterations(1);

void RouteWithdraw(benchmark::State& state) {
  allRoutes(state, announce(0), [](Rig& rig) { rig.del(0, routes().size()); });
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

bool programmed(const Rig& rig, const LpmKey& route) {
  const auto* status = rig.agent.routeWriter().routes().entryStatus(route);
  return status && status->status == VelaSwitchApi::EntryProgrammedStatus::programmed;
}

/// Those of the full table that get into hardware when all of it is announced.
const Routes& fittingRoutes() {
  static const Routes fitting = [] {
    Rig rig;
    rig.set(fullTable(), 0, fullTable().size(), 0);
    Routes found;
    std::copy_if(fullTable().begin(), fullTable().end(), std::back_inserter(found),
                 [&](const LpmKey& route) { return programmed(rig, route); });
    return found;
  }();
  return fitting;
}

/// Announces the routes and withdraws them in another order. Every route that goes from a row may
/// let in one that waits; the figures of the slowest part tell whether looking for it takes longer
/// as fewer wait.
void withdraw(benchmark::State& state, const Routes& announced) {
  constexpr std::size_t parts = 50;
  Routes order = announced;
  std::shuffle(order.begin(), order.end(), std::mt19937(13));
  for (auto _ : state) {
    Rig rig;
    rig.set(announced, 0, announced.size(), 0);
    double slowest = 0;
    timed(state, rig, order.size(), [&] {
      for (std::size_t part = 0; part < parts; ++part) {
        const std::size_t first = order.size() * part / parts;
        const std::size_t end = order.size() * (part + 1) / parts;
        const auto begin = std::chrono::steady_clock::now();
        rig.del(order, first, end);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        slowest = std::max(slowest, took.count() / static_cast<double>(end - first));
      }
    });
    state.counters["slowest_ns"] = slowest * 1e9;
    state.counters["routes"] = static_cast<double>(order.size());
  }
}

void RouteWithdrawAll(benchmark::State& state) { withdraw(state, fullTable()); }
BENCHMARK(RouteWithdrawAll)->UseManualTime()->Iterations(1);

void RouteWithdrawFitting(benchmark::State& state) { withdraw(state, fittingRoutes()); }
BENCHMARK(RouteWithdrawFitting)->UseManualTime()->Iterations(1);

}  // namespace
