#include <cstdio>
#include <memory>
#include <set>

#include "Orb/Type.h"
#include "Support.h"
#include "Trace/Trace.h"
#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "VelaSwitchTable/VelaTableHashTest.h"
#include "VelaSwitchTable/VelaTableLpmTables.h"
#include "VelaSwitchTable/VelaTableNatMatch.h"
#include "VelaSwitchTable/VelaTableSG.h"
#include "device/AclLookup.h"

/// What the library promises by name to those who load it.
namespace VelaSwitchTable {

// Whoever holds a level's objects need not include what they are.
class Lpm14Table;
class Lpm32TableCuckooEntry;

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using VelaTest::Chip;

using Names = std::vector<std::string>;

/// `prefix` with each of `suffixes` behind it.
Names each(const std::string& prefix, const Names& suffixes) {
  Names names;
  for (const std::string& suffix : suffixes) names.push_back(prefix + suffix);
  return names;
}

struct Promised {
  Names classes;      ///< That can be made, each with a factory XxxIs.
  Names baseClasses;  ///< That others derive from.
  Names functions;    ///< Factories by their other names, and functions that are no class's.
};

Promised promised() {
  Promised all;
  const auto add = [](Names& to, const Names& names) {
    to.insert(to.end(), names.begin(), names.end());
  };
  const auto factory = [](std::string name) {
    name[0] = static_cast<char>(std::tolower(name[0]));
    return name + "Factory";
  };
  for (const char* family :
       {"AclHash", "AclIndirectCounterHash", "NatMatch", "NatDynMatch", "SG"}) {
    add(all.classes,
        each(family, {"Table", "Convertor", "Helper", "TableCuckooEntry", "TableStatus"}));
  }
  add(all.classes, each("StarG", {"Table", "Helper", "TableCuckooEntry", "TableStatus"}));
  for (const char* rows :
       {"Acl", "AclCounter", "NatMatch", "NatDynMatch", "SG", "StarG", "HashTest"}) {
    add(all.classes, {rows + std::string("PhysicalHashProperties")});
  }
  add(all.classes, {"HashTestTable", "HashConvertorTestTable", "HashTestHelper",
                    "HashTestTableCuckooEntry", "TestTableStatus", "LpmTable", "LpmTableStatus"});
  for (const char* family : {"Lpm11", "L3FloodArp", "L3FloodBitmap", "L3Lag", "NatRewrite"}) {
    add(all.classes, each(family, {"Table", "Convertor", "Entry"}));
  }
  const auto plain = [&](const Names& families, const char* layer) {
    for (const std::string& family : families) {
      add(all.classes, each(family, {"Table", std::string("Convertor") + layer}));
      add(all.baseClasses, {family + "Convertor"});
    }
  };
  plain({"VlanMembership", "NativeVlan", "PortConfig", "L2Control", "FloodSet", "LagGroup",
         "LagLookUp", "LagMembership", "MacVlan", "RxPortMirror"},
        "Layer2All");
  plain({"LagHashControl", "VlanGroup", "ProtocolRemap"}, "Layer3");
  add(all.classes,
      each("Copp", {"Table", "Convertor", "HwTableRegisterMapping", "HwTableRegisterMappingHwApi41",
                    "HwTableRegisterMappingHwApi51"}));
  const Names ofLevel{"Table", "Convertor", "Helper", "TableCuckooEntry", "PhysicalHashProperties"};
  add(all.baseClasses, each("LpmBase", ofLevel));
  for (const LpmLevel& level : lpmLevels) {
    const std::string prefix = "Lpm" + std::to_string(level.longest());
    add(all.classes, each(prefix, ofLevel));
    for (const std::string& name : each(prefix, ofLevel)) add(all.functions, {factory(name)});
  }
  for (const std::string& name : all.classes) {
    if (name.starts_with("AclHash") || name.starts_with("AclPhys") || name.starts_with("SG") ||
        name.starts_with("StarG") || name == "LpmTable" || name.starts_with("Lpm11")) {
      add(all.functions, {factory(name)});
    }
  }
  add(all.functions, {"getHitBitMapping"});
  return all;
}

/// The library's symbols, functions without their parameters.
std::set<std::string> exports() {
  std::set<std::string> names;
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> nm(
      popen("nm -DC --defined-only " VELA_TABLES, "r"), pclose);
  char line[4096];
  while (nm && std::fgets(line, sizeof line, nm.get())) {
    // Address, kind, name.
    std::string name = std::string(line).substr(0, std::string(line).find_first_of("(\n"));
    const auto start = name.find(' ', name.find(' ') + 1);
    if (start != std::string::npos) names.insert(name.substr(start + 1));
  }
  return names;
}

TEST(Names, everyClassAndFactoryIsExportedAndRegistered) {
  const std::set<std::string> exported = exports();
  ASSERT_FALSE(exported.empty()) << "nm tells nothing of " VELA_TABLES;
  const std::string space = "VelaSwitchTable::";
  std::vector<std::string> missing;
  const auto expectExport = [&](const std::string& name) {
    if (!exported.contains(name)) missing.push_back(name);
  };
  const auto expectClass = [&](const std::string& name) {
    expectExport("vtable for " + space + name);
    expectExport("typeinfo for " + space + name);
    if (!Orb::Type::find(space + name)) missing.push_back("registration of " + name);
  };
  const Promised all = promised();
  for (const std::string& name : all.classes) {
    expectClass(name);
    expectExport(space + name + "Is");
  }
  for (const std::string& name : all.baseClasses) expectClass(name);
  for (const std::string& name : all.functions) expectExport(space + name);
  EXPECT_THAT(missing, IsEmpty());
}

TEST(Names, objectsKnowTheirOwnClass) {
  const auto entry = Lpm14TableCuckooEntryIs({U8{0}, Ipnet::IpPrefix(Ipnet::IpAddr(), 12)});
  EXPECT_EQ(entry->fwkType().name(), "VelaSwitchTable::Lpm14TableCuckooEntry");
  EXPECT_EQ(entry->fwkType().sourceUnit(), "VelaTableLpmTables");
  EXPECT_EQ(AclHashTableStatusIs()->fwkType().name(), "VelaSwitchTable::AclHashTableStatus");
  EXPECT_EQ(SGHelperIs()->fwkType().sourceUnit(), "VelaTableSG");
}

TEST(HashEntry, needsNoTable) {
  VelaSwitch::NatMatchKey key;
  key.srcIp = Ipnet::IpAddr(0x0a010203);
  const auto entry = NatMatchTableCuckooEntryIs(key);
  EXPECT_EQ(entry->swTableId(), VelaSwitchApi::HashBaseCuckooEntry::noSwTable);
  EXPECT_THAT(entry->toStrep(), StartsWith("NatMatchTableCuckooEntry(Value("));
  EXPECT_THAT(entry->toStrep(), testing::Not(HasSubstr("natRewriteId=")));

  NatMatchResult result;
  result.natRewriteId = 12;
  result.useAcl = true;
  entry->resultIs(result);
  entry->validIs(true);
  EXPECT_THAT(entry->toStrep(), HasSubstr(" natRewriteId=12 useAcl=true "));

  Chip chip;
  const auto table = NatMatchTableIs("nat", 0);
  chip.start(*table);
  table->entryIs(key, result);
  const auto placed = table->cachedItem(key);
  EXPECT_TRUE(entry->isEqual(*placed));
  EXPECT_EQ(placed->swTableId(), table->swTableId());
  for (U8 way = 0; way < 3; ++way) EXPECT_EQ(entry->getHash(way), placed->getHash(way));
}

struct HashItems : testing::Test {
  HashItems() { chip.start(*table); }

