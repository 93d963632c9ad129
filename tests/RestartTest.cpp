#include "Generator.h"
#include "VelaSwitchTable/VelaTableLpm11.h"
#include "VelaSwitchTable/VelaTableNatMatch.h"
#include "VelaSwitchTable/VelaTableVlanMembership.h"

// Restarts on switches whose rows are not what the last agent left: damaged, different from one
// pipeline to the next, or not to be read. No row stops a restart, nothing is written before what
// is desired is known, and in the end hardware holds what is desired.

namespace {

using VelaAgent::Agent;
using VelaAgent::Json;
using VelaSwitchApi::HwIndex;
using VelaTest::Desired;
using VelaTest::EntryProgrammedStatus;
using VelaTest::Group;
using VelaTest::Row;
using VelaTest::rowsOf;

/// A switch of which some rows cannot be read.
struct DarkSwitch final : VelaDevice::SimulatedSwitch {
  explicit DarkSwitch(const SimulatedSwitch& saved) : SimulatedSwitch(saved) {}
  Read row(TableHandle table, HwIndex index, std::span<RegisterValue> values) override {
    ++asked;
    const U32 mixed = (index * 31 + table * 7 + seed) * 2654435761u;
    return mixed >> 29 < dark ? Read::failed : SimulatedSwitch::row(table, index, values);
  }

  U32 seed = 0;
  U32 dark = 0;  ///< Eighths of the rows.
  U32 asked = 0;
};

/// Withdraws some of the entries that are read from hardware, and announces another one.
struct Withdrawer final : Orb::KeyObserver<VelaSwitch::NatMatchKey> {
  explicit Withdrawer(VelaSwitchApi::SwTable& watched)
      : table(dynamic_cast<VelaSwitchTable::NatMatchTable&>(watched)) {
    table.entries().observerIs(this);
  }
  ~Withdrawer() { table.entries().observerDel(this); }
  void handleKey(const VelaSwitch::NatMatchKey& key) override {
    if (!table.unclaimed(key) || !table.entry(key) || key.srcIp().number() % 4 != 0) return;
    withdrawn.insert(key);
    table.entryDel(key);
    table.entryIs({.natType = U8{1}, .srcIp = Ipnet::IpAddr(1), .sport = U16{5}}, {.valid = true});
  }
  VelaSwitchTable::NatMatchTable& table;
  std::set<VelaSwitch::NatMatchKey> withdrawn;
};

class Restart : public VelaTest::ProfileTest {
 protected:
  struct Rig : VelaTest::GroupAgent {
    Rig(const Orb::PtrConst<VelaSwitch::ProfileInfo>& profile, const Group& ofGroup,
        VelaDevice::SimulatedSwitch& chip, Start how, bool withdraws = false)
        : GroupAgent(profile, ofGroup, chip) {
      if (withdraws && group.name() == "NatMatch") {
        withdrawer = std::make_unique<Withdrawer>(tables()[0]->table());
      }
      recorder().listenerIs([&](const auto& write) {
        written.insert({write.table.name, write.index});
      });
      start(how);
    }
    /// All entries, as events would announce them.
    Json entries() const {
      Json all = Json::array();
      for (const auto& at : group.tables) {
        table(at.first, at.second).forEachEntry([&](const Json& key, const Json& result) {
          all.push_back({at.first, at.second, key, result});
        });
      }
      return all;
    }
    /// Whether each hardware table has something that is in no other.
    bool slices() const {
      return group.name() == "VlanMembership" || group.name() == "LagGroup" ||
             group.name() == "LagMembership" || group.name() == "RxPortMirror";
    }
    /// What was desired is there, and rows hold nothing else.
    void expectDesired(const Desired& desired) {
      ASSERT_NO_FATAL_FAILURE(VelaTest::expectNoFindings(*this));
      for (const auto& [key, result] : desired) {
        const auto status = set(key, result);
        ASSERT_NE(status, EntryProgrammedStatus::hardwareError) << key.second;
        if (status == EntryProgrammedStatus::programmed) {
          ASSERT_NO_FATAL_FAILURE(expectFound(key, result));
        }
      }
    }

