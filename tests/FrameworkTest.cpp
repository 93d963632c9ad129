#include "DirectBase/DirectBase.h"
#include "Support.h"
#include "VelaSwitchTable/EntryStore.h"
#include "VelaSwitchTable/VelaTableHashTest.h"
#include "VelaSwitchTable/VelaTableVlanMembership.h"

namespace {

using namespace VelaSwitchApi;
using testing::ElementsAre;
using testing::StartsWith;
using VelaTest::Chip;
using VelaTest::fatalText;

HwAddressColl registers(std::initializer_list<std::pair<DataArrayIndex, std::string>> list) {
  HwAddressColl addresses;
  for (const auto& [index, path] : list) addresses.addressIs(index, path);
  return addresses;
}

Orb::Ptr<HwTableConfig> tableOf(RegisterBus& bus, HwIndex first, HwIndex last, U8 words,
                                Orb::PtrConst<HwTableRegisterMapping> mapping) {
  const std::string name = mapping->name();
  return Orb::make<HwTableConfig>(
      HwTableDescriptorConfig::hwTableDescIs({"Example", 0, 0, name}, TableState::active, first,
                                             last, words, std::move(mapping)),
      bus);
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

/// A direct family as small as can be: eight rows of one data word and a control word.
namespace tiny {

using namespace VelaSwitchTable;

struct Entry final : DirectBaseEntry {
  Entry(U32 k, U32 r) : key(k), result(r) {}
  std::string toStrep() const override { return Orb::text("Entry(", key, ", ", result, ")"); }
  U32 key;
  U32 result;
};

class Convertor final : public DirectBaseConvertor {
 public:
  void doCreateHwTables(TableState state) override {
    for (HwTableId id : {0u, 1u}) {
      const std::string name = SwTable::hwTableName("Tiny", "", "", id);
      const auto descriptor = HwTableDescriptorConfig::hwTableDescIs(
          {"Tiny", 0, id, name}, state, 0, 7, 2,
          Orb::make<HwTableRegisterMappingConst>(name,
                                                 registers({{0, name + "/d"}, {1, name + "/c"}})));
      hwTableIs(id, Orb::make<HwTableConfig>(descriptor, swTable()->types().bus()));
      descriptorIs(id, descriptor);
    }
  }
  void doInitTableStats() override { initTableStatsPerEgressPort(2); }
  HwIndex hwIndexFromItem(const DirectBaseEntry& entry) const override { return of(entry).key; }
  void setStaticBuffer(HwIndex index, U8* image) const override {
    bitStreamSet(image, 32, 4, index | 8);
  }
  void setHwBuffer(const DirectBaseEntry& entry, U8* image) const override {
    bitStreamSet(image, 0, 31, of(entry).result);
    bitStreamSet(image, 31, 1, entry.valid());
  }
  Orb::Ptr<DirectBaseEntry> nullDirectEntry(HwIndex index) const override {
    return Orb::make<Entry>(index, 0u);
  }
  Orb::Ptr<DirectBaseEntry> decodeHwEntry(HwIndex index) const override {
    if ((hwRow(index)[1] & 15) != (index | 8)) return nullptr;
    auto entry = Orb::make<Entry>(index, hwRow(index)[0] & 0x7fffffff);
    entry->validIs((hwRow(index)[0] >> 31) != 0);
    return entry;
  }
  U32 capacityIndexFromEntry(const DirectBaseEntry& entry) const override {
    return of(entry).key / 4;
  }
  static const Entry& of(const DirectBaseEntry& entry) { return static_cast<const Entry&>(entry); }
};

class Table final : public DirectBaseTable, public EntryStore<U32, U32> {
 public:
  Table() : DirectBaseTable("tiny") { numEntriesIs(8); }
  void handleEntry(const U32& key) override {
    if (!initialized()) return;
    Entry item(key, 0);
    updateDirectItem(item);
    handleDirectEntry(item, 2);
  }
  Orb::Ptr<SwTableProfileConvertor> profileConvertorFactory() const override {
    return Orb::make<Convertor>();
  }
  bool entryHasByDirectItem(const DirectBaseEntry& item) const override {
    return entry(Convertor::of(item).key) != nullptr;
  }
  void entryIsByDirectItem(const DirectBaseEntry& item) override {
    entryIsFromHw(Convertor::of(item).key, Convertor::of(item).result);
  }
  bool entryEqualByDirectItem(const DirectBaseEntry& item) const override {
    const U32* result = entry(Convertor::of(item).key);
    return result && *result == Convertor::of(item).result;
  }
  void updateDirectItem(DirectBaseEntry& item) const override {
    const U32* result = entry(Convertor::of(item).key);
    static_cast<Entry&>(item).result = result ? *result : 0;
    item.validIs(result != nullptr);
  }
  bool hwInconsistentEntryFromDirectItem(const DirectBaseEntry& item) const override {
    return hwInconsistentEntry(Convertor::of(item).key);
  }
  void hwInconsistentEntryDelFromDirectItem(const DirectBaseEntry& item) override {
    hwInconsistentEntryDel(Convertor::of(item).key);
  }
  void hwInconsistentEntryIsFromDirectItem(const DirectBaseEntry& item) override {
    hwInconsistentEntryIs(Convertor::of(item).key, true);
  }

 protected:
  void handleInitialized() override {
    forEachAnnouncedKey([&](U32 key) { handleEntry(key); });
  }
};

}  // namespace tiny

struct Direct : testing::Test {
  Direct() { chip.start(*table); }
  Chip chip;
  Orb::Ptr<tiny::Table> table = Orb::make<tiny::Table>();
};

TEST_F(Direct, everyHardwareTableHasTheRow) {
  table->entryIs(5, 77);
  EXPECT_THAT(chip.row("Tiny", 0, 0, 5), ElementsAre(0x8000004d, 13));
  EXPECT_THAT(chip.row("Tiny", 0, 1, 5), ElementsAre(0x8000004d, 13));
  const U64 writes = chip.chip.rowWrites();
  table->handleEntry(5);
  EXPECT_EQ(chip.chip.rowWrites(), writes);
  table->entryDel(5);
  EXPECT_THAT(chip.row("Tiny", 0, 0, 5), ElementsAre(0, 13)) << "its null form";
}

TEST_F(Direct, failuresAreMarkedAndMended) {
  chip.chip.failWritesIs(1);
  table->entryIs(5, 77);
  EXPECT_TRUE(table->hwInconsistentEntry(5));
  table->handleEntry(5);
  EXPECT_FALSE(table->hwInconsistentEntry(5));
  EXPECT_THAT(chip.row("Tiny", 0, 0, 5), ElementsAre(0x8000004d, 13));
}

TEST_F(Direct, whatOneHardwareTableLacksIsWrittenWithTheEntryAlone) {
  table->entryIs(5, 77);
  chip.chip.find("Tiny", 0, 1)->image->present()[5] = 0;
  const U64 writes = chip.chip.rowWrites();
  chip.types = Orb::make<SwTableTypes>(chip.profile, chip.chip);
  const auto again = Orb::make<tiny::Table>();
  chip.create(*again);
  again->syncEntries();
  again->initializedIs(true);
  again->initHwEntries(false);
  EXPECT_EQ(chip.chip.rowWrites(), writes) << "nothing spreads by itself";
  EXPECT_TRUE(again->hwInconsistentEntry(5));
  again->handleEntry(5);
  EXPECT_EQ(chip.chip.rowWrites(), writes + 1);
  EXPECT_THAT(chip.row("Tiny", 0, 1, 5), ElementsAre(0x8000004d, 13));
  again->initHwEntries(true);
  EXPECT_EQ(chip.chip.rowWrites(), writes + 1 + 16) << "overwriting spares no row";
}

TEST_F(Direct, restartAndAuditReadTheRows) {
  table->entryIs(5, 77);
  table->entryIs(2, 22);
  const U64 writes = chip.chip.rowWrites();
  chip.types = Orb::make<SwTableTypes>(chip.profile, chip.chip);
  const auto again = Orb::make<tiny::Table>();
  chip.start(*again, Chip::Start::restart);
  EXPECT_EQ(chip.chip.rowWrites(), writes);
  EXPECT_THAT(again->entries().keys(), ElementsAre(2u, 5u));
  EXPECT_EQ(*again->entry(5), 77u);
  const auto& counters = again->profileConvertorPtr()->entryCounters();
  EXPECT_EQ(counters[0].used(), 1u);
  EXPECT_EQ(counters[1].used(), 1u);
  EXPECT_EQ(counters[1].size, 4u);

  chip.chip.flipBit(again->profileConvertorPtr()->hwTable(1)->busHandle(), 5, 0, 3);
  chip.chip.flipBit(again->profileConvertorPtr()->hwTable(0)->busHandle(), 7, 0, 0);
  again->syncEntries();
  const auto& findings = again->profileConvertorPtr()->auditFindings();
  ASSERT_EQ(findings.size(), 2u);
  EXPECT_EQ(findings[0].kind, AuditFinding::Kind::unexpected);
  EXPECT_EQ(findings[0].index, 7u);
  EXPECT_EQ(findings[1].kind, AuditFinding::Kind::inconsistent);
  EXPECT_EQ(findings[1].table, 1u);
  EXPECT_TRUE(again->hwInconsistentEntry(5));
}

}  // namespace
