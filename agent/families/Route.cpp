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

auto lookupLevel(DataPath& dataPath, U32, const VelaSwitch::LpmKey& at) {
  const char* family = lpmLevelOfKey(at.prefix().len()).table.name;
  return VelaDevice::lpmRow(dataPath, family, at.vrf(), at.prefix().address());
}

/// A hashed level of the route ladder.
FamilyRegistration hashedLevel(const LpmLevel& level) {
  const std::string name = level.table.name;
  return {name, [&level](U32) { return level.table.number; }, LpmBaseFamily::trace,
          [](U32) { return 1u; },
          [=, &level](U32 instance) {
            return std::make_unique<HashEntries<LpmBaseFamily>>(
                name, instance, lpmLevelTableFactory(level.longest(), name),
                Lookups{lookupOf(lookupLevel)},
                EntryRules<LpmBaseTable>{checkLevelKey, checkLevelCells});
          }};
}

auto lookupLpm11(DataPath& dataPath, U32, const VelaSwitch::LpmKey& at) {
  return VelaDevice::lpm11(dataPath, at.vrf(), at.prefix().address());
}

auto lookupSG(DataPath& dataPath, U32, const VelaSwitch::MrouteKey& key) {
  return VelaDevice::sg(dataPath, key);
}

auto lookupStarG(DataPath& dataPath, U32, const VelaSwitch::MrouteKey& key) {
  return VelaDevice::starG(dataPath, key);
}

}  // namespace

std::vector<FamilyRegistration> routeFamilies() {
  std::vector<FamilyRegistration> all{indexedFamily<Lpm11Family>(
      {lookupOf(lookupLpm11)}, {checkFirstLevelKey, checkFirstLevelCell})};
  for (const LpmLevel& level : lpmLevels) all.push_back(hashedLevel(level));
  all.push_back(hashFamily<SGFamily>({lookupOf(lookupSG)}));
  // Behind level 29, whose rows it shares.
  all.push_back(hashFamily<StarGFamily>({lookupOf(lookupStarG)}));
  return all;
}

}  // namespace VelaAgent
