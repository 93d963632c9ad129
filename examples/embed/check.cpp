// What an agent's own tests can do without a switch: the simulated one answers lookups from its
// registers alone, and a register map is compared with what the tables will ask of it.

#include <cstdio>

#include "VelaRoutes/Routes.h"
#include "bus/RegisterMap.h"
#include "device/RouteLookup.h"

using Ipnet::IpAddr;
using Ipnet::IpPrefix;

int main(int argc, char** argv) {
  const auto profile = VelaSwitch::ProfileInfo::builtIn("vela-20-4.0");
  VelaDevice::SimulatedSwitch chip;
  VelaSwitchApi::SwitchTables tables(Orb::make<VelaSwitchApi::SwTableTypes>(profile, chip));
  const VelaRoutes::Ladder ladder = VelaRoutes::makeLadder(tables);
  tables.make();
  VelaRoutes::RouteWriter writer(ladder);
  tables.start(true);
  VelaRoutes::Routes routes(writer);

  const auto announce = [&](const char* prefix, std::uint8_t lag) {
    return routes.announce({0, Orb::fromText<IpPrefix>(prefix)}, {VelaSwitch::L3LagIndex(lag), 0});
  };
  bool good = announce("10.0.0.0/8", 1) == VelaRoutes::Routes::Status::programmed &&
              announce("10.1.2.0/24", 2) == VelaRoutes::Routes::Status::programmed;
  VelaDevice::DataPath path(chip, *profile);
  const auto lagOf = [&](const char* address) {
    const auto hit = VelaDevice::route(path, 0, Orb::fromText<IpAddr>(address));
    return hit ? int{hit->l3LagIndex()} : -1;
  };
  good = good && lagOf("10.1.2.3") == 2 && lagOf("10.9.9.9") == 1 && lagOf("11.0.0.1") == -1;
  std::printf("the data path %s\n", good ? "goes by the routes" : "DOES NOT GO BY THE ROUTES");

  // A register map of one's own, for VelaBus::MappedBus.
  for (int i = 1; i < argc; ++i) {
    const auto map = VelaBus::RegisterMap::fromFile(argv[i]);
    for (const auto& table : tables.tables()) {
      for (const std::string& fault : map.faults(VelaBus::registersOf(*table))) {
        std::printf("%s\n", fault.c_str());
        good = false;
      }
    }
  }
  return good ? 0 : 1;
}
