#pragma once

#include <memory>

#include "agent/Entries.h"

namespace VelaAgent {

/// One table family as the agent knows it.
struct FamilyRegistration {
  std::string name;
  Trace::Handle& trace;
  /// How many software tables of the family a switch of the profile has.
  std::function<U32(const VelaSwitch::ProfileInfo&)> instances;
  std::function<std::unique_ptr<TableEntries>(U32 instance)> make;
};

class Agent;

/// Ways of a packet through several tables of the agent, for lookups.
std::vector<std::unique_ptr<Entries>> makePaths(const Agent& agent);

/// The families of each part of the switch. What is registered here is all that the agent knows.
std::vector<FamilyRegistration> vlanFamilies();
std::vector<FamilyRegistration> portFamilies();
std::vector<FamilyRegistration> controlPlaneFamilies();
std::vector<FamilyRegistration> aclFamilies();
std::vector<FamilyRegistration> routeFamilies();
std::vector<FamilyRegistration> natFamilies();
std::vector<FamilyRegistration> l3ResultFamilies();

/// All families, in the order in which their tables start.
const std::vector<FamilyRegistration>& families();

}  // namespace VelaAgent