  const HashTestKey key{5u};
  Chip chip;
  Orb::Ptr<HashTestTable> table = HashTestTableIs("hashTest");
};

TEST_F(HashItems, oneThatIsNotCachedIsNobodysBusiness) {
  table->entryIs(key, HashTestResult{7u});
  const auto placed = table->hashItem(key);
  ASSERT_TRUE(placed && placed->placed());
  for (const auto& item : {table->createHashEntry(key, false), table->createHashItem(key, false)}) {
    EXPECT_NE(item, placed);
    EXPECT_FALSE(item->placed() || item->valid());
    item->resultIs(HashTestResult{8u});
  }
  EXPECT_EQ(table->hashItem(key), placed);
  EXPECT_EQ(table->createHashEntry(key, true), placed);
  EXPECT_EQ(placed->result(), HashTestResult{7u});
  EXPECT_EQ(hashTest(chip.path, 5)->result(), 7u);
}

TEST_F(HashItems, cachedOnesAreTheTablesOwn) {
  EXPECT_EQ(table->hashItem(key), nullptr);
  const auto item = table->hashItemIs(key);
  EXPECT_EQ(table->hashItemIs(key), item);
  EXPECT_EQ(table->createHashItem(key), item);
  EXPECT_FALSE(item->valid());
  table->hashItemDel(key);
  EXPECT_EQ(table->hashItem(key), nullptr);
}

TEST_F(HashItems, makingOneTracesItsFullName) {
  const auto lines =
      VelaTest::traced(HashTestFamily::trace, 8, [&] { table->createHashItem(key, false); });
  EXPECT_THAT(lines, Contains(StartsWith("VelaSwitchTable::HashTestTable::createHashItem ")));
}

/// Items that were dropped are found in their rows again: removal clears the row.
TEST_F(HashItems, droppedOnesDoNotStrandTheirRows) {
  table->entryIs(key, HashTestResult{7u});
  const auto placed = table->hashItem(key);
  table->hashItemDelAll();
  EXPECT_EQ(table->hashItem(key), nullptr);
  table->entryIs(key, HashTestResult{8u});
  EXPECT_EQ(table->hashItem(key), placed);
  EXPECT_EQ(hashTest(chip.path, 5)->result(), 8u);
  table->hashItemDelAll();
  table->entryDel(key);
  EXPECT_EQ(hashTest(chip.path, 5), std::nullopt);
  EXPECT_EQ(table->profileConvertor().physicalTable().engine().size(), 0u);
}

TEST_F(HashItems, resultsHaveAText) {
  EXPECT_EQ(table->resultString(key), "");
  table->entryIs(key, HashTestResult{7u});
  EXPECT_EQ(table->resultString(key), "Value('VelaSwitchTable::HashTestResult', ** {'result': 7})");
}

TEST(AclHash, tellsItsNumbersAndItsEntries) {
  const auto table = AclHashTableIs("acl", 1, 1);
  EXPECT_EQ(table->aclTableId(), 1);
  EXPECT_EQ(table->physTableIdx(), 46 + 12);
  const VelaSwitch::AclHashKey key;
  table->entryIs(key, {});
  EXPECT_TRUE(table->store().entry(key));
}

TEST(LpmLevels, prefixBaseLenIsTheLevels) {
  struct Watcher final : Orb::AttributeObserver {
    U32 heard = 0;
    void handleAttribute() override { ++heard; }
  } watcher;
  const auto table = Lpm23TableIs("level");
  EXPECT_EQ(table->prefixBaseLen(), 21);
  table->prefixBaseLenAttribute().observerIs(&watcher);
  table->prefixBaseLenIs(21);
  EXPECT_EQ(watcher.heard, 0u);
  table->prefixBaseLenIs(24);
  EXPECT_EQ(watcher.heard, 1u);
  EXPECT_EQ(table->level().longest(), 26);
}

}  // namespace
}  // namespace VelaSwitchTable
