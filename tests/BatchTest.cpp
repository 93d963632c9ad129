#include "Generator.h"
#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "VelaSwitchTable/VelaTableHashTest.h"
#include "VelaSwitchTable/VelaTableMacVlan.h"
#include "VelaSwitchTable/VelaTableNatMatch.h"
#include "agent/Events.h"
#include "device/AclLookup.h"

// Entries that are announced or withdrawn in batches end as if they had come one by one.

namespace {

using namespace VelaSwitchTable;
using VelaSwitchApi::EntryOutcome;
using VelaTest::Chip;
using VelaTest::EntryProgrammedStatus;
using VelaTest::Started;

class Batches : public VelaTest::ProfileTest {};

/// What a bus is told, run by run.
struct RunBus final : VelaSwitchApi::RegisterBus {
  explicit RunBus(VelaDevice::SimulatedSwitch& onto) : chip(onto) {}

  RegisterHandle registerIs(std::string_view path) override { return chip.registerIs(path); }
  TableHandle tableIs(const VelaSwitchApi::HwTableIdentity& identity, U32 lastIndex) override {
    return chip.tableIs(identity, lastIndex);
  }
  bool rowIs(TableHandle table, U32 index, std::span<const RegisterValue> writes) override {
    runs.push_back(1);
    return chip.rowIs(table, index, writes);
  }
  void rowsAre(std::span<RowWrite> rows) override {
    runs.push_back(rows.size());
    for (RowWrite& row : rows) {
      entries.push_back(row.entry);
      row.written = chip.rowIs(row.table, row.index, row.writes);
    }
  }
  Read row(TableHandle table, U32 index, std::span<RegisterValue> values) override {
    return chip.row(table, index, values);
  }
  bool hitBits(TableHandle table, U32 first, std::span<RegisterValue> values) override {
    return chip.hitBits(table, first, values);
  }

  /// The row's next reads fail.
  void rows(std::span<RowRead> rows) override {
    reads.push_back(rows.size());
    for (RowRead& each : rows) {
      if (each.index == failing && failures != 0) {
        --failures;
        return;
      }
      each.read = chip.row(each.table, each.index, each.values);
    }
  }

  bool gainsByRuns() const override { return gains; }

