#include "VelaSwitchTable/VelaTableLpmTables.h"

namespace VelaSwitchTable {

Orb::Ptr<LpmBaseTable> lpmLevelTableFactory(U8 longest, const std::string& name) {
  switch (longest) {
    case 14:
      return Orb::make<Lpm14Table>(name);
    case 17:
      return Orb::make<Lpm17Table>(name);
    case 20:
      return Orb::make<Lpm20Table>(name);
    case 23:
      return Orb::make<Lpm23Table>(name);
    case 26:
      return Orb::make<Lpm26Table>(name);
    case 29:
      return Orb::make<Lpm29Table>(name);
    case 32:
      return Orb::make<Lpm32Table>(name);
    default:
      ORB_ASSERT_TEXT(false, "lpmLevelTableFactory");
      return nullptr;
  }
}

}  // namespace VelaSwitchTable
