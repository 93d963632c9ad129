#pragma once

#include <string>

#include "agent/Agent.h"
#include "agent/Profiles.h"

/// What the fuzz targets share.
namespace VelaFuzz {

/// Runs what may refuse its input. A refusal is any exception; it has to be one line. Whether a
/// fatal assertion was met: the tables that it was met in are not to be used any more.
template <class Action>
bool refusable(const Action& action) {
  static const auto previous = Orb::assertHandlerIs(
      [](const char* expression, const char*) { throw Orb::AssertionFailed(expression); });
  static_cast<void>(previous);
  try {
    action();
  } catch (const Orb::AssertionFailed&) {
    return true;
  } catch (const std::exception& error) {
    if (std::string(error.what()).find('\n') != std::string::npos) __builtin_trap();
  }
  return false;
}

/// An agent with all tables of a profile, started on a new switch.
struct Rig {
  explicit Rig(const char* profile) : agent(VelaAgent::loadProfile(profile), chip) {
    agent.make();
    agent.start(VelaAgent::Agent::Start::fresh);
  }
  VelaDevice::SimulatedSwitch chip;
  VelaAgent::Agent agent;
};

}  // namespace VelaFuzz