    /// The marks of tables of each kind.
    std::size_t marks() const {
      std::size_t count = 0;
      for (const auto& adapter : tables()) {
        const auto add = [&](const auto* table) {
          if (table) count += table->hwInconsistentKeys().size();
        };
        add(dynamic_cast<VelaSwitchTable::NatMatchTable*>(&adapter->table()));
        add(dynamic_cast<VelaSwitchTable::VlanMembershipTable*>(&adapter->table()));
        add(dynamic_cast<VelaSwitchTable::Lpm11Table*>(&adapter->table()));
      }
      return count;
    }

    std::set<Row> written;
    std::unique_ptr<Withdrawer> withdrawer;
  };

  /// A switch that an agent left with the entries.
  VelaDevice::SimulatedSwitch left(const Group& group, const Desired& desired) {
    VelaDevice::SimulatedSwitch chip;
    Rig(profile, group, chip, Agent::Start::fresh).setAll(desired);
    return chip;
  }

  /// Damages some rows, each of one hardware table: two bits, so that the parity stays even, or
  /// all of them. Returns which.
  std::set<Row> damage(const Agent& agent, VelaDevice::SimulatedSwitch& chip) {
    std::set<Row> damaged;
    for (const auto& table : agent.tables()) {
      for (const auto& [id, hwTable] : table->convertor().hwTables()) {
        const auto& descriptor = hwTable->descriptor();
        const HwIndex rows = descriptor.last - descriptor.first + 1;
        for (U32 i = 0; i < std::max(rows / 12, 2u); ++i) {
          const HwIndex index = descriptor.first + random.below(rows);
          const auto words = static_cast<U32>(hwTable->mapped(index).size());
          if (words == 0) continue;
          const bool two = random.flip();
          for (U32 n = 0; n < (two ? 2 : 16 * words); ++n) {
            const U32 word = random.below(words);
            const U32 bit = random.below(32);
            // Bits of the row's place are those that say which row it is.
            const auto& mapped = hwTable->mapped(index)[word];
            if ((hwTable->staticBits(mapped.word) >> bit & 1) != 0) continue;
            chip.flipBit(hwTable->busHandle(), index, word, bit);
          }
          damaged.insert({descriptor.identity.name, index});
        }
      }
    }
    return damaged;
  }

  /// Flips a bit in some rows of the first or the last hardware table, such that they are none.
  U32 corrupt(const Group& group, VelaDevice::SimulatedSwitch& chip, bool last) {
    U32 corrupted = 0;
    VelaTest::GroupAgent flipper(profile, group, chip);
    flipper.decode();
    for (const auto& table : flipper.tables()) {
      const auto& hwTables = table->convertor().hwTables();
      auto& hwTable = *(last ? hwTables.rbegin()->second : hwTables.begin()->second);
      const auto& descriptor = hwTable.descriptor();
      for (HwIndex index = descriptor.first; index <= descriptor.last; ++index) {
        const auto words = static_cast<U32>(hwTable.mapped(index).size());
        if (words == 0 || random.below(4) != 0) continue;
        const U32 word = random.below(words);
        const U32 bit = random.below(32);
        if (!chip.flipBit(hwTable.busHandle(), index, word, bit)) continue;
        hwTable.readEntry(index);
        if (table->convertor().rowSound(descriptor.identity.id, index)) {
          chip.flipBit(hwTable.busHandle(), index, word, bit);
        } else {
          ++corrupted;
        }
      }
    }
    return corrupted;
  }

  struct Late;
  struct Whole;