  VelaDevice::SimulatedSwitch& chip;
  bool gains = true;
  std::vector<std::size_t> runs;
  std::vector<U32> entries;
  std::vector<std::size_t> reads;
  U32 failing = 0;
  U32 failures = 0;
};

TEST(Batch, rowsGoToTheBusInRuns) {
  Chip chip;
  RunBus bus(chip.chip);
  chip.types = Orb::make<VelaSwitchApi::SwTableTypes>(chip.profile, bus);
  const auto acl = AclHashTableIs("acl", 0);
  chip.start(*acl);
  std::vector<std::pair<VelaSwitch::AclHashKey, VelaSwitch::AclHashResult>> entries(100);
  std::vector<VelaSwitch::AclHashKey> keys;
  for (U32 i = 0; i < entries.size(); ++i) {
    entries[i].first.l4Port = static_cast<U16>(i);
    keys.push_back(entries[i].first);
  }
  bus.runs.clear();
  chip.chip.failWritesIs(1, 0, 7);
  const auto outcomes = acl->entriesAre(entries);
  // The second run comes upon the row that failed in the first, which goes first, alone.
  EXPECT_EQ(bus.runs.front(), 64u);
  EXPECT_EQ(bus.entries[63], 63u);
  ASSERT_EQ(outcomes.size(), 100u);
  for (U32 i = 0; i < outcomes.size(); ++i) {
    EXPECT_EQ(outcomes[i].status,
              i == 7 ? EntryProgrammedStatus::hardwareError : EntryProgrammedStatus::programmed);
    EXPECT_TRUE(outcomes[i].changed && !outcomes[i].known);
  }
  // By now it is where it should be.
  for (const EntryOutcome& again : acl->entriesAre(entries)) {
    EXPECT_TRUE(again.known && !again.changed);
    EXPECT_EQ(again.status, EntryProgrammedStatus::programmed);
  }
  bus.runs.clear();
  const auto gone = acl->entriesDel(keys);
  EXPECT_THAT(bus.runs, testing::ElementsAre(64, 36));
  EXPECT_TRUE(std::all_of(gone.begin(), gone.end(), [](const auto& each) { return each.changed; }));
  EXPECT_EQ(acl->entries().size(), 0u);
}

/// A row that fails is tried again before those behind it, at audits as at restarts.
TEST(Batch, rowsAreReadInRuns) {
  using Kind = VelaSwitchApi::AuditFinding::Kind;
  Chip chip;
  RunBus bus(chip.chip);
  chip.types = Orb::make<VelaSwitchApi::SwTableTypes>(chip.profile, bus);
  const auto table = HashTestTableIs("hashTest");
  chip.start(*table);
  for (U32 key = 0; key < 10; ++key) table->entryIs(HashTestKey{key}, HashTestResult{1});
  const auto& physical = table->profileConvertor().physicalTable();
  bus.failing = 5;
  const auto audit = [&](U32 failures) {
    bus.reads.clear();
    bus.failures = failures;
    table->syncEntries();
    return table->profileConvertor().auditFindings();
  };
  EXPECT_THAT(audit(0), testing::IsEmpty());
  EXPECT_THAT(bus.reads, testing::ElementsAre(16));
  EXPECT_THAT(audit(2), testing::IsEmpty());
  EXPECT_THAT(bus.reads, testing::ElementsAre(16, 11, 11));
  U32 last = 15;
  while (!physical.entryAt(last)) --last;
  chip.chip.flipBit(physical.hwTables().front()->busHandle(), last, 0, 0);
  const auto findings = audit(3);
  EXPECT_THAT(bus.reads, testing::ElementsAre(16, 11, 11, 10));
  ASSERT_EQ(findings.size(), 2u);
  EXPECT_EQ(std::pair(findings[0].kind, findings[0].index), std::pair(Kind::unreadable, U32{5}));
  EXPECT_EQ(std::pair(findings[1].kind, findings[1].index), std::pair(Kind::inconsistent, last));
  table->profileConvertor().repair(findings[1]);

  const auto next = HashTestTableIs("next");
  chip.types = Orb::make<VelaSwitchApi::SwTableTypes>(chip.profile, bus);
  chip.create(*next);
  bus.failures = 2;
  next->syncEntries();
  EXPECT_EQ(next->entries().size(), 10u);
}

TEST(Batch, rowsThatFailMarkTheirKeys) {
  Started<MacVlanTable> rig;
  const auto entry = [](U16 vid) {
    return std::pair(MacVlanKey{vid}, MacVlanResult{.vlanId = static_cast<U16>(vid)});
  };
  rig.chip.failWritesIs(1);
  const std::vector entries{entry(1), entry(2)};
  const auto outcomes = rig.table->entriesAre(entries);
  EXPECT_EQ(outcomes[0].status, EntryProgrammedStatus::hardwareError);
  EXPECT_EQ(outcomes[1].status, EntryProgrammedStatus::programmed);
  rig.table->handleEntry(entries[0].first);
  EXPECT_TRUE(rig.table->hwInconsistentKeys().empty());
}

/// Hears of statuses, and withdraws the next key of some.
struct Withdraws final : Orb::KeyObserver<HashTestKey> {
  explicit Withdraws(HashTestTable& of) : table(of) { table.tableStatus()->observerIs(this); }
  ~Withdraws() { table.tableStatus()->observerDel(this); }
  void handleKey(const HashTestKey& key) override {
    if (key.value() % 4 == 3) table.entryDel(HashTestKey{key.value() + 1});
  }
  HashTestTable& table;
};

/// What failed comes in when the next entry is announced, also within a batch; and whoever hears of
/// one may withdraw another that is behind it.
TEST(Batch, entriesBehindAFailureOrAnObserver) {
  Started<HashTestTable> rig;
  const auto entry = [](U32 key) { return std::pair(HashTestKey{key}, HashTestResult{7u}); };
  rig.chip.failWritesIs(1);
  const std::vector first{entry(1), entry(2)};
  EXPECT_EQ(rig.table->entriesAre(first)[0].status, EntryProgrammedStatus::hardwareError);
  EXPECT_EQ(rig.status(HashTestKey{1u}), EntryProgrammedStatus::programmed);
  EXPECT_TRUE(hashTest(rig.path, 1));
  const Withdraws observer(*rig.table);
  const std::vector second{entry(3), entry(4), entry(5)};
  const auto outcomes = rig.table->entriesAre(second);
  EXPECT_EQ(outcomes[1].status, EntryProgrammedStatus::notProgrammed);
  EXPECT_FALSE(hashTest(rig.path, 4));
  EXPECT_TRUE(hashTest(rig.path, 5));
  EXPECT_EQ(rig.table->count(VelaSwitchApi::KeyRecord::staged), 0u);
}

/// Few keys for a table of 16 rows, so that entries move, wait and come in.
std::vector<std::pair<HashTestKey, HashTestResult>> someEntries(VelaTest::Random& random) {
  std::vector<std::pair<HashTestKey, HashTestResult>> entries(random.below(12));
  for (auto& entry : entries)
    entry = {HashTestKey{random.below(24)}, HashTestResult{random.below(3)}};
  return entries;
}

/// How the entries of a batch come into hardware.
enum class Way {
  staged,    ///< Rows are gathered for the bus.
  oneByOne,  ///< Not so, and somebody hears of each.
  inGroups,  ///< And nobody does.
};

/// The test table; it notes the rows that are written and, where it hears of entries, which ones.
struct Noting final : Chip, Orb::KeyObserver<HashTestKey> {
  explicit Noting(Way way) {
    bus.gains = way == Way::staged;
    types = Orb::make<VelaSwitchApi::SwTableTypes>(profile, bus);
    start(*table);
    if (way != Way::inGroups) table->entries().observerIs(this);
    chip.writeObserverIs([this](const auto&, U32 index) {
      written.push_back(row("HashTest", 0, 0, index));
      grouped = grouped || table->count(VelaSwitchApi::KeyRecord::staged) > 1;
    });
  }
  ~Noting() { table->entries().observerDel(this); }
  void handleKey(const HashTestKey& key) override { heard.push_back(key); }

