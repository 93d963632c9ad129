#include <sys/ioctl.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <iostream>

#include "Commands.h"
#include "Input.h"
#include "Report.h"
#include "agent/Profiles.h"

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
  PrefixEvents events(static_cast<U8>(vrf), nexthops);
  U64 lineNumber = 0;
  std::string line;
  std::string event;
  try {
    while (std::getline(in, line)) {
      ++lineNumber;
      if (events.read(line, event)) std::cout << event << '\n';
    }
  } catch (const std::exception& error) {
    std::cout << std::flush;
    std::cerr << file << ':' << lineNumber << ": " << error.what() << '\n';
    return exitBadInput;
  }
  return exitGood;
}

}  // namespace VelaTool
