#include "agent/Picture.h"

#include <set>

#include "Generator.h"
#include "agent/Explain.h"

// The data of the page: what it tells of rows is what tables and registers say, in every family.

namespace {

using VelaAgent::Json;
using VelaAgent::Picture;

/// The numbers of a column.
std::vector<U64> numbersOf(const Json& column) {
  static const std::string digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  const std::string& text = column[3].get_ref<const std::string&>();
  for (std::size_t i = 0; i < text.size(); i += 4) {
    U32 group = 0;
    for (std::size_t j = 0; j < 4; ++j) group = group << 6 | (digits.find(text[i + j]) & 63);
    for (const int shift : {16, 8, 0}) bytes += static_cast<char>(group >> shift & 255);
  }
  const std::size_t width = column[2];
  std::vector<U64> numbers(column[0].get<std::size_t>(), column[1].get<U64>());
  for (std::size_t i = 0; i < numbers.size() * width; ++i) {
    numbers[i / width] += U64{static_cast<U8>(bytes[i])} << 8 * (i % width);
  }
  return numbers;
}

TEST(NumberColumn, comesBack) {
  VelaTest::Random random;
  for (U32 bits = 0; bits <= 64; ++bits) {
    VelaAgent::NumberColumn column;
    std::vector<U64> numbers;
    for (U32 i = random.below(5); i > 0; --i) {
      numbers.push_back(bits == 0 ? 7 : (U64{random()} << 32 | random()) >> (64 - bits));
      column.add(numbers.back());
    }
    EXPECT_EQ(numbersOf(column.json()), numbers);
  }
}

struct PictureTest : VelaTest::ProfileTest {
  PictureTest() {
    agent.make();
    agent.start(VelaAgent::Agent::Start::fresh);
    for (const auto& table : agent.tables()) {
      if (table->convertor().hwTables().empty()) continue;
      // Its few rows refuse some.
      const int keys = table->name() == "HashTest" ? 200 : 40;
      for (int i = 0; i < keys; ++i) {
        const Json key = generator.key(table->name(), random() % 1000);
        table->set(key, generator.result(table->name(), key));
      }
    }
  }
  void checkRows(const Json& rows);
  void checkProof(const Json& refusal);
  void checkRefusal(const Json& refusal);