  RunBus bus{chip};
  Orb::Ptr<HashTestTable> table = HashTestTableIs("table");
  std::vector<std::vector<U32>> written;
  std::vector<HashTestKey> heard;
  bool grouped = false;  ///< A row was written while others were to follow.
};

class AnyWay : public testing::TestWithParam<Way> {};

TEST_P(AnyWay, endsAsOneByOne) {
  const bool staged = GetParam() == Way::staged;
  Noting batches(GetParam());
  Noting singles(Way::oneByOne);
  std::vector<std::unique_ptr<Withdraws>> observers;
  VelaTest::Random random;
  for (U32 round = 0; round < 3000; ++round) {
    const auto entries = someEntries(random);
    const bool announced = random.flip();
    const U32 failures = !staged && random.below(8) == 0 ? 1 + random.below(3) : 0;
    const U32 good = random.below(8);
    const HashTestKey marked{random.below(24)};
    for (Noting* each : {&batches, &singles}) {
      each->chip.failWritesIs(failures, 0, good);
      if (round % 16 == 0) each->table->hwInconsistentEntryIs(marked, true);
      if (round == 2000 && !staged) observers.push_back(std::make_unique<Withdraws>(*each->table));
    }
    std::vector<HashTestKey> keys;
    keys.reserve(entries.size());
    for (const auto& entry : entries) keys.push_back(entry.first);
    const auto outcomes =
        announced ? batches.table->entriesAre(entries) : batches.table->entriesDel(keys);
    ASSERT_EQ(outcomes.size(), entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
      auto& twin = *singles.table;
      const auto& [key, result] = entries[i];
      ASSERT_EQ(outcomes[i].known, twin.entries().has(key));
      ASSERT_EQ(outcomes[i].changed, announced ? twin.entryIs(key, result) : twin.entryDel(key));
      ASSERT_EQ(outcomes[i].status, twin.status(key)) << round << " " << key.value();
    }
    ASSERT_EQ(batches.written, singles.written) << round;
    if (GetParam() != Way::inGroups) {
      ASSERT_EQ(batches.heard, singles.heard) << round;
    }
    ASSERT_EQ(batches.table->hwInconsistentKeys(), singles.table->hwInconsistentKeys()) << round;
    ASSERT_EQ(batches.table->tableStatus()->keys(), singles.table->tableStatus()->keys()) << round;
    ASSERT_EQ(batches.table->count(VelaSwitchApi::KeyRecord::staged), 0u) << round;
  }
  EXPECT_EQ(batches.bus.runs.size() == singles.bus.runs.size(), !staged);
  EXPECT_EQ(batches.grouped, GetParam() != Way::oneByOne);
  EXPECT_GT(batches.table->profileConvertor().physicalTable().engine().moves(), 100u);
}

/// Whoever watches statuses goes when told of one.
TEST(Batch, groupsComeBackWhenNobodyWatchesStatuses) {
  Noting noting(Way::inGroups);
  struct Leaves final : Orb::KeyObserver<HashTestKey> {
    explicit Leaves(HashTestTable& of) : table(of) { table.tableStatusIs()->observerIs(this); }
    void handleKey(const HashTestKey&) override { table.tableStatus()->observerDel(this); }
    HashTestTable& table;
  } leaves(*noting.table);
  const std::vector keys{HashTestKey{1u}, HashTestKey{2u}};
  noting.table->entryIs(HashTestKey{3u}, HashTestResult{1});
  for (const HashTestKey& key : keys) noting.table->entryIs(key, HashTestResult{1});
  noting.table->entriesDel(keys);
  EXPECT_TRUE(noting.grouped);
}

/// A key that cannot be packed, behind an entry that goes alone, for it comes upon a row that could
/// not be written before.
TEST_P(AnyWay, entriesInFrontOfAnAssertionStand) {
  struct Hears final : Orb::KeyObserver<VelaSwitch::NatMatchKey> {
    void handleKey(const VelaSwitch::NatMatchKey&) override {}
  } hears;
  Chip chip;
  RunBus bus(chip.chip);
  bus.gains = GetParam() == Way::staged;
  chip.types = Orb::make<VelaSwitchApi::SwTableTypes>(chip.profile, bus);
  const auto nat = NatMatchTableIs("nat", 0);
  chip.start(*nat);
  if (GetParam() == Way::oneByOne) nat->entries().observerIs(&hears);
  std::vector<std::pair<VelaSwitch::NatMatchKey, NatMatchResult>> flows(5);
  for (U32 i = 0; i < 5; ++i) flows[i].first.srcIp = Ipnet::IpAddr(i);
  flows[3].first.sport = 1;
  chip.chip.failWritesIs(1, 0, 2);
  EXPECT_THAT(VelaTest::fatalText([&] { nat->entriesAre(flows); }),
              testing::HasSubstr("should be unset"));
  for (U32 i = 0; i < 3; ++i) {
    EXPECT_EQ(nat->status(flows[i].first), EntryProgrammedStatus::programmed) << i;
  }
  EXPECT_EQ(nat->entries().size(), 3u);
}

INSTANTIATE_TEST_SUITE_P(Ways, AnyWay, testing::Values(Way::staged, Way::oneByOne, Way::inGroups));

/// Two tables on one set of rows, in two pipelines.
struct Pair final : Chip {
  Pair() {
    bus.gains = false;
    types = Orb::make<VelaSwitchApi::SwTableTypes>(profile, bus);
    startTogether({tables[0].get(), tables[1].get()});
    chip.writeObserverIs([this](const auto& table, U32 index) {
      written.emplace_back(table.identity.id, index, row("NatMatch", 0, table.identity.id, index));
      for (const auto& each : tables) {
        grouped += each->count(VelaSwitchApi::KeyRecord::staged) > 1 ? 1 : 0;
      }
    });
  }
  auto& physical() const { return tables[0]->profileConvertor().physicalTable(); }

