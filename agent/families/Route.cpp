#include "VelaSwitchTable/VelaTableLpm11.h"
#include "VelaSwitchTable/VelaTableSG.h"
#include "VelaSwitchTable/VelaTableStarG.h"
#include "agent/families/Registrations.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

/// A hashed level of the route ladder.
FamilyRegistration hashedLevel(const LpmLevel& level) {
  const std::string name = TableConstants::tableName(level.hashTableId);
  const auto lookup = [](DataPath& dataPath, U32, const Json& key) {
    const auto at = fromJson<VelaSwitch::LpmKey>(key);
    const char* family = TableConstants::tableName(lpmLevelOfKey(at.prefix().len()).hashTableId);
    return hitToJson(dataPath.lpmRow(family, at.vrf(), at.prefix().address()));
  };
  return {name, LpmBaseFamily::trace, [](const VelaSwitch::ProfileInfo&) { return 1u; },
          [=, &level](U32 instance) {
            return std::make_unique<HashAdapter<LpmBaseFamily>>(
                name, instance, lpmLevelTableFactory(level.longest(), name), lookup);
          }};
}

Json lookupLpm11(DataPath& dataPath, U32, const Json& key) {
  const auto at = fromJson<VelaSwitch::LpmKey>(key);
  return hitToJson(dataPath.lpm11(at.vrf(), at.prefix().address()));
}

Json lookupSG(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(dataPath.sg(fromJson<VelaSwitch::MrouteKey>(key)));
}

Json lookupStarG(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(dataPath.starG(fromJson<VelaSwitch::MrouteKey>(key)));
}

}  // namespace

std::vector<FamilyRegistration> routeFamilies() {
  std::vector<FamilyRegistration> all{indexedFamily<Lpm11Family>(lookupLpm11)};
  for (const LpmLevel& level : lpmLevels) all.push_back(hashedLevel(level));
  all.push_back(hashFamily<SGFamily>(lookupSG));
  // Behind level 29, whose rows it shares.
  all.push_back(hashFamily<StarGFamily>(lookupStarG));
  return all;
}

}  // namespace VelaAgent