  VelaDevice::SimulatedSwitch chip;
  VelaAgent::Agent agent{profile, chip};
  std::size_t owned = 0;
  std::string hitTable;  ///< With the only row that was hit.
  VelaSwitchApi::HwIndex hitRow = 0;
};

void PictureTest::checkRows(const Json& rows) {
  std::vector<const VelaAgent::HwTableAdapter*> tables;
  for (const Json& table : rows["tables"]) {
    tables.push_back(agent.announced()[table.get<std::size_t>()]->hardware());
  }
  const VelaSwitchApi::HwTableConfig* hwTable = nullptr;
  for (const auto& [id, each] : tables.front()->convertor().hwTables()) {
    if (each->descriptor().identity.name == rows["hwTable"]) hwTable = each.get();
  }
  const std::vector<U64> gaps = numbersOf(rows["held"]["gaps"]);
  const std::vector<U64> owners = numbersOf(rows["held"]["owners"]);
  const std::vector<U64> hits = numbersOf(rows["held"]["hits"]);
  std::vector<std::vector<U64>> others;
  for (const Json& way : rows["held"].value("others", Json::array())) {
    others.push_back(numbersOf(way));
  }
  std::size_t entries = 0;
  std::map<std::size_t, std::vector<U64>> words;
  for (const Json& word : rows["held"].value("words", Json::array())) {
    words[word[0].get<std::size_t>()] = numbersOf(word[1]);
  }
  std::map<VelaSwitchApi::HwIndex, std::size_t> told;
  VelaSwitchApi::HwIndex index = rows["first"];
  for (std::size_t i = 0; i < gaps.size(); ++i) told[index += static_cast<U32>(gaps[i])] = i;
  for (index = rows["first"]; index <= rows["last"]; ++index) {
    const auto at = told.find(index);
    for (std::size_t i = 0; i < tables.size(); ++i) {
      const bool owns = at != told.end() && owners[at->second] == i + 1;
      const VelaAgent::AnyValue key = tables[i]->typed().keyAt(index);
      ASSERT_EQ(owns, bool(key)) << rows["hwTable"] << ' ' << index;
      if (!owns || others.empty()) continue;
      const U32 perWay = rows["rowsPerWay"];
      std::vector<VelaSwitchApi::HwIndex> mayTake;
      mayTake.reserve(others.size() + 1);
      for (const auto& way : others) mayTake.push_back(static_cast<U32>(way[entries]));
      mayTake.insert(mayTake.begin() + index / perWay, index % perWay);
      for (U32 way = 0; way < mayTake.size(); ++way) mayTake[way] += way * perWay;
      ASSERT_EQ(mayTake, tables[i]->typed().candidates(key)) << rows["hwTable"] << ' ' << index;
      ++entries;
    }
    if (at == told.end()) continue;
    ++owned;
    ASSERT_EQ(hits[at->second], rows["hwTable"] == hitTable && index == hitRow);
    const auto image = *VelaAgent::heldImage(chip, *hwTable, index);
    for (const auto& [word, values] : words) ASSERT_EQ(values[at->second], image[word]);
  }
}

/// Its keys are those of the tables, and have one row less between them than they are.
void PictureTest::checkProof(const Json& refusal) {
  std::set<VelaSwitchApi::HwIndex> lieIn;
  std::set<VelaSwitchApi::HwIndex> mayTake;
  const auto add = [&](const Json& entry) {
    const auto& table = *agent.announced()[entry["table"].get<std::size_t>()]->hardware();
    if (entry.contains("index")) {
      EXPECT_EQ(table.keyAt(entry["index"]), entry["key"]);
      lieIn.insert(entry["index"].get<U32>());
    }
    const auto rows = table.typed().candidates(table.keyFromJson(entry["key"]));
    EXPECT_EQ(entry["mayTake"], Json(rows)) << entry;
    mayTake.insert(rows.begin(), rows.end());
  };
  for (const Json& entry : refusal["competing"]["entriesThere"]) add(entry);
  add(refusal);
  EXPECT_EQ(mayTake, lieIn);
  EXPECT_EQ(lieIn.size(), refusal["competing"]["rows"]);
  EXPECT_EQ(lieIn.size() + 1, refusal["competing"]["entries"]);
}

/// Of those that leave it no row, one whose withdrawal is said to let it in does, and no other.
void PictureTest::checkRefusal(const Json& refusal) {
  const auto hardwareOf = [&](const Json& entry) {
    return agent.announced()[entry["table"].get<std::size_t>()]->hardware();
  };
  const Json& there = refusal["competing"]["entriesThere"];
  const Json& gone = there[random.below(static_cast<U32>(there.size()))];
  const Json& letsIn = refusal["letsIn"];
  const bool named = std::find(letsIn.begin(), letsIn.end(), gone["index"]) != letsIn.end();
  hardwareOf(gone)->typed().withdraw(hardwareOf(gone)->keyFromJson(gone["key"]));
  const auto status =
      hardwareOf(refusal)->typed().status(hardwareOf(refusal)->keyFromJson(refusal["key"]));
  EXPECT_EQ(status == VelaAgent::EntryProgrammedStatus::programmed, named) << refusal;
}

TEST_P(PictureTest, rowsAreAsTheyAre) {
  const auto& hashTest = *agent.table("HashTest", 0).hardware();
  const auto& identity = hashTest.convertor().hwTables().begin()->second->descriptor().identity;
  hitTable = identity.name;
  while (!hashTest.typed().keyAt(hitRow)) ++hitRow;
  chip.find(identity.family, identity.instance, identity.id)->hit(hitRow) = 1;
  VelaAgent::FitMeter meter;
  Picture picture(agent, meter, true, Picture::Audit::now);
  picture.finish();
  for (const Json& rows : picture.json()["rows"]) checkRows(rows);
  EXPECT_GT(owned, 500u);
  const Json& totals = picture.json()["totals"];
  EXPECT_EQ(totals["programmed"], agent.programmed());
  EXPECT_EQ(totals["findings"], 0);
  EXPECT_FALSE(picture.json()["refusals"].empty());
  for (const Json& group : picture.json()["refusals"]) {
    for (const Json& refusal : group["first"]) checkProof(refusal);
    checkRefusal(group["first"][0]);
  }
}

INSTANTIATE_TEST_SUITE_P(Profiles, PictureTest, testing::ValuesIn(VelaTest::profileNames()),
                         VelaTest::profileTestName);

}  // namespace
