#pragma once

#include "agent/Events.h"

/// What the commands are about, by its own name.
namespace VelaTool {

using VelaAgent::Agent;
using VelaAgent::EventRunner;
using VelaAgent::hexText;
using VelaAgent::HwIndex;
using VelaAgent::HwTableAdapter;
using VelaAgent::InputException;
using VelaAgent::Json;
using VelaAgent::TableAdapter;
using VelaDevice::SimulatedSwitch;
using VelaSwitchApi::HwTableConfig;
using Profile = Orb::PtrConst<VelaSwitch::ProfileInfo>;

/// An agent with all tables of the profile.
struct MadeAgent : Agent {
  MadeAgent(const Profile& profile, SimulatedSwitch& chip) : Agent(profile, chip) { make(); }
};

/// The beginning of a line on a table.
inline Json tableLine(const TableAdapter& table) {
  return {{"table", table.name()}, {"instance", table.instance()}};
}

}  // namespace VelaTool