  static constexpr U32 most = VelaTest::sanitized ? 80 : 200;  ///< Entries of a table.
  static constexpr U32 allReads = ~0u / 2;
};

TEST_P(Restart, noRowStopsItWhateverItHolds) {
  for (const Group& group : VelaTest::groups(*profile)) {
    SCOPED_TRACE(group.name());
    for (int round = 0; round < (VelaTest::sanitized ? 1 : 3); ++round) {
      const Desired desired = generator.entries(group, most);
      VelaDevice::SimulatedSwitch chip;
      std::set<Row> damaged;
      {
        Rig before(profile, group, chip, Agent::Start::fresh);
        before.setAll(desired);
        damaged = damage(before, chip);
      }
      VelaTest::FatalGuard guard;
      const VelaDevice::SimulatedSwitch saved(chip);
      {
        // Decoding, and an audit against what is desired.
        VelaDevice::SimulatedSwitch copy(saved);
        VelaTest::GroupAgent reader(profile, group, copy);
        reader.decode();
        for (const auto& table : reader.tables()) table->corruptRows();
      }
      {
        VelaDevice::SimulatedSwitch copy(saved);
        VelaTest::GroupAgent auditor(profile, group, copy);
        auditor.desireBegin();
        auditor.setAll(desired);
        auditor.desireEnd();
        for (const auto& table : auditor.tables()) {
          table->audit();
          table->findings();
        }
      }
      Rig after(profile, group, chip, Agent::Start::restart);
      ASSERT_TRUE(after.written.empty()) << "before anything was desired";
      after.setAll(desired);
      after.reconcile();
      after.complete();
      ASSERT_EQ(VelaTest::FatalGuard::last(), "") << "caught or not, it would end an agent";
      // Entries of hash tables may find another place when theirs was lost.
      if (!after.hashed() && group.name() != "Route") {
        for (const Row& row : after.written) {
          ASSERT_TRUE(damaged.contains(row)) << row.first << " row " << row.second;
        }
      }
      ASSERT_NO_FATAL_FAILURE(after.expectDesired(desired));
    }
  }
}

/// A writer that died amid changes left the first hardware table and the others apart. The first
/// one counts; the others are written when the entry is announced, and nothing before.
TEST_P(Restart, copiesThatDifferDoNotSpread) {
  U32 differing = 0;
  for (const Group& group : VelaTest::groups(*profile)) {
    // The limiters' CPU table is the last, and whole routes are what their levels say.
    if (group.name() == "Copp" || group.name() == "Route") continue;
    SCOPED_TRACE(group.name());
    const Desired older = generator.entries(group, most);
    Desired newer;
    for (const auto& [key, result] : older) {
      newer[key] = generator.result(group.tables[key.first].first, key.second);
    }
    VelaDevice::SimulatedSwitch chip;
    std::set<Row> mixed;
    Json expected;
    {
      Rig before(profile, group, chip, Agent::Start::fresh);
      before.setAll(older);
      VelaDevice::SimulatedSwitch old(chip);
      before.setAll(newer);
      for (const auto& table : before.tables()) {
        const auto first = table->convertor().hwTables().find(0);
        if (first == table->convertor().hwTables().end()) continue;
        const auto& [family, instance, id, name] = first->second->descriptor().identity;
        const auto* from = old.find(family, instance, id);
        const auto* to = chip.find(family, instance, id);
        // Of a table whose rows stand there several times, the first.
        const HwIndex rows = group.name() == "VlanGroup" ? 16 : to->lastIndex + 1;
        for (HwIndex index = 0; index < rows; ++index) {
          const U32* words = from->row(index);
          if (!words || std::equal(words, words + from->rowWords(), to->row(index))) continue;
          std::copy_n(words, from->rowWords(), to->row(index));
          mixed.insert({name, index});
        }
      }
      expected = Rig(profile, group, old, Agent::Start::restart).entries();
    }
    Rig after(profile, group, chip, Agent::Start::restart);
    ASSERT_TRUE(after.written.empty());
    if (!after.slices()) {
      ASSERT_EQ(after.entries(), expected) << "the first hardware table counts";
    }
    after.complete();
    ASSERT_TRUE(after.written.empty()) << "no row is nobody's";
    after.setAll(older);
    ASSERT_FALSE(mixed.empty());
    for (const Row& row : after.written) {
      if (after.slices()) break;
      EXPECT_FALSE(mixed.contains(row)) << row.first << " row " << row.second << " was right";
    }
    differing += static_cast<U32>(after.written.size());
    ASSERT_NO_FATAL_FAILURE(after.expectDesired(older));
  }
  EXPECT_GT(differing, 300u);
}

/// Rows that do not answer at a restart keep forwarding: no default is written over them. When they
/// answer, what they hold is taken over.
TEST_P(Restart, rowsThatCannotBeReadAreLeftAlone) {
  for (const Group& group : VelaTest::groups(*profile)) {
    if (group.name() == "Route") continue;
    SCOPED_TRACE(group.name());
    const Desired desired = generator.entries(group, most);
    VelaDevice::SimulatedSwitch chip = left(group, desired);
    chip.failReadsIs(allReads);
    Rig after(profile, group, chip, Agent::Start::restart);
    after.complete();
    ASSERT_TRUE(after.written.empty());
    ASSERT_EQ(after.entries(), Json::array());
    U32 found = 0;
    for (const auto& [key, result] : desired) found += after.find(key).is_null() ? 0 : 1;
    ASSERT_GE(found, desired.size() * 9 / 10) << "but for those that had no room";
    for (const auto& table : after.tables()) {
      table->audit();
      for (const auto& finding : table->findings()) {
        ASSERT_EQ(finding.kind, VelaAgent::RowFinding::Kind::unreadable);
      }
    }
    chip.failReadsIs(0);
    after.complete();
    ASSERT_TRUE(after.written.empty());
    Rig other(profile, group, chip, Agent::Start::restart);
    ASSERT_EQ(after.entries(), other.entries());
  }
}

/// An agent on a switch of which some rows answer late, beside one that got every answer at once.
struct Restart::Late : Restart::Rig {
  enum class Round : U8 { quiet, withdraws, announces };

