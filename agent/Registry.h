#pragma once

#include <memory>

#include "agent/TableEntries.h"

namespace VelaAgent {

/// One table family as the agent knows it.
struct FamilyRegistration {
  std::string name;
  /// The number that hardware knows the table of an instance by.
  std::function<U32(U32 instance)> number;
  Trace::Handle& trace;
  /// How many software tables of the family a switch of so many ingress pipelines has.
  std::function<U32(U32 pipelines)> instances;
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

/// Fails unless names and numbers are each one family's, whatever the profile.
void checkFamilies(const std::vector<FamilyRegistration>& families);

/// Fails unless the simulated switch knows the control words of the table, which has declared its
/// hardware, and takes its first and last row by them: else it would take rows for whatever the
/// caller says, or none.
void checkControlWords(const VelaSwitchApi::SwTable& table);

/// Fails unless families whose rows hardware takes by one control register have selectors of their
/// own there, where they have one that is not 0, and offsets of their own of hit bits.
void checkSelectors(const std::vector<const VelaSwitchApi::SwTable*>& tables);

/// All families, in the order in which their tables start.
const std::vector<FamilyRegistration>& families();

}  // namespace VelaAgent
