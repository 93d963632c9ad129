#include <sys/ioctl.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>

#include "Commands.h"
#include "Report.h"
#include "agent/JsonText.h"
#include "agent/Profiles.h"
#include "agent/RouteEntries.h"

namespace VelaTool {

namespace {

/// Makes the tables of a profile without starting them, and lets `print` look at them.
int describe(const std::string& profile, const std::function<void(const Agent&)>& print) {
  SimulatedSwitch chip;
  Agent agent(VelaAgent::loadProfile(profile), chip);
  agent.make();
  print(agent);
  return exitGood;
}

unsigned outputWidth() {
  constexpr unsigned usual = 100;
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return usual;
  return size.ws_col;
}

}  // namespace

int profiles(const std::string& name) {
  if (!name.empty()) {
    std::cout << VelaAgent::profileToJson(*VelaAgent::loadProfile(name)).dump(2) << '\n';
    return exitGood;
  }
  for (const auto& profile : VelaSwitch::ProfileInfo::builtIns()) {
    std::cout << profile->name() << ": " << profile->ports() << " ports, " << profile->vrfs()
              << " VRFs, hardware interface " << profile->hwApi().major() << '.'
              << profile->hwApi().minor() << ", register format "
              << profile->registerFormat().major() << '.' << profile->registerFormat().minor()
              << ", " << profile->pipelines() << " ingress pipeline"
              << (profile->pipelines() == 1 ? "" : "s") << '\n';
  }
  return exitGood;
}

int tables(const Options& options) {
  return describe(options.profile,
                  [](const Agent& agent) { writeTables(std::cout, agent, outputWidth()); });
}

int routes(const std::string& file, U32 vrf, U32 nexthops) {
  std::ifstream in(file);
  if (!in) throw InputException("cannot read " + file);
  U64 lineNumber = 0;
  U64 routeNumber = 0;
  std::string text;
  std::string event;
  const auto fail = [&](const std::string& what) {
    std::cout << std::flush;
    std::cerr << file << ':' << lineNumber << ": " << what << '\n';
    return exitBadInput;
  };
  while (std::getline(in, text)) {
    ++lineNumber;
    std::istringstream line(text);
    std::string prefix;
    std::string number;
    std::string rest;
    line >> prefix >> number >> rest;
    if (prefix.empty() || prefix.starts_with('#')) continue;
    if (!rest.empty()) return fail("expected \"a.b.c.d/len\" and at most one number");
    try {
      const U64 nexthop = number.empty() ? routeNumber % nexthops : Orb::fromText<U64>(number);
      ++routeNumber;
      const VelaSwitch::LpmKey key{static_cast<U8>(vrf), Orb::fromText<Ipnet::IpPrefix>(prefix)};
      event = R"({"op":"set","table":"Route","key":)";
      VelaAgent::appendJson(event, key);
      event += R"(,"result":)";
      VelaAgent::appendJson(event, VelaAgent::nexthopOfNumber(nexthop));
      event += "}\n";
      std::cout << event;
    } catch (const std::exception& error) {
      return fail(error.what());
    }
  }
  return exitGood;
}

}  // namespace VelaTool
