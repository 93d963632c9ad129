#include "Generator.h"

// An audit finds every bit that flips, names the entry and the field, and a repair writes the
// damaged rows and no others. With VELA_ALL_BITS set, every bit of every row is flipped; otherwise
// a few bits of every row.

namespace {

using VelaAgent::Agent;
using VelaAgent::HwTableAdapter;
using VelaAgent::Json;
using VelaAgent::RowFinding;
using VelaSwitchApi::HwIndex;
using VelaSwitchApi::HwTableConfig;
using VelaTest::Group;
using VelaTest::GroupAgent;

/// One bit of one row of one hardware table.
struct Bit {
  const HwTableAdapter* owner;
  const HwTableConfig* hwTable;
  HwIndex index;
  U32 word;  ///< Of the row image.
  U32 bit;
};

class Audit : public VelaTest::ProfileTest {
 protected:
  /// A group of tables, filled, on a switch that another agent wrote.
  struct Rig {
    VelaDevice::SimulatedSwitch chip;
    std::unique_ptr<GroupAgent> agent;
  };

  Rig filled(const Group& group) {
    Rig rig;
    const VelaTest::Desired entries = generator.entries(group, 400);
    {
      GroupAgent writer(profile, group, rig.chip);
      writer.start(Agent::Start::fresh);
      writer.setAll(entries);
    }
    rig.agent = std::make_unique<GroupAgent>(profile, group, rig.chip);
    rig.agent->desireBegin();
    // In another order: other rows, until they are taken over.
    for (auto at = entries.rbegin(); at != entries.rend(); ++at)
      rig.agent->set(at->first, at->second);
    rig.agent->desireEnd();
    return rig;
  }

  /// All bits of the group's rows that say something.
  static std::vector<Bit> bits(const Agent& agent) {
    std::vector<Bit> all;
    for (const auto& table : agent.tables()) {
      for (const auto& [id, hwTable] : table->convertor().hwTables()) {
        const auto& descriptor = hwTable->descriptor();
        for (HwIndex index = descriptor.first; index <= descriptor.last; ++index) {
          if (!table->listsRow(index)) continue;
          for (const auto& mapped : hwTable->mapped(index)) {
            for (U32 bit = 0; bit < 32; ++bit) {
              if ((hwTable->staticBits(mapped.word) >> bit & 1) != 0) continue;
              all.push_back({table.get(), hwTable.get(), index, mapped.word, bit});
            }
          }
        }
      }
    }
    return all;
  }

  static void flip(Rig& rig, const Bit& bit) {
    const auto& mapped = bit.hwTable->mapped(bit.index);
    U32 position = 0;
    while (mapped[position].word != bit.word) ++position;
    ASSERT_TRUE(rig.chip.flipBit(bit.hwTable->busHandle(), bit.index, position, bit.bit));
  }

  /// Whether it is the field that the bit belongs to, as the table sees it that found it.
  static bool within(const std::string& found, const HwTableAdapter& finder, const Bit& bit) {
    const U32 at = bit.word * 32u + bit.bit;
    const auto& convertor = finder.convertor();
    const auto id = bit.hwTable->descriptor().identity.id;
    for (const auto& field : convertor.rowLayout(id, bit.index).fields()) {
      if (at >= field.first && at < U32{field.first} + field.width) {
        return found.starts_with(field.name);
      }
    }
    return found == "bit " + std::to_string(at);
  }

  /// Whether the bit is one of those that a parity bit of the row makes even: it stands in that
  /// bit's word or between it and the parity bit before. Of a word that names the row, the parity
  /// bit alone counts.
  static bool parityCovers(const HwTableAdapter& finder, const Bit& bit) {
    const auto id = bit.hwTable->descriptor().identity.id;
    for (const auto& field : finder.convertor().rowLayout(id, bit.index).fields()) {
      if (field.width == 0 || field.name != std::string_view("parity")) continue;
      if (bit.word > field.first / 32u) continue;
      const auto word = static_cast<U8>(bit.word);
      return bit.hwTable->staticBits(word) == 0 || bit.word * 32u + bit.bit == field.first;
    }
    return false;
  }

