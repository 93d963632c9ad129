#pragma once

#include "VelaSwitch/Profile.h"
#include "agent/Json.h"

namespace VelaAgent {

/// A built-in profile by its name, or one from a JSON file. Throws InputException.
Orb::PtrConst<VelaSwitch::ProfileInfo> loadProfile(const std::string& nameOrFile);

Json profileToJson(const VelaSwitch::ProfileInfo& profile);

}  // namespace VelaAgent
