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

#define VELA_LPM_CLASS_DEFINE(Class, otherFactory, parameters, arguments) \
  VELA_REGISTERED_DEFINE(Class)                                           \
  VELA_FACTORY_DEFINE(Class, Class##Is, parameters, arguments)            \
  VELA_FACTORY_DEFINE(Class, otherFactory, parameters, arguments)

#define VELA_LPM_LEVEL_DEFINE(longest)                                                         \
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

}  // namespace VelaSwitchTable