  RunBus bus{chip};
  std::array<Orb::Ptr<NatMatchTable>, 2> tables{NatMatchTableIs("static", 0),
                                                NatMatchTableIs("dynamic", 1)};
  std::vector<std::tuple<U32, U32, std::vector<U32>>> written;
  U32 grouped = 0;  ///< Rows that were written while others were to follow.
};

/// Groups of their entries, which are hit while they move, wait and fail.
TEST(Batch, tablesThatShareRowsEndAsOneByOne) {
  Pair batches;
  Pair singles;
  const U32 capacity = batches.physical().engine().capacity();
  ASSERT_EQ(&batches.physical(), &batches.tables[1]->profileConvertor().physicalTable());
  VelaTest::Random random;
  U32 waited = 0;
  for (U32 round = 0; round < 900; ++round) {
    const U32 which = random.below(2);
    const bool announced = random.below(100) < (round < 450 ? 85 : 60);
    std::vector<std::pair<VelaSwitch::NatMatchKey, NatMatchResult>> flows(1 + random.below(100));
    std::vector<VelaSwitch::NatMatchKey> keys;
    for (auto& flow : flows) {
      // At first none that is in both.
      const U32 parity = round < 450 ? which : random.below(2);
      const U32 number = random.below(capacity) * 2 + parity;
      flow.first.srcIp = Ipnet::IpAddr(number * 2654435761u);
      keys.push_back(flow.first);
    }
    const U32 failures = random.below(10) == 0 ? 1 + random.below(3) : 0;
    const U32 unread = random.below(10) == 0 ? 1 + random.below(3) : 0;
    const U32 good = random.below(60);
    std::array<std::pair<U32, U32>, 30> hits;
    for (auto& hit : hits) hit = {random.below(2), random.below(capacity)};
    for (Pair* each : {&batches, &singles}) {
      each->chip.failWritesIs(failures, 0, good);
      each->chip.failReadsIs(unread, good % 10);
      for (const auto& [pipeline, row] : hits) {
        each->chip.find("NatMatch", 0, pipeline)->hit(row) = true;
      }
    }
    NatMatchTable& table = *batches.tables[which];
    NatMatchTable& twin = *singles.tables[which];
    const auto outcomes = announced ? table.entriesAre(flows) : table.entriesDel(keys);
    for (std::size_t i = 0; i < flows.size(); ++i) {
      const auto& [key, result] = flows[i];
      ASSERT_EQ(outcomes[i].known, twin.entries().has(key)) << round;
      ASSERT_EQ(outcomes[i].changed, announced ? twin.entryIs(key, result) : twin.entryDel(key));
      ASSERT_EQ(outcomes[i].status, twin.status(key)) << round;
      waited += outcomes[i].status == EntryProgrammedStatus::tableFull ? 1 : 0;
    }
    ASSERT_EQ(batches.written, singles.written) << round;
    for (Pair* each : {&batches, &singles}) each->written.clear();
    if (round % 50 != 0) continue;
    for (U32 pipeline = 0; pipeline < 2; ++pipeline) {
      const Orb::Seconds now(1 + round);
      ASSERT_EQ(batches.physical().pollHits(pipeline, now),
                singles.physical().pollHits(pipeline, now));
    }
    for (const auto& key : table.tableStatus()->keys()) {
      ASSERT_EQ(table.tableStatus()->entryStatus(key), twin.tableStatus()->entryStatus(key));
    }
    ASSERT_EQ(table.tableStatus()->keys(), twin.tableStatus()->keys());
    ASSERT_EQ(table.hwInconsistentKeys(), twin.hwInconsistentKeys());
  }
  EXPECT_GT(waited, 10u);
  EXPECT_GT(batches.grouped, 10u);
  EXPECT_EQ(singles.grouped, 0u);
  EXPECT_GT(batches.physical().engine().moves(), 1000u);
}

/// Whatever fails, statuses tell the truth, and what lies in a row is found while others change.
TEST(Batch, nothingIsLostWhereWritesFail) {
  Started<HashTestTable> rig;
  VelaTest::Random random;
  std::map<U32, U32> desired;
  std::set<HashTestKey> touched;
  const auto expectFound = [&] {
    for (const HashTestKey& key : rig.table->tableStatus()->keys()) {
      if (touched.contains(key) || rig.status(key) != EntryProgrammedStatus::programmed) continue;
      ASSERT_TRUE(hashTest(rig.path, key.value())) << key.value();
    }
  };
  rig.chip.writeObserverIs([&](const auto&, U32) { expectFound(); });
  for (U32 round = 0; round < 2000; ++round) {
    const auto entries = someEntries(random);
    touched.clear();
    std::vector<HashTestKey> keys;
    keys.reserve(entries.size());
    for (const auto& entry : entries) keys.push_back(entry.first);
    touched.insert(keys.begin(), keys.end());
    // Others that failed are tried again amid the batch.
    for (const HashTestKey& key : rig.table->tableStatus()->keys()) {
      if (rig.status(key) != EntryProgrammedStatus::programmed) touched.insert(key);
    }
    if (random.below(3) == 0) rig.chip.failWritesIs(random.below(4), random.below(4));
    if (random.below(3) != 0) {
      for (const auto& [key, result] : entries) desired[key.value()] = result.result();
      rig.table->entriesAre(entries);
    } else {
      for (const HashTestKey& key : keys) desired.erase(key.value());
      rig.table->entriesDel(keys);
    }
    touched.clear();
    ASSERT_NO_FATAL_FAILURE(expectFound()) << round;
    if (round % 8 != 0) continue;
    rig.chip.failWritesIs(0);
    rig.convertor().physicalTable().settle();
    for (const auto& [key, result] : desired) {
      const auto status = rig.status(HashTestKey{key});
      const auto hit = hashTest(rig.path, key);
      ASSERT_NE(status, EntryProgrammedStatus::hardwareError) << round;
      ASSERT_EQ(hit.has_value(), status == EntryProgrammedStatus::programmed) << round;
      if (hit) {
        ASSERT_EQ(hit->result(), result);
      }
    }
    ASSERT_EQ(rig.table->tableStatus()->size(), desired.size());
  }
}

/// Lines told to a runner, with all that comes of them.
struct Heard {
  explicit Heard(const char* name)
      : profile(VelaSwitch::ProfileInfo::builtIn(name)), agent(profile, chip) {
    agent.make();
    agent.start(VelaAgent::Agent::Start::fresh);
    runner.emplace(agent);
    const auto add = [this](const std::string& text) {
      all += std::to_string(runner->lineNumber()) + " " + text + "\n";
    };
    runner->resultListenerIs(add);
    runner->warningListenerIs(add);
    agent.recorder().listenerIs([this](const auto& write) {
      const U64 event = write.entry ? runner->eventNumber(*write.entry) : runner->eventNumber();
      writes += Orb::text(event, " ", write.table.name, " ", write.index, "\n");
    });
  }

