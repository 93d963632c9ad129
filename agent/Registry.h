#pragma once

#include <memory>

#include "agent/TableAdapter.h"

namespace VelaAgent {

/// One table family as the agent knows it.
struct FamilyRegistration {
  std::string name;
  Trace::Handle& trace;
  /// How many software tables of the family a switch of the profile has.
  std::function<U32(const VelaSwitch::ProfileInfo&)> instances;
  std::function<std::unique_ptr<HwTableAdapter>(U32 instance)> make;
};

/// Ways of a packet through several tables, for lookups.
std::vector<std::unique_ptr<PathAdapter>> makePaths();

/// All families, in the order in which their tables start.
const std::vector<FamilyRegistration>& families();

}  // namespace VelaAgent
