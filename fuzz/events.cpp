#include <memory>
#include <sstream>

#include "Fuzz.h"
#include "agent/Events.h"

// Events as they may stand in a file, applied to the tables of a small switch.

namespace {

/// The tables outlive an input, so that inputs meet what others left; a few at a time, since there
/// is nothing to gain from full ones.
struct Rig : VelaFuzz::Rig {
  Rig() : VelaFuzz::Rig("vela-20-4.0") {}
  VelaAgent::EventRunner runner{agent};
};

std::unique_ptr<Rig> rig;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
  std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
  for (std::string line; std::getline(in, line);) {
    if (!rig) rig = std::make_unique<Rig>();
    // Whatever an event says is input: an assertion is a fault like any other.
    if (VelaFuzz::refusable([&] { rig->runner.applyLine(line); })) __builtin_trap();
  }
  return 0;
}