  Late(Restart& ofTest, DarkSwitch& darkSwitch, Rig& other, Round how)
      : Rig(ofTest.profile, other.group, darkSwitch, Start::restart, how != Round::quiet),
        test(ofTest),
        chip(darkSwitch),
        sound(other),
        round(how) {}

  void audit(bool repair) {
    for (const auto& table : tables()) {
      table->audit();
      if (repair) table->repair();
    }
  }
  void withdraw(const VelaTest::EntryKey& key) {
    const U32 asked = chip.asked;
    for (Rig* rig : {&sound, static_cast<Rig*>(this)}) rig->of(key).del(key.second);
    ASSERT_EQ(chip.asked, asked) << "what cannot be read is not asked again each time";
    told[key] = false;
  }
  /// What may happen to an entry while rows do not answer.
  void meddle(const VelaTest::EntryKey& key) {
    const U32 what = test.random.below(32);
    if (what == 0) audit(true);
    if (what == 1) complete();
    if (what > 1 && what < 8 && (round == Round::announces || !hashed())) {
      const Json other = test.generator.result(group.tables[key.first].first, key.second);
      for (Rig* rig : {&sound, static_cast<Rig*>(this)}) {
        ASSERT_NE(rig->set(key, other), EntryProgrammedStatus::hardwareError) << key.second;
      }
      told[key] = true;
    }
    if (what > 5 && what < 12) {
      ASSERT_NO_FATAL_FAILURE(withdraw(key));
    }
  }
  /// What was withdrawn and may still answer has a status that says so.
  void expectStatuses() {
    std::size_t lingering = 0;
    for (const auto& table : tables()) {
      for (const auto& status : table->statuses()) {
        lingering += status.status == EntryProgrammedStatus::hardwareError ? 1 : 0;
      }
    }
    const auto answering = std::count_if(told.begin(), told.end(), [&](const auto& each) {
      return hashed() && !each.second && !find(each.first).is_null();
    });
    ASSERT_LE(static_cast<std::size_t>(answering), lingering);
  }
  /// The entries are those of the other agent, and none that was withdrawn.
  void expectSame() {
    const Json expected = sound.entries();
    const Json own = entries();
    for (const Json& entry : own) {
      ASSERT_NE(std::find(expected.begin(), expected.end(), entry), expected.end()) << entry;
    }
    if (round != Round::announces || !hashed()) {
      ASSERT_EQ(own.size(), expected.size());
    }
    for (const auto& [key, present] : told) {
      ASSERT_TRUE(present || !hashed() || find(key).is_null()) << key.second;
    }
    if (!withdrawer) return;
    for (const auto& key : withdrawer->withdrawn) {
      if (withdrawer->table.entry(key)) continue;
      // The flow may be the other table's by now: both have the same rows.
      const Json withdrawn = VelaAgent::toJson(key);
      ASSERT_TRUE(told.contains({0, withdrawn}) || told.contains({1, withdrawn}) ||
                  find({0, withdrawn}).is_null())
          << withdrawn;
    }
  }
  /// Every row answers from now on.
  void answer(bool audited) {
    chip.dark = 0;
    if (audited) {
      audit(false);
      if (round == Round::quiet) {
        ASSERT_EQ(marks(), 0u);
      }
      ASSERT_NO_FATAL_FAILURE(expectSame());
    }
    complete();
    sound.complete();
    if (round == Round::quiet) {
      ASSERT_TRUE(written.empty()) << "every row was right";
    }
    ASSERT_NO_FATAL_FAILURE(expectSame());
    if (round != Round::quiet) audit(true);
    for (Rig* rig : {&sound, static_cast<Rig*>(this)}) {
      ASSERT_EQ(rig->marks(), 0u);
      for (const auto& table : rig->tables()) {
        table->audit();
        ASSERT_TRUE(table->findings().empty()) << table->name();
        for (const auto& status : table->statuses()) {
          ASSERT_NE(status.status, EntryProgrammedStatus::hardwareError) << status.key;
        }
      }
    }
  }

