#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <set>

#include "Routes.h"
#include "device/SimulatedSwitch.h"

// Whole routes all the way into rows, against a forwarding table in memory; and the tool with a
// table that is far too large.

namespace VelaBench {
namespace {

struct Shape {
  U8 length;
  U32 count;
};

RouteList generated(std::span<const Shape> shape) {
  RouteList routes;
  std::mt19937 random(12);
  for (const auto& [length, count] : shape) {
    std::set<VelaSwitch::LpmKey> keys;
    // Blocks of neighbours, as they are allocated.
    while (keys.size() < count) {
      const auto block = static_cast<U32>(random());
      for (U32 i = 0; i < 4 && keys.size() < count; ++i) {
        keys.insert({U8{0}, Ipnet::IpPrefix(Ipnet::IpAddr(block + (i << (32 - length))), length)});
      }
    }
    routes.insert(routes.end(), keys.begin(), keys.end());
  }
  std::sort(routes.begin(), routes.end());
  return routes;
}

RouteList routesOr(const char* variable, std::span<const Shape> shape) {
  RouteList routes;
  if (const char* file = std::getenv(variable)) {
    std::ifstream in(file);
    for (std::string prefix; in >> prefix;) {
      routes.push_back({U8{0}, Orb::fromText<Ipnet::IpPrefix>(prefix)});
    }
    return routes;
  }
  return generated(shape);
}

RouteList shuffled(RouteList routes, U32 seed) {
  std::shuffle(routes.begin(), routes.end(), std::mt19937(seed));
  return routes;
}

/// Times an operation on each route, in a table without routes or with all of them.
template <class Subject>
void registerRoutes(const std::string& who) {
  using Operation = void (Subject::*)(U32);
  const auto each = [](Subject& subject, Operation operation) {
    for (U32 i = 0; i < subject.routes.size(); ++i) (subject.*operation)(i);
  };
  const auto operation = [=](const std::string& name, Operation timedOne, bool filled) {
    bench("route/" + name + "/" + who, [=](benchmark::State& state) {
      timed(
          state, fittingRoutes().size(),
          [&] {
            auto subject = std::make_unique<Subject>();
            if (filled) each(*subject, &Subject::add);
            return subject;
          },
          [&](Subject& subject) { each(subject, timedOne); },
          [&](const Subject& subject, double) {
            state.counters["refused"] = static_cast<double>(subject.waiting());
          });
    });
  };
  operation("add", &Subject::add, false);
  operation("replace", &Subject::replace, true);
  operation("del", &Subject::del, true);
}

/// The tool itself, from the file of events to the file of results, by the clock on the wall.
void tool(benchmark::State& state) {
  const std::string directory = std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp";
  const std::string base = directory + "/vela_bench." + std::to_string(getpid());
  const std::string prefixes = base + ".prefixes";
  const std::string events = base + ".events";
  const std::string results = base + ".results";
  {
    std::ofstream out(prefixes);
    for (const auto& route : allRoutes()) out << Orb::text(route.prefix()) << '\n';
  }
  const auto quoted = [](const std::string& path) { return "'" + path + "'"; };
  const std::string command = quoted(VELA_TOOL);
  std::system((command + " routes " + quoted(prefixes) + " > " + quoted(events)).c_str());
  const std::string run =
      command + " run " + quoted(events) + " --results " + quoted(results) + " > /dev/null";
  for (auto _ : state) {
    const auto begin = Clock::now();
    // Entries that are refused make an exit code of 1.
    benchmark::DoNotOptimize(std::system(run.c_str()));
    const double took = nsSince(begin);
    state.counters["ns"] = took / static_cast<double>(allRoutes().size());
    state.SetIterationTime(took * 1e-9);
  }
  state.counters["us"] = state.counters["ns"] / 1000;
  for (const std::string& file : {prefixes, events, results}) std::remove(file.c_str());
}

const bool routesRegistered = [] {
  registerRoutes<LadderRoutes<>>("vela");
  registerRoutes<LadderRoutes<VelaDevice::SimulatedSwitch>>("simulated");
#ifdef VELA_DPDK
  if (dpdkStarted()) registerRoutes<FibRoutes>("rte_fib");
#endif
  bench("tool/routes-full", tool)->Iterations(1)->Repetitions(1);
  return true;
}();

}  // namespace

const RouteList& fittingRoutes() {
  static constexpr Shape shape[] = {{8, 16},   {9, 13},    {10, 40},  {11, 100}, {12, 300},
                                    {13, 22},  {14, 16},   {15, 54},  {16, 460}, {17, 200},
                                    {18, 300}, {19, 320},  {20, 315}, {21, 330}, {22, 625},
                                    {23, 475}, {24, 3434}, {28, 92},  {32, 888}};
  static const RouteList routes = shuffled(routesOr("VELA_ROUTES", shape), 12);
  return routes;
}

const RouteList& allRoutes() {
  static constexpr Shape shape[] = {
      {8, 16},     {9, 13},     {10, 40},     {11, 100},   {12, 300},    {13, 600},
      {14, 1200},  {15, 2100},  {16, 13500},  {17, 8200},  {18, 13800},  {19, 24900},
      {20, 42600}, {21, 50700}, {22, 108600}, {23, 96500}, {24, 537700}, {32, 900}};
  static const RouteList routes = routesOr("VELA_FULL_ROUTES", shape);
  return routes;
}

const RouteList& someRoutes(U32 seed) {
  static std::map<U32, RouteList> made;
  RouteList& routes = made[seed];
  if (routes.empty()) {
    std::sample(allRoutes().begin(), allRoutes().end(), std::back_inserter(routes), 40'000,
                std::mt19937(seed));
    routes = shuffled(std::move(routes), seed);
  }
  return routes;
}

}  // namespace VelaBench
