#include "VelaSwitchTable/VelaTableLpmTables.h"

namespace VelaSwitchTable {

#define VELA_LPM_CLASS_DEFINE(Class, otherFactory, parameters, arguments) \
  VELA_REGISTERED_DEFINE(Class)                                           \
  VELA_FACTORY_DEFINE(Class, Class##Is, parameters, arguments)            \
  VELA_FACTORY_DEFINE(Class, otherFactory, parameters, arguments)

#define VELA_LPM_LEVEL_DEFINE(longest)                                                         \
  static const TableRegistration lpm##longest##Registration{lpmLevel<longest>.table};          \
  VELA_LPM_CLASS_DEFINE(Lpm##longest##Table, lpm##longest##TableFactory,                       \
                        (const std::string& name), (name))                                     \
  VELA_LPM_CLASS_DEFINE(Lpm##longest##Convertor, lpm##longest##ConvertorFactory, (), ())       \
  VELA_LPM_CLASS_DEFINE(Lpm##longest##Helper, lpm##longest##HelperFactory, (U8 numVrfBits),    \
                        (numVrfBits))                                                          \
  VELA_LPM_CLASS_DEFINE(Lpm##longest##TableCuckooEntry, lpm##longest##TableCuckooEntryFactory, \
                        (const VelaSwitch::LpmKey& key), (key))                                \
  VELA_LPM_CLASS_DEFINE(Lpm##longest##PhysicalHashProperties,                                  \
                        lpm##longest##PhysicalHashPropertiesFactory, (), ())

VELA_LPM_LEVEL_DEFINE(14)
VELA_LPM_LEVEL_DEFINE(17)
VELA_LPM_LEVEL_DEFINE(20)
VELA_LPM_LEVEL_DEFINE(23)
VELA_LPM_LEVEL_DEFINE(26)
VELA_LPM_LEVEL_DEFINE(29)
VELA_LPM_LEVEL_DEFINE(32)

Orb::Ptr<LpmBaseTable> lpmLevelTableFactory(U8 longest, const std::string& name) {
  Orb::Ptr<LpmBaseTable> table;
  const auto tryLevel = [&]<U8 level>(LpmLevelFamily<level>) {
    if (level == longest) table = Orb::make<TableOf<LpmLevelFamily<level>>>(name);
  };
  [&]<std::size_t... i>(std::index_sequence<i...>) {
    (tryLevel(LpmLevelFamily<lpmLevels[i].longest()>()), ...);
  }
  (std::make_index_sequence<lpmLevels.size()>());
  ORB_ASSERT_TEXT(table, "lpmLevelTableFactory");
  return table;
}

}  // namespace VelaSwitchTable
