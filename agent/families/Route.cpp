#include "VelaSwitchTable/VelaTableLpm11.h"
#include "VelaSwitchTable/VelaTableSG.h"
#include "VelaSwitchTable/VelaTableStarG.h"
#include "agent/families/Registrations.h"
#include "device/RouteLookup.h"

namespace VelaAgent {
namespace {

using namespace VelaSwitchTable;
using VelaDevice::DataPath;

void checkPrefixLength(const VelaSwitch::LpmKey& key, U8 length) {
  if (key.prefix().len() == length) return;
  throw InputException(
      Orb::text("prefix: the keys of this level have ", length, " bits, not ", key.prefix().len()));
}

void checkCell(const EntryCellResult& cell, U8 shortest, U8 longest) {
  const U8 length = cell.realPrefixLen();
  if (!cell.valid() || (length >= shortest && length <= longest)) return;
  throw InputException(Orb::text("realPrefixLen: this level serves routes of ", shortest, " to ",
                                 longest, " bits, not ", length));
}

void checkLevelKey(const LpmBaseTable& table, const VelaSwitch::LpmKey& key) {
  checkPrefixLength(key, table.level().prefixBaseLen);
}

void checkLevelCells(const LpmBaseTable& table, const LpmResult& result,
                     std::vector<std::string>&) {
  for (const EntryCellResult& cell : result.cells()) {
    checkCell(cell, table.level().prefixBaseLen, table.level().longest());
  }
}

void checkFirstLevelKey(const Lpm11Table&, const VelaSwitch::LpmKey& key) {
  checkPrefixLength(key, Lpm11Family::keyLength);
}

void checkFirstLevelCell(const Lpm11Table&, const Lpm11Result& result, std::vector<std::string>&) {
  checkCell(result.cellResult(), 0, Lpm11Family::keyLength);
}

/// A hashed level of the route ladder.
FamilyRegistration hashedLevel(const LpmLevel& level) {
  const std::string name = TableConstants::tableName(level.hashTableId);
  const auto lookup = [](DataPath& dataPath, U32, const Json& key) {
    const auto at = fromJson<VelaSwitch::LpmKey>(key);
    const char* family = TableConstants::tableName(lpmLevelOfKey(at.prefix().len()).hashTableId);
    return hitToJson(lpmRow(dataPath, family, at.vrf(), at.prefix().address()));
  };
  return {name, LpmBaseFamily::trace, [](const VelaSwitch::ProfileInfo&) { return 1u; },
          [=, &level](U32 instance) {
            return std::make_unique<HashAdapter<LpmBaseFamily>>(
                name, instance, lpmLevelTableFactory(level.longest(), name), lookup,
                EntryRules<LpmBaseTable>{checkLevelKey, checkLevelCells});
          }};
}

Json lookupLpm11(DataPath& dataPath, U32, const Json& key) {
  const auto at = fromJson<VelaSwitch::LpmKey>(key);
  return hitToJson(lpm11(dataPath, at.vrf(), at.prefix().address()));
}

Json lookupSG(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(sg(dataPath, fromJson<VelaSwitch::MrouteKey>(key)));
}

Json lookupStarG(DataPath& dataPath, U32, const Json& key) {
  return hitToJson(starG(dataPath, fromJson<VelaSwitch::MrouteKey>(key)));
}

}  // namespace

std::vector<FamilyRegistration> routeFamilies() {
  std::vector<FamilyRegistration> all{
      indexedFamily<Lpm11Family>(lookupLpm11, {checkFirstLevelKey, checkFirstLevelCell})};
  for (const LpmLevel& level : lpmLevels) all.push_back(hashedLevel(level));
  all.push_back(hashFamily<SGFamily>(lookupSG));
  // Behind level 29, whose rows it shares.
  all.push_back(hashFamily<StarGFamily>(lookupStarG));
  return all;
}

}  // namespace VelaAgent
