#include "Generator.h"
#include "VelaSwitchTable/VelaTableHashTest.h"
#include "VelaSwitchTable/VelaTableL3Lag.h"

namespace {

using namespace VelaSwitchApi;
using testing::ElementsAre;
using testing::StartsWith;
using VelaTest::Chip;
using VelaTest::fatalText;
using VelaTest::Started;

HwAddressColl registers(std::initializer_list<std::pair<DataArrayIndex, std::string>> list) {
  HwAddressColl addresses;
  for (const auto& [index, path] : list) addresses.addressIs(index, path);
  return addresses;
}

Orb::Ptr<HwTableConfig> tableOf(RegisterBus& bus, HwIndex first, HwIndex last, U8 words,
                                Orb::PtrConst<HwTableRegisterMapping> mapping,
                                const HwTableConfig* alike = nullptr) {
  const std::string name = mapping->name();
  return Orb::make<HwTableConfig>(
      HwTableDescriptorConfig::hwTableDescIs({"Example", 0, 0, name}, TableState::active, first,
                                             last, words, std::move(mapping)),
      bus, alike);
}

HwEntryConfig row(HwIndex index, std::initializer_list<U32> words) {
  return {index, std::data(words), static_cast<U8>(words.size())};
}

TEST(HwTable, eachMappingFindsARowsRegisters) {
  VelaDevice::SimulatedSwitch chip;
  const auto coll = Orb::make<HwTableRegisterMappingColl>("coll");
  coll->regsIs(3, registers({{0, "port[3]/cfg"}}));
  coll->regsIs(5, registers({{0, "port[5]/cfg"}}));
  const auto perRow = tableOf(chip, 3, 5, 1, coll);
  EXPECT_TRUE(perRow->entryIs(row(3, {33})));
  EXPECT_TRUE(perRow->entryIs(row(4, {44}))) << "a row without registers is passed over";
  EXPECT_TRUE(perRow->entryIs(row(5, {55})));
  EXPECT_EQ(chip.registerValue("port[3]/cfg"), 33u);
  EXPECT_EQ(chip.registerValue("port[5]/cfg"), 55u);
  EXPECT_EQ(chip.rowWrites(), 2u);

  const auto range = Orb::make<HwTableRegisterMappingRange>("range");
  range->regsIs(0, registers({{0, "block[0]/data"}, {1, "block[0]/ctl"}}));
  range->regsIs(8, registers({{0, "block[1]/data"}, {1, "block[1]/ctl"}}));
  const auto ranges = tableOf(chip, 0, 15, 2, range);
  ranges->entryIs(row(7, {1, 2}));
  ranges->entryIs(row(8, {3, 4}));
  ranges->entryIs(row(15, {5, 6}));
  EXPECT_EQ(chip.registerValue("block[0]/ctl"), 2u);
  EXPECT_EQ(chip.registerValue("block[1]/ctl"), 6u);
  EXPECT_THAT(fatalText([&] { ranges->entryIs(row(16, {})); }), StartsWith("index >="));
}

/// Words go out in data-array order, those without a register stay behind.
TEST(HwTable, writesMappedWordsInOrder) {
  struct Bus final : RegisterBus {
    std::vector<std::string> paths;
    std::vector<std::string> log;
    RegisterHandle registerIs(std::string_view path) override {
      paths.emplace_back(path);
      return static_cast<U32>(paths.size()) - 1;
    }
    TableHandle tableIs(const HwTableIdentity&, HwIndex) override { return 0; }
    bool rowIs(TableHandle, HwIndex, std::span<const RegisterValue> writes) override {
      for (const auto& write : writes) log.push_back(Orb::text(paths[write.reg], "=", write.value));
      return true;
    }
    Read row(TableHandle, HwIndex, std::span<RegisterValue>) override { return Read::absent; }
    bool hitBits(TableHandle, HwIndex, std::span<RegisterValue>) override { return true; }
  } bus;
  const auto mapping = Orb::make<HwTableRegisterMappingConst>(
      "pairs", registers({{3, "ctl"}, {0, "data"}, {2, "data"}, {1, "ctl"}}));
  const auto table = tableOf(bus, 0, 0, 5, mapping);
  table->entryIs(row(0, {10, 11, 12, 13, 99}));
  EXPECT_THAT(bus.log, ElementsAre("data=10", "ctl=11", "data=12", "ctl=13"));
}

TEST(HwTable, unchangedRowsAreNotWritten) {
  VelaDevice::SimulatedSwitch chip;
  const auto table = tableOf(
      chip, 0, 3, 3,
      Orb::make<HwTableRegisterMappingConst>("example", registers({{0, "data"}, {1, "ctl"}})));
  table->entryIs(row(2, {1, 0x8002, 7}));
  table->entryIs(row(2, {1, 0x8002, 8}));
  EXPECT_EQ(chip.rowWrites(), 1u) << "word 2 has no register";
  EXPECT_EQ(table->image(2)[2], 8u) << "but its image is kept";
  table->staticWordIs(1, 0xFFFFFFFF);
  table->entryIs(row(2, {1, 0x8003, 8}));
  EXPECT_EQ(chip.rowWrites(), 1u) << "static bits are not compared";
  table->staticWordIs(1, 0);
  table->entryIs(row(2, {2, 0x8003, 8}));
  EXPECT_EQ(chip.rowWrites(), 2u);

  chip.failWritesIs(1);
  EXPECT_FALSE(table->entryIs(row(2, {3, 0x8003, 8})));
  EXPECT_EQ(table->state(2), HwTableConfig::Row::lost);
  EXPECT_TRUE(table->entryIs(row(2, {3, 0x8003, 8}))) << "after a failure it is written again";
  EXPECT_EQ(table->readEntry(2), RegisterBus::Read::held);
  EXPECT_EQ(table->image(2)[2], 8u) << "what has no register is kept while the rest is unchanged";
  EXPECT_EQ(table->readEntry(1), RegisterBus::Read::absent);
}

/// Two tables whose rows fail, change and vanish, with images that they share or of their own.
struct Pipelines {
  struct Bus final : RegisterBus {
    std::map<std::pair<TableHandle, HwIndex>, std::vector<U32>> rows;
    std::vector<TableHandle> log;
    bool fails[2]{};
    RegisterHandle registerIs(std::string_view) override { return 0; }
    TableHandle tableIs(const HwTableIdentity& table, HwIndex) override {
      return table.name == "1";
    }
    bool rowIs(TableHandle table, HwIndex index, std::span<const RegisterValue> writes) override {
      log.push_back(table);
      if (fails[table]) return false;
      rows[{table, index}] = {writes[0].value, writes[1].value};
      return true;
    }
    Read row(TableHandle table, HwIndex index, std::span<RegisterValue> values) override {
      const auto row = rows.find({table, index});
      if (fails[table]) return Read::failed;
      if (row == rows.end()) return Read::absent;
      for (int i = 0; i < 2; ++i) values[i].value = row->second[i];
      return Read::held;
    }
    bool hitBits(TableHandle, HwIndex, std::span<RegisterValue>) override { return true; }
  } bus;
  std::vector<Orb::Ptr<HwTableConfig>> tables;

