#pragma once

#include <array>

#include "Orb/Collection.h"
#include "Orb/Ptr.h"
#include "Orb/Seconds.h"
#include "Trace/Trace.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitchApi/SwTable.h"
#include "VelaSwitchTable/family/RouteCell.h"

/// Whole routes; what they become in the levels of the ladder stands in family/RouteCell.h.
namespace VelaSwitchTable {

/// The cells of one key of a hashed level. In the collection of whole routes, cell 0 carries the
/// route's next hop.
struct LpmResult {
  static constexpr const char* typeName = "VelaSwitchTable::LpmResult";
  using Cells = std::array<EntryCellResult, EntryCellIndex::count>;
  Orb::Field<"cells", Cells> cells;
  Orb::Field<"cpuTrap", bool> cpuTrap;
  auto operator<=>(const LpmResult&) const = default;

  const EntryCellResult& cellResult(EntryCellIndex index) const { return cells()[index.value()]; }
  void cellResultIs(EntryCellIndex index, const EntryCellResult& cell) {
    cells.value[index.value()] = cell;
  }
};

/// What became of one route.
struct LpmStatus {
  static constexpr const char* typeName = "VelaSwitchTable::LpmStatus";
  LpmStatus() = default;
  explicit LpmStatus(const VelaSwitch::LpmKey& route) : key(route) {}

  VelaSwitch::LpmKey key;
  VelaSwitchApi::EntryProgrammedStatus status = VelaSwitchApi::EntryProgrammedStatus::notProgrammed;
  /// When a key that carries the route was hit last; zero for never. Routes of up to 11 bits have
  /// no hit bits.
  Orb::Seconds lastHit;
  bool operator==(const LpmStatus&) const = default;
};

/// The whole routes and what became of each. Whoever writes the levels observes `entries()` and
/// keeps the statuses.
class VELA_EXPORT LpmTable final : public Orb::PtrInterface {
 public:
  using Key = VelaSwitch::LpmKey;
  struct KeyOf {
    const Key& operator()(const LpmStatus& status) const { return status.key; }
  };
  using Statuses = Orb::Collection<Key, LpmStatus, KeyOf>;

  explicit LpmTable(std::string name) : name_(std::move(name)) {}

  static constexpr const char* typeName = "VelaSwitchTable::LpmTable";
  static constexpr const char* sourceUnit = "VelaTableLpm";
  static inline Trace::Handle trace{sourceUnit};
  const Orb::Type& fwkType() const override;

  const std::string& name() const { return name_; }

  /// Announces a route; an equal one changes nothing. Returns whether it changed.
  bool entryIs(const Key& key, const LpmResult& result) { return entry_.is(key, result); }
  bool entryDel(const Key& key) { return entry_.del(key); }
  void entryDelAll() { entry_.delAll(); }
  /// The route's result, or null. Valid until the next change.
  const LpmResult* entry(const Key& key) const { return entry_.find(key); }
  const Orb::Collection<Key, LpmResult>& entries() const { return entry_; }
  Orb::Collection<Key, LpmResult>& entries() { return entry_; }

  /// The route's status, created when there is none. Valid until the next change.
  const LpmStatus& entryStatusIs(const Key& key);
  /// Replaces the status of the route that it names.
  void entryStatusIs(const LpmStatus& status) { entryStatus_.is(status.key, status); }
  void entryStatusDel(const Key& key) { entryStatus_.del(key); }
  void entryStatusDelAll() { entryStatus_.delAll(); }
  const LpmStatus* entryStatus(const Key& key) const { return entryStatus_.find(key); }
  const Statuses& entryStatuses() const { return entryStatus_; }
  Statuses& entryStatuses() { return entryStatus_; }

 private:
  std::string name_;
  Orb::Collection<Key, LpmResult> entry_;
  Statuses entryStatus_;
};

VELA_EXPORT Orb::Ptr<LpmTable> LpmTableIs(const std::string& name);
/// The same by its other name.
VELA_EXPORT Orb::Ptr<LpmTable> lpmTableFactory(const std::string& name);

}  // namespace VelaSwitchTable
