#include "VelaSwitchTable/VelaTableLpmTables.h"

namespace VelaSwitchTable {

#define VELA_LPM_CLASS_DEFINE(longest, What, Class, parameters, arguments)                 \
  VELA_REGISTERED_DEFINE(Lpm##longest##Class)                                              \
  VELA_FACTORY_DEFINE(Lpm##longest##Class, Lpm##longest##Class##Is, parameters, arguments) \
  VELA_FACTORY_DEFINE(Lpm##longest##Class, lpm##longest##Class##Factory, parameters, arguments)
#define VELA_LPM_LEVEL_DEFINE(longest)                                                \
  static const TableRegistration lpm##longest##Registration{lpmLevel<longest>.table}; \
  VELA_LPM_LIST(VELA_LPM_CLASS_DEFINE, longest)

VELA_LPM_LEVELS(VELA_LPM_LEVEL_DEFINE)

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