  Restart& test;
  DarkSwitch& chip;
  Rig& sound;
  Round round;
  std::map<VelaTest::EntryKey, bool> told;  ///< Announced or withdrawn meanwhile.
};

/// Rows that answer late are taken up as if they had answered at once, whatever happens meanwhile:
/// audits, repairs, withdrawals of what was not read yet, by whom it was announced or by those who
/// hear of it. Entries of hash tables that are announced meanwhile may be written over others.
TEST_P(Restart, rowsThatAnswerLaterAreTakenUpThen) {
  for (const Group& group : VelaTest::groups(*profile)) {
    if (group.name() == "Route") continue;
    SCOPED_TRACE(group.name());
    const Desired desired = generator.entries(group, most);
    const VelaDevice::SimulatedSwitch saved = left(group, desired);
    for (U32 n = VelaTest::sanitized ? random.below(6) : 0; n < 6;
         n += VelaTest::sanitized ? 6 : 1) {
      const auto round = static_cast<Late::Round>(n / 2);
      const bool quiet = round == Late::Round::quiet;
      SCOPED_TRACE(n);
      VelaDevice::SimulatedSwitch copy(saved);
      Rig sound(profile, group, copy, Agent::Start::restart, !quiet);
      DarkSwitch chip(saved);
      const bool copies = sound.tables()[0]->convertor().hwTables().size() > 1;
      if (sound.hashed() && copies && round == Late::Round::withdraws) corrupt(group, chip, true);
      chip.seed = random();
      chip.dark = 1 + random.below(8);
      Late late(*this, chip, sound, round);
      for (const auto& [key, result] : desired) {
        if (quiet) break;
        ASSERT_NO_FATAL_FAILURE(late.meddle(key));
      }
      ASSERT_NO_FATAL_FAILURE(late.expectStatuses());
      ASSERT_NO_FATAL_FAILURE(late.answer(n % 2 != 0));
    }
  }
}

/// A row that no row of its table can be says nothing, and is not left standing: the other copies
/// of the entry count.
TEST_P(Restart, anotherCopyCountsWhenOneIsNonsense) {
  U32 corrupted = 0;
  for (const Group& group : VelaTest::groups(*profile)) {
    if (group.name() == "Route") continue;
    SCOPED_TRACE(group.name());
    const Desired desired = generator.entries(group, most);
    VelaDevice::SimulatedSwitch chip;
    std::map<Row, std::vector<U32>> right;
    Json expected;
    {
      Rig before(profile, group, chip, Agent::Start::fresh);
      before.setAll(desired);
      right = rowsOf(before);
      VelaDevice::SimulatedSwitch copy(chip);
      expected = Rig(profile, group, copy, Agent::Start::restart).entries();
    }
    corrupted += corrupt(group, chip, false);
    Rig after(profile, group, chip, Agent::Start::restart);
    const bool copies =
        std::all_of(after.tables().begin(), after.tables().end(),
                    [](const auto& table) { return table->convertor().hwTables().size() > 1; });
    if (copies && !after.slices()) {
      ASSERT_EQ(after.entries(), expected);
    }
    after.setAll(desired);
    after.complete();
    if (copies || !after.hashed()) {
      ASSERT_EQ(rowsOf(after), right);
    }
    ASSERT_NO_FATAL_FAILURE(after.expectDesired(desired));
  }
  EXPECT_GT(corrupted, 100u);
}

/// The whole switch with everything in it, started twice. Whole routes and entries of their levels
/// are not mixed: they would be announced over each other.
struct Restart::Whole {
  struct Numbers {
    U64 programmed;
    std::map<std::string, std::pair<U32, U32>> tables;
    bool operator==(const Numbers&) const = default;
  };

