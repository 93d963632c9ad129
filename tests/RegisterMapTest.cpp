#include "bus/RegisterMap.h"

#include <gmock/gmock.h>

#include <fstream>

#include "agent/Agent.h"
#include "agent/TableAdapter.h"

namespace {

using testing::ElementsAre;
using VelaAgent::Json;
using VelaBus::RegisterMap;
using VelaBus::TableRegisters;

std::vector<TableRegisters> registersOfProfile(const char* name) {
  VelaDevice::SimulatedSwitch chip;
  VelaAgent::Agent agent(VelaSwitch::ProfileInfo::builtIn(name), chip);
  agent.make();
  std::vector<TableRegisters> tables;
  for (const auto& table : agent.tables()) {
    const auto registers = VelaBus::registersOf(table->table());
    tables.insert(tables.end(), registers.begin(), registers.end());
  }
  return tables;
}

std::vector<std::string> faultsOf(const Json& map, const std::vector<TableRegisters>& tables) {
  return RegisterMap::fromText(map.dump(), "map").faults(tables);
}

struct ProfileMap : testing::Test {
  const Json map = Json::parse(std::ifstream(EXAMPLES "/vela-20-4.0.registers.json"));
  const std::vector<TableRegisters> tables = registersOfProfile("vela-20-4.0");
};

/// The example has what every table of the profile needs, and nothing that none needs.
TEST_F(ProfileMap, servesTheWholeProfile) {
  EXPECT_THAT(faultsOf(map, tables), ElementsAre());
  for (const char* part : {"registers", "tables"}) {
    for (std::size_t i = 0; i < map[part].size(); ++i) {
      Json less = map;
      less[part].erase(i);
      EXPECT_FALSE(faultsOf(less, tables).empty()) << map[part][i];
    }
  }
}

TEST_F(ProfileMap, saysWhatIsMissing) {
  Json less = map;
  const auto change = [&](const char* part, const char* member, const std::string& of) -> Json& {
    for (Json& each : less[part]) {
      if (each[member].dump().find(of) != std::string::npos) return each;
    }
    throw std::logic_error(of);
  };
  change("registers", "path", "/port[{0-19}]/cfg")["path"] = "egress/port[{0-18}]/cfg";
  change("registers", "path", "acl[0]/read_ctl")["path"] = "elsewhere";
  change("tables", "names", "Lpm32").erase("hits");
  change("tables", "names", "Lpm11")["read"]["trigger"]["index"][0][1] = 12;
  change("tables", "names", "Lpm17")["hits"]["trigger"].erase("index");
  change("tables", "names", "FloodSet")["names"][0] = "FloodSet-{1-9}";
  auto wide = tables;
  for (auto& table : wide) table.width = table.table == "L2Control-0" ? 64 : 32;
  EXPECT_THAT(
      faultsOf(less, wide),
      ElementsAre("map: no protocol for table FloodSet-0",
                  "map: no pattern for egress/port[19]/cfg of table PortConfig-0",
                  "map: pattern \"pipeline[0]/port[{0-19}]/l2_control\" has 32 bits, table "
                  "L2Control-0 needs 64",
                  "map: no pattern for ingress/processor_acl[0]/read_ctl of tables[8] and table "
                  "AclHash[0]-0",
                  "map: no pattern for ingress/processor_acl[0]/read_ctl of tables[9] and table "
                  "AclIndirectCounterHash[0]-0",
                  "map: tables[10].read.trigger does not tell rows 0 to 8191 of table Lpm11-0",
                  "map: tables[12].hits.trigger does not tell rows 0 to 2047 of table Lpm17[0]-0",
                  "map: tables[17] does not say how hits of table Lpm32[0]-0 are read"));
}

}  // namespace
