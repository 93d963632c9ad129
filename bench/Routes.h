#pragma once

#include <optional>
#include <span>

#include "Peers.h"
#include "Rig.h"
#include "VelaSwitchTable/VelaTableLpmTables.h"
#include "agent/RouteEntries.h"

namespace VelaBench {

using RouteList = std::vector<VelaSwitch::LpmKey>;

/// 8,000 routes of a real table's shape, which an 8-VRF switch has room for, or those of the file
/// that VELA_ROUTES names; in random order.
const RouteList& fittingRoutes();
/// As many as the whole Internet has, forty times too many, or those of VELA_FULL_ROUTES, in
/// that order.
const RouteList& allRoutes();
/// Some of these at random, more than ever fit; another selection for another seed.
const RouteList& someRoutes(U32 seed);

/// Whole routes, spread over the levels of a switch with two pipelines. The operations are those of
/// entries; `replace` gives a route another next hop.
template <class Bus = MemoryBus>
struct LadderRoutes : Switch<Bus> {
  /// Without a seed the routes are those that fit.
  explicit LadderRoutes(U32 seed = 0) : routes(seed == 0 ? fittingRoutes() : someRoutes(seed)) {
    startTable(started(*firstLevel));
    for (U8 longest = 14; longest <= 32; longest = static_cast<U8>(longest + 3)) {
      levels.push_back(
          VelaSwitchTable::lpmLevelTableFactory(longest, "level" + std::to_string(longest)));
      startTable(started(*levels.back()));
    }
    writer.emplace(
        ::VelaRoutes::Ladder{VelaSwitchTable::lpmTableFactory("routes"), firstLevel, levels});
  }
  void add(U32 route) { announce(route, route); }
  void replace(U32 route) { announce(route, route + ++changes); }
  void del(U32 route) {
    writer->routes().entryDel(routes[route]);
    writer->retry();
  }
  std::size_t size() const { return routes.size(); }
  std::size_t waiting() const {
    std::size_t sum = 0;
    for (const auto& level : levels) {
      sum += level->profileConvertor().physicalTable().engine().waiting().size();
    }
    return sum;
  }

  const RouteList& routes;
  U32 changes = 0;

 private:
  VelaSwitchApi::SwTable& started(VelaSwitchApi::SwTable& table) {
    table.doSetProfileConvertor(this->types);
    return table;
  }
  void announce(U32 route, U32 nexthop) {
    writer->routes().entryIs(routes[route],
                             VelaSwitchTable::routeResult(
                                 VelaAgent::nexthopOfNumber(nexthop % VelaAgent::nexthopNumbers),
                                 routes[route].prefix().len()));
    writer->retry();
  }

  Orb::Ptr<VelaSwitchTable::Lpm11Table> firstLevel = VelaSwitchTable::lpm11TableFactory("level11");
  std::vector<Orb::Ptr<VelaSwitchTable::LpmBaseTable>> levels;
  std::optional<::VelaRoutes::RouteWriter> writer;
};

#ifdef VELA_DPDK
struct FibRoutes {
  void add(U32 route) { announce(route, route); }
  void replace(U32 route) { announce(route, route + ++changes); }
  void del(U32 route) {
    const Ipnet::IpPrefix& prefix = routes[route].prefix();
    fib.del(prefix.address().number(), prefix.len());
  }
  void announce(U32 route, U32 nexthop) {
    const Ipnet::IpPrefix& prefix = routes[route].prefix();
    refused += !fib.add(prefix.address().number(), prefix.len(), nexthop);
  }

  std::size_t waiting() const { return refused; }

  const RouteList& routes = fittingRoutes();
  U32 changes = 0;
  std::size_t refused = 0;
  RteFib fib{static_cast<U32>(2 * routes.size())};
};
#endif

}  // namespace VelaBench
