#include "VelaSwitchApi/TableConstants.h"

#include <map>

#include "Orb/Assert.h"

namespace VelaSwitchTable {
namespace {

/// Made on first use: families register before main().
std::map<U32, const char*>& tables() {
  static std::map<U32, const char*> names;
  return names;
}

}  // namespace

TableRegistration::TableRegistration(TableIdentity table) { tables()[table.number] = table.name; }

const char* TableConstants::tableName(TableIndex index) {
  const auto name = tables().find(static_cast<U32>(index));
  ORB_ASSERT_TEXT(name != tables().end(), "tableName");
  return name->second;
}

}  // namespace VelaSwitchTable