  Whole(Restart& ofTest, bool wholeRoutes) : test(ofTest), routes(wholeRoutes) {
    for (const Group& group : VelaTest::groups(*test.profile)) {
      if (group.name().starts_with("Lpm") ? routes : group.name() == "Route" && !routes) continue;
      for (const auto& [key, result] : test.generator.entries(group, most)) {
        const auto& [name, instance] = group.tables[key.first];
        Json changed = result;
        // Entries that answer no lookups, and counters that are none, have rows as well.
        if (name.starts_with("Nat") && changed.contains("valid")) {
          changed["valid"] = test.random.flip();
        }
        if (name == "AclIndirectCounterHash" && test.random.flip()) {
          changed = test.random.below(2) * 4096;
        }
        events.emplace_back(name, instance, key.second, changed);
      }
    }
  }

  /// The agent's entries as far as rows tell them, by names.
  std::map<std::string, Json> entriesOf(const Agent& agent) const {
    std::map<std::string, Json> all;
    for (const auto* table : agent.announced()) {
      // Routes and levels are made of each other.
      if (table->name() == "Route" || (routes && table->name().starts_with("Lpm"))) continue;
      table->forEachEntry([&](const Json& key, Json result) {
        // What no row holds.
        if (table->name() == "LagMembership") result.erase("lagGroupId");
        if (table->name() == "AclIndirectCounterHash") result = result.get<U32>() % 4096;
        // Two NAT tables share rows, which do not say whose they are.
        const U32 instance =
            table->name() == "NatMatch" || table->name() == "NatDynMatch" ? 0 : table->instance();
        all[table->name() + std::to_string(instance) + key.dump()] = std::move(result);
      });
    }
    return all;
  }

  Numbers run(Agent::Start how) {
    Agent agent(test.profile, chip);
    agent.make();
    agent.start(how);
    const U64 before = agent.recorder().rowWrites();
    const auto rebuilt = entriesOf(agent);
    for (const auto& [entry, result] : rebuilt) {
      EXPECT_TRUE(announced.contains(entry) && announced[entry] == result) << entry << result;
    }
    EXPECT_GE(rebuilt.size(), announced.size() * 9 / 10) << "but for those that had no room";
    for (const auto& [name, instance, key, result] : events) {
      agent.table(name, instance).set(key, result);
      agent.settle();
    }
    announced.merge(entriesOf(agent));
    if (how == Agent::Start::restart) {
      agent.complete();
      EXPECT_EQ(before, 0u);
      EXPECT_EQ(agent.recorder().rowWrites(), 0u);
      VelaTest::expectNoFindings(agent);
    }
    Numbers numbers{agent.programmed(), {}};
    for (const auto* table : agent.announced()) {
      numbers.tables[table->name() + std::to_string(table->instance())] = {table->entries(),
                                                                           table->programmed()};
      EXPECT_EQ(table->unclaimed(), 0u) << table->name();
    }
    return numbers;
  }

  Restart& test;
  bool routes;
  std::vector<std::tuple<std::string, U32, Json, Json>> events;
  VelaDevice::SimulatedSwitch chip;
  std::map<std::string, Json> announced;
};

/// The second start, told the same, writes nothing and counts the same, and what it reads back is
/// what was announced.
TEST_P(Restart, theSecondRunWritesNothing) {
  for (const bool routes : {false, true}) {
    SCOPED_TRACE(routes ? "whole routes" : "levels");
    Whole whole(*this, routes);
    const auto first = whole.run(Agent::Start::fresh);
    EXPECT_GT(first.programmed, 10 * most);
    EXPECT_EQ(whole.run(Agent::Start::restart), first);
  }
}

INSTANTIATE_TEST_SUITE_P(Profiles, Restart, testing::ValuesIn(VelaTest::profileNames()),
                         VelaTest::profileTestName);

}  // namespace
