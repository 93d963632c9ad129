#pragma once

#include "VelaSwitch/Profile.h"
#include "agent/Input.h"
#include "agent/JsonForward.h"

namespace VelaAgent {

/// A built-in profile by its name, or one from a JSON file. Throws InputException.
Orb::PtrConst<VelaSwitch::ProfileInfo> loadProfile(const std::string& nameOrFile);

/// A profile from the text of its JSON file. Throws what reading it meets.
Orb::PtrConst<VelaSwitch::ProfileInfo> profileFromText(const std::string& text);

Json profileToJson(const VelaSwitch::ProfileInfo& profile);

}  // namespace VelaAgent
