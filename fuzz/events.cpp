#include <memory>
#include <sstream>

#include "Fuzz.h"
#include "agent/Events.h"
#include "agent/Profiles.h"

// Events as they may stand in a file, applied to the tables of a small switch.

namespace {

/// The tables outlive an input, so that inputs meet what others left; a few at a time, since there
/// is nothing to gain from full ones.
struct Rig {
  Rig() {
    agent.make();
    agent.start(VelaAgent::Agent::Start::fresh);
  }
  VelaDevice::SimulatedSwitch chip;
  VelaAgent::Agent agent{VelaAgent::loadProfile("vela-20-4.0"), chip};
  VelaAgent::EventRunner runner{agent};
};

std::unique_ptr<Rig> rig;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  for (std::string line; std::getline(in, line);) {
    if (!rig) rig = std::make_unique<Rig>();
    // Whatever an event says is input: an assertion is a fault like any other.
    if (VelaFuzz::refusable([&] { rig->runner.apply(line); })) __builtin_trap();
  }
  return 0;
}
