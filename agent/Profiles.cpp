#include "agent/Profiles.h"

#include <fstream>
#include <sstream>

#include "agent/Json.h"

namespace VelaAgent {

Orb::PtrConst<VelaSwitch::ProfileInfo> loadProfile(const std::string& nameOrFile) {
  if (auto builtIn = VelaSwitch::ProfileInfo::builtIn(nameOrFile)) return builtIn;
  std::ifstream file(nameOrFile);
  if (!file) {
    throw InputException("\"" + nameOrFile + "\" is neither a built-in profile nor a file");
  }
  std::ostringstream text;
  text << file.rdbuf();
  try {
    return profileFromText(text.str());
  } catch (const std::exception& error) {
    throw InputException(nameOrFile + ": " + error.what());
  }
}

Orb::PtrConst<VelaSwitch::ProfileInfo> profileFromText(const std::string& text) {
  return Orb::make<VelaSwitch::ProfileInfo>(
      fromJson<VelaSwitch::ProfileFields>(jsonFromText(text)));
}

Json profileToJson(const VelaSwitch::ProfileInfo& profile) { return toJson(profile.fields()); }

}  // namespace VelaAgent
