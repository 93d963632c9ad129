#include "agent/Profiles.h"

#include <fstream>

namespace VelaAgent {

Orb::PtrConst<VelaSwitch::ProfileInfo> loadProfile(const std::string& nameOrFile) {
  if (const auto builtIn = VelaSwitch::ProfileInfo::builtIn(nameOrFile)) return builtIn;
  std::ifstream file(nameOrFile);
  if (!file) {
    throw InputException("\"" + nameOrFile + "\" is neither a built-in profile nor a file");
  }
  try {
    return Orb::make<VelaSwitch::ProfileInfo>(
        fromJson<VelaSwitch::ProfileFields>(Json::parse(file)));
  } catch (const std::exception& error) {
    throw InputException(nameOrFile + ": " + error.what());
  }
}

Json profileToJson(const VelaSwitch::ProfileInfo& profile) { return toJson(profile.fields()); }

}  // namespace VelaAgent
