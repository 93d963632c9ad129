#include "agent/Fit.h"

#include <algorithm>

namespace VelaAgent {
namespace {

using namespace Keel::Cuckoo;

class RandomItem final : public HashItem {
 public:
  RandomItem(std::mt19937& random, U32 rowsPerWay) {
    for (U32& row : rows_) row = static_cast<U32>(random()) % rowsPerWay;
  }
  bool isEqual(const HashItem& other) const override { return &other == this; }
  U32 getHash(U8 way) const override { return rows_[way]; }
  std::string toStrep() const override { return "RandomItem"; }

 private:
  U32 rows_[maxWays];
};

struct NoRows final : RowWriter {
  bool hashItemWrite(HashItem&, CuckooLocation) override { return true; }
};

}  // namespace

RandomFill fillRandomly(U32 rowsPerWay, U8 ways, std::mt19937& random) {
  Table table(rowsPerWay, ways);
  NoRows rows;
  while (table.insert(*Orb::make<RandomItem>(random, rowsPerWay), rows).outcome ==
         Outcome::placed) {
  }
  return {table.size(), table.moves()};
}

U64 TableFit::headRoom() const {
  const auto most = static_cast<U64>(randomLoad.value_or(1) * static_cast<double>(capacity));
  return most > taken ? most - taken : 0;
}

/// The smaller a table, the more it matters which keys come: more fills make up for that.
double FitMeter::randomLoad(U32 rowsPerWay, U8 ways) {
  const auto [at, isNew] = loads_.try_emplace({rowsPerWay, ways});
  if (!isNew) return at->second;
  constexpr U64 enough = 60000;
  std::mt19937 random(7);
  U64 placed = 0;
  U32 fills = 0;
  for (; fills < 4 || (placed < enough && fills < 1000); ++fills) {
    placed += fillRandomly(rowsPerWay, ways, random).entries;
  }
  return at->second =
             static_cast<double>(placed) / static_cast<double>(U64{rowsPerWay} * ways * fills);
}

TableFit FitMeter::measure(const TableAdapter& table) {
  const U64 placed = table.programmed();
  TableFit fit{table.entries(), table.entries() - placed, placed, 0, std::nullopt};
  const HwTableAdapter* hardware = table.hardware();
  if (!hardware) return fit;
  fit.capacity = hardware->typed().capacity();
  if (const auto* engine = hardware->typed().engine()) {
    fit.taken = engine->size();
    fit.capacity = engine->capacity();
    if (fit.entries != 0) fit.randomLoad = randomLoad(engine->rowsPerWay(), engine->ways());
  }
  return fit;
}

std::vector<Misfit> misfits(const Agent& agent, const TableAdapter& table, std::size_t most) {
  std::vector<Misfit> all;
  if (table.refused() == 0) return all;
  table.typed().forEachStatus([&](AnyRef key, EntryProgrammedStatus status, Orb::Seconds) {
    if (all.size() == most || status == EntryProgrammedStatus::programmed) return;
    // What routes ask of a level is told by the routes.
    if (!agent.standsForRoutes(table, key)) all.push_back({AnyValue::of(key), status});
  });
  return all;
}

}  // namespace VelaAgent