  explicit Pipelines(bool alike) {
    for (const char* name : {"0", "1"}) {
      const auto mapping =
          Orb::make<HwTableRegisterMappingConst>(name, registers({{0, "data"}, {2, "control"}}));
      const bool shares = alike && !tables.empty();
      tables.push_back(tableOf(bus, 0, 1, 3, mapping, shares ? tables[0].get() : nullptr));
      tables.back()->staticWordIs(2, 4);
    }
  }
  void write(HwIndex index, const RowImage& image) {
    const bool alike = tables[0]->isAlike(*tables[1]);
    const bool unchanged = alike && tables[0]->imageIs(index, image.data());
    for (const auto& table : tables) {
      if (alike) table->entryIs(index, image.data(), unchanged, [] {});
      if (!alike) table->entryIs(index, image.data(), [] {});
    }
  }
  auto known(HwIndex index) const {
    std::vector<std::tuple<HwTableConfig::Row, bool, std::vector<U32>>> all;
    for (const auto& table : tables) {
      const U32* image = std::as_const(*table).image(index);
      const bool unknown = table->state(index) == HwTableConfig::Row::unknown;
      all.emplace_back(table->state(index), table->written(index),
                       std::vector<U32>(image, image + (unknown ? 0 : 3)));
    }
    return all;
  }
};

TEST(HwTable, tablesThatAreAlikeDifferAsOthersDo) {
  VelaTest::Random random;
  for (int round = 0; round < 200; ++round) {
    Pipelines shared(true);
    Pipelines apart(false);
    for (int step = 0; step < 60; ++step) {
      const U32 what = random.below(5);
      const U32 pipeline = random.below(2);
      const HwIndex index = random.below(2);
      const RowImage image{random.below(2), random.below(2), random.below(8)};
      const bool fails[] = {random.below(4) == 0, random.below(4) == 0};
      for (Pipelines* each : {&shared, &apart}) {
        std::copy_n(fails, 2, each->bus.fails);
        if (what == 0) each->bus.rows[{pipeline, index}] = {image[0], image[2]};
        if (what == 1) each->bus.rows.erase({pipeline, index});
        if (what == 2) each->tables[pipeline]->readEntry(index);
        if (what == 3) each->write(index, image);
        if (what == 4 && !each->tables[pipeline]->unheard(index)) {
          each->tables[pipeline]->entryForget(index);
        }
      }
      ASSERT_EQ(shared.known(0), apart.known(0)) << "step " << step;
      ASSERT_EQ(shared.known(1), apart.known(1)) << "step " << step;
      ASSERT_EQ(shared.bus.log, apart.bus.log) << "step " << step;
    }
  }
}

TEST(HwTable, descriptorsAreChecked) {
  const auto wrapper = Orb::make<HitBitReadInfoWrapper>();
  EXPECT_THAT(fatalText([&] {
                HwTableDescriptorConfig::hitBitTableDescIs(nullptr, HitBitAccessMode::none,
                                                           0xffffffff, wrapper);
              }),
              StartsWith("tableHitBitOffset != 0xffffffff"));
  EXPECT_EQ(SwTable::hitBitAccessModeMapping(TableState::active), HitBitAccessMode::clearOnRead);
  EXPECT_EQ(SwTable::hitBitAccessModeMapping(TableState::inactive), HitBitAccessMode::none);
  EXPECT_EQ(SwTable::hwTableName("AclHash", "1", "", 0), "AclHash[1]-0");
}

/// A family may run on any register bus; a table that is inactive reads no hit bits.
TEST(HwTable, inactiveTablesReadNoHitBits) {
  Chip chip;
  const auto table = VelaSwitchTable::HashTestTableIs("hashTest");
  table->doSetProfileConvertor(chip.types);
  table->profileConvertorPtr()->doCreateHwTables(TableState::inactive);
  chip.chip.failReadsIs(1);
  EXPECT_TRUE(table->profileConvertorPtr()->pollHitBits(Orb::Seconds(1)));
}

/// A pipeline without the row that another one has is written when the entry is announced, and not
/// before.
TEST(Direct, whatOneHardwareTableLacksIsWrittenWithTheEntryAlone) {
  using VelaSwitch::L3LagIndex;
  Started<VelaSwitchTable::L3LagTable> rig;
  rig.table->entryIs(L3LagIndex(5), {VelaSwitch::IngressPortMask(7), true});
  rig.chip.find("L3Lag", 0, 1)->image->present()[5] = 0;
  const U64 writes = rig.chip.rowWrites();
  const auto again = VelaSwitchTable::L3LagTableIs("again");
  rig.start(*again, Chip::Start::restart);
  again->initHwEntries(false);
  EXPECT_EQ(rig.chip.rowWrites(), writes) << "nothing spreads by itself";
  EXPECT_TRUE(again->hwInconsistentEntry(L3LagIndex(5)));
  again->handleEntry(L3LagIndex(5));
  EXPECT_EQ(rig.chip.rowWrites(), writes + 1);
  EXPECT_EQ(rig.words(1, 5), rig.words(0, 5));
  again->initHwEntries(true);
  EXPECT_EQ(rig.chip.rowWrites(), writes + 1 + 2 * 64) << "overwriting spares no row";
}

/// Entries by values of the table's own types, without JSON.
TEST(Entries, takeValuesAsTheyAre) {
  VelaDevice::SimulatedSwitch chip;
  VelaAgent::Agent agent(VelaAgent::loadProfile("vela-48-5.1"), chip);
  agent.make({"HashTest"});
  agent.start(VelaAgent::Agent::Start::fresh);
  VelaAgent::Entries& entries = agent.entriesOf("HashTest", 0);
  using VelaSwitchTable::HashTestKey;
  for (const U32 key : {0u, 64u}) {
    EXPECT_EQ(entries.announce(HashTestKey{key}, VelaSwitchTable::HashTestResult{key}),
              EntryProgrammedStatus::programmed);
  }
  EXPECT_EQ(entries.announce(HashTestKey{128u}, VelaSwitchTable::HashTestResult{1u}),
            EntryProgrammedStatus::tableFull);
  EXPECT_EQ(entries.competing(HashTestKey{128u}).size(), 2u);
  HashTestKey admitted;
  entries.admissionListenerIs([&](Orb::AnyRef key) { admitted = key.as<HashTestKey>(); });
  EXPECT_TRUE(entries.withdraw(HashTestKey{64u}));
  EXPECT_EQ(admitted.value(), 128u);
  EXPECT_EQ(entries.status(HashTestKey{128u}), EntryProgrammedStatus::programmed);
  EXPECT_THAT(fatalText([&] { entries.announce(HashTestKey{}, HashTestKey{}); }),
              testing::HasSubstr("result.shape"));
}

/// Which physical table each hash table lies in, and how that is built: rows of a way, ways, words
/// of a row, and whether reading clears hit bits.
TEST(HashTables, haveTheirShapes) {
  VelaDevice::SimulatedSwitch chip;
  VelaAgent::Agent agent(VelaAgent::loadProfile("vela-48-5.1"), chip);
  agent.make();
  std::vector<std::string> shapes;
  for (const auto& table : agent.tables()) {
    const auto* hashTable = dynamic_cast<const HashBaseTable*>(&table->table());
    if (!hashTable) continue;
    const auto is = hashTable->helper()->doGetPhysTableProperties()->fields();
    EXPECT_EQ(1u << is.hashBits, is.rowsPerWay);
    EXPECT_EQ(is.banks, 1u);
    EXPECT_EQ(is.hitBits, is.hitBitsClearOnRead);
    shapes.push_back(Orb::text(table->fullName(), ": ", is.tableId, " ", is.rowsPerWay, "x",
                               is.ways, "x", is.rowWords, is.hitBits ? " hits" : ""));
  }
  EXPECT_THAT(
      shapes,
      testing::UnorderedElementsAre(
          "AclHash/0: 46 2048x2x7", "AclHash/1: 58 2048x2x7",
          "AclIndirectCounterHash/0: 45 2048x2x7", "AclIndirectCounterHash/1: 57 2048x2x7",
          "HashTest/0: 1 8x2x3 hits", "Lpm14/0: 16 1024x2x7 hits", "Lpm17/0: 15 1024x2x7 hits",
          "Lpm20/0: 14 1024x2x7 hits", "Lpm23/0: 13 1024x2x7 hits", "Lpm26/0: 12 4096x2x7 hits",
          "Lpm29/0: 11 4096x2x7 hits", "Lpm32/0: 10 4096x2x7 hits", "NatMatch/0: 22 4096x3x6",
          "NatMatch/1: 22 4096x3x6", "NatDynMatch/0: 28 1024x4x6", "NatDynMatch/1: 29 1024x4x6",
          "SG/0: 18 8192x3x6 hits", "StarG/0: 40 4096x2x7 hits"));
}

}  // namespace