  VelaDevice::SimulatedSwitch chip;
  Orb::PtrConst<VelaSwitch::ProfileInfo> profile;
  VelaAgent::Agent agent;
  std::optional<VelaAgent::EventRunner> runner;
  std::string all;
  std::string writes;
};

/// Announcements that are put off show in nothing: results, warnings and writes have the numbers
/// of their lines and events.
TEST_P(Batches, ofEventsTellWhatSingleEventsTell) {
  Heard batches(GetParam().c_str());
  Heard singles(GetParam().c_str());
  const std::vector<std::string> tables{"Route",    "HashTest", "AclHash",
                                        "NatMatch", "Lpm29",    "MacVlan"};
  std::vector<std::string> lines;  // stay where they are
  lines.reserve(3000);
  for (U32 run = 0; lines.size() < 2900; ++run) {
    const std::string& table = tables[random.below(6)];
    const U32 numbers = table == "HashTest" ? 24 : std::min(generator.keys(table), 60u);
    for (U32 i = random.below(30); i > 0; --i) {
      const auto key = generator.key(table, random.below(numbers));
      VelaTest::Json event = {{"op", "set"}, {"table", table}, {"key", key}};
      if (random.below(10) == 0) {
        event["op"] = "del";
      } else {
        event["result"] = generator.result(table, key);
      }
      std::string& line = lines.emplace_back(event.dump());
      if (random.below(50) == 0) line += "}";
      line.reserve(line.size() + VelaAgent::EventReader::padding);
    }
  }
  for (U64 number = 1; number <= lines.size(); ++number) {
    const std::string& line = lines[number - 1];
    const auto refusal = [&](Heard& told, std::size_t behind) {
      told.all += VelaTest::errorText([&] { told.runner->takeLine(line, behind, number); });
    };
    refusal(singles, 0);
    singles.runner->flush();
    refusal(batches, VelaAgent::EventReader::padding);
    if (random.below(100) == 0) batches.runner->flush();
  }
  batches.runner->flush();
  EXPECT_EQ(batches.all, singles.all);
  EXPECT_EQ(batches.writes, singles.writes);
  EXPECT_GT(singles.runner->refusals(), 10u);
}

INSTANTIATE_TEST_SUITE_P(Models, Batches, testing::Values("vela-48-5.1", "vela-20-4.0"),
                         VelaTest::profileTestName);

}  // namespace
