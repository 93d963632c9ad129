#include "VelaSwitchTable/VelaTableLpmTables.h"

namespace VelaSwitchTable {

Orb::Ptr<LpmBaseTable> lpmLevelTableFactory(U8 longest, const std::string& name) {
  switch (longest) {
    case 14:
      return Lpm14TableIs(name);
    case 17:
      return Lpm17TableIs(name);
    case 20:
      return Lpm20TableIs(name);
    case 23:
      return Lpm23TableIs(name);
    case 26:
      return Lpm26TableIs(name);
    case 29:
      return Lpm29TableIs(name);
    case 32:
      return Lpm32TableIs(name);
    default:
      ORB_ASSERT_TEXT(false, "lpmLevelTableFactory");
      return nullptr;
  }
}

VELA_LPM_LEVEL_DEFINE(Lpm14Level, 14, Lpm14Table, Lpm14Convertor, Lpm14Helper,
                      Lpm14TableCuckooEntry, Lpm14PhysicalHashProperties)
VELA_LPM_LEVEL_DEFINE(Lpm17Level, 17, Lpm17Table, Lpm17Convertor, Lpm17Helper,
                      Lpm17TableCuckooEntry, Lpm17PhysicalHashProperties)
VELA_LPM_LEVEL_DEFINE(Lpm20Level, 20, Lpm20Table, Lpm20Convertor, Lpm20Helper,
                      Lpm20TableCuckooEntry, Lpm20PhysicalHashProperties)
VELA_LPM_LEVEL_DEFINE(Lpm23Level, 23, Lpm23Table, Lpm23Convertor, Lpm23Helper,
                      Lpm23TableCuckooEntry, Lpm23PhysicalHashProperties)
VELA_LPM_LEVEL_DEFINE(Lpm26Level, 26, Lpm26Table, Lpm26Convertor, Lpm26Helper,
                      Lpm26TableCuckooEntry, Lpm26PhysicalHashProperties)
VELA_LPM_LEVEL_DEFINE(Lpm29Level, 29, Lpm29Table, Lpm29Convertor, Lpm29Helper,
                      Lpm29TableCuckooEntry, Lpm29PhysicalHashProperties)
VELA_LPM_LEVEL_DEFINE(Lpm32Level, 32, Lpm32Table, Lpm32Convertor, Lpm32Helper,
                      Lpm32TableCuckooEntry, Lpm32PhysicalHashProperties)

}  // namespace VelaSwitchTable
