#pragma once

#include <random>

#include "agent/Agent.h"
#include "agent/TableAdapter.h"

/// Whether what is desired has room in a switch, and what stands against it. The engine says so
/// while nothing is written: see Agent::desireBegin().
namespace VelaAgent {

/// How full a table is.
struct TableFit {
  U64 entries;   ///< That were announced, and of a route level those that routes ask for.
  U64 refused;   ///< Those of them that have no place.
  U64 taken;     ///< Rows that hold entries, of this table and of those that share its rows.
  U64 capacity;  ///< Rows; 0 for whole routes, which lie in their levels' rows.
  /// Of hash tables with entries: the share of the rows that random keys take before one of them is
  /// refused.
  std::optional<double> randomLoad;

  double load() const {
    return capacity == 0 ? 0 : static_cast<double>(taken) / static_cast<double>(capacity);
  }
  /// How many entries there is room for, of random keys until one is likely to be refused.
  U64 headRoom() const;
};

/// What random keys do to a table.
struct RandomFill {
  U32 entries;  ///< That found room before one did not.
  U64 moves;    ///< Of entries, to make that room.
};
RandomFill fillRandomly(U32 rowsPerWay, U8 ways, std::mt19937& random);

/// Measures tables. What random keys do is tried once for all tables of a geometry.
class FitMeter {
 public:
  TableFit measure(const TableAdapter& table);

 private:
  double randomLoad(U32 rowsPerWay, U8 ways);

  std::map<std::pair<U32, U8>, double> loads_;
};

/// An entry that has no place.
struct Misfit {
  AnyValue key;
  EntryProgrammedStatus status;
};
/// Those of the table that were announced to it, the first `most` of them.
std::vector<Misfit> misfits(const Agent& agent, const TableAdapter& table, std::size_t most);

}  // namespace VelaAgent