  void auditAll(Rig& rig) {
    rig.agent->desireEnd();
    for (const auto& table : rig.agent->tables()) table->audit();
  }

  /// Flips the bits, at most one a row; what the audit says of each, and what the repair writes.
  void check(Rig& rig, const std::vector<Bit>& damage,
             const std::map<VelaTest::Row, std::vector<U32>>& sound) {
    std::map<std::pair<const HwTableConfig*, HwIndex>, const Bit*> damaged;
    std::vector<Json> keys;
    for (const Bit& bit : damage) {
      keys.push_back(bit.owner->keyAt(bit.index));
      damaged[{bit.hwTable, bit.index}] = &bit;
    }
    for (const Bit& bit : damage) flip(rig, bit);
    auditAll(rig);
    std::size_t found = 0;
    for (const auto& table : rig.agent->tables()) {
      for (const RowFinding& finding : table->findings()) {
        ASSERT_TRUE(finding.index) << table->name() << " lost track of " << finding.key;
        const auto at = damaged.find({finding.hwTable, *finding.index});
        ASSERT_NE(at, damaged.end()) << table->name() << " row " << *finding.index << " is sound";
        const Bit& bit = *at->second;
        ++found;
        EXPECT_EQ(finding.key, keys[static_cast<std::size_t>(&bit - damage.data())]);
        EXPECT_EQ(finding.kind == RowFinding::Kind::unexpected, finding.key.is_null());
        if (parityCovers(*table, bit)) {
          EXPECT_TRUE(finding.corrupt)
              << table->name() << " bit " << bit.word * 32 + bit.bit << " of row " << bit.index;
        }
        ASSERT_EQ(finding.fields.size(), 1u) << table->name();
        EXPECT_TRUE(within(finding.fields[0].field, *table, bit))
            << table->name() << " bit " << bit.word * 32 + bit.bit << ": "
            << finding.fields[0].field;
      }
    }
    ASSERT_EQ(found, damage.size());
    const U64 writes = rig.agent->recorder().rowWrites();
    for (const auto& table : rig.agent->tables()) table->repair();
    EXPECT_EQ(rig.agent->recorder().rowWrites() - writes, damage.size());
    EXPECT_TRUE(VelaTest::rowsOf(*rig.agent) == sound);
  }
};

/// Each pass flips another bit of every row.
TEST_P(Audit, everyFlippedBitIsFoundNamedAndRepaired) {
  U64 flips = 0;
  for (const Group& group : VelaTest::groups(*profile)) {
    SCOPED_TRACE(group.name());
    Rig rig = filled(group);
    auditAll(rig);
    for (const auto& table : rig.agent->tables()) {
      ASSERT_TRUE(table->findings().empty()) << table->name() << " before any damage";
    }
    const auto sound = VelaTest::rowsOf(*rig.agent);
    std::vector<std::vector<Bit>> passes;
    const HwTableConfig* hwTable = nullptr;
    HwIndex index = 0;
    std::size_t pass = 0;
    for (const Bit& bit : bits(*rig.agent)) {
      if (bit.hwTable != hwTable || bit.index != index) pass = 0;
      hwTable = bit.hwTable;
      index = bit.index;
      if (pass == passes.size()) passes.emplace_back();
      passes[pass++].push_back(bit);
    }
    // All of them take a while.
    constexpr std::size_t quick = VelaTest::sanitized ? 1 : 3;
    if (!std::getenv("VELA_ALL_BITS") && passes.size() > quick) {
      for (std::size_t i = 0; i < quick; ++i) {
        std::swap(passes[i], passes[i + random.below(static_cast<U32>(passes.size() - i))]);
      }
      passes.resize(quick);
    }
    for (const auto& damage : passes) {
      flips += damage.size();
      check(rig, damage, sound);
      if (HasFailure()) return;
    }
  }
  std::printf("%llu bits flipped\n", static_cast<unsigned long long>(flips));
}

INSTANTIATE_TEST_SUITE_P(Profiles, Audit, testing::ValuesIn(VelaTest::profileNames()),
                         VelaTest::profileTestName);

}  // namespace
