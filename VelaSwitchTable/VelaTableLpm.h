#pragma once

#include <array>

#include "Orb/Collection.h"
#include "Orb/Ptr.h"
#include "Orb/Seconds.h"
#include "Trace/Trace.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitch/NexthopIndexes.h"
#include "VelaSwitch/Profile.h"
#include "VelaSwitchApi/SwTable.h"

/// Routes, and what they become in the levels of the ladder that hold them in hardware.
///
/// A level holds prefixes of one key length. A route that is shorter than its level's longest is
/// spread over several cells, each of which remembers the route's real length:
///
///   level    Lpm11   Lpm14    Lpm17    Lpm20    Lpm23    Lpm26    Lpm29    Lpm32
///   key      11      12       15       18       21       24       27       30     address bits
///   cells    1       4        4        4        4        4        4        4      of a key
///   routes   0–11    12–14    15–17    18–20    21–23    24–26    27–29    30–32  real length
namespace VelaSwitchTable {

/// Length of a prefix; 33 stands for none.
class MaskLength : public Orb::Ranged<MaskLength, U8, 0, 33, 33> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText =
      "VelaSwitchTable::MaskLength::value < VelaSwitchTable::MaskLength::min or > "
      "VelaSwitchTable::MaskLength::null not allowed";
  static constexpr U8 min = 0;
  static constexpr U8 null = 33;
};

/// What one cell of a level says: the next hop, and the route that it comes from.
struct EntryCellResult {
  static constexpr const char* typeName = "VelaSwitchTable::EntryCellResult";
  /// A cell that says nothing can be left out.
  static constexpr bool nullable = true;

  Orb::Field<"nexthopIndexes", VelaSwitch::NexthopIndexes> nexthopIndexes;
  Orb::Field<"maskLength", MaskLength, 4> maskLength;  ///< First level alone.
  Orb::Field<"realPrefixLen", U8> realPrefixLen;
  auto operator<=>(const EntryCellResult&) const = default;

  /// Whether the cell answers a lookup.
  bool valid() const { return nexthopIndexes().valid(); }

  /// The cell in hardware's form. Hashed levels: 14 bits, the upper two saying by how much the
  /// route is shorter than `width`, the level's longest, or 3 for a cell without a next hop. The
  /// first level (`direct`): 15 bits, of which the upper three are 0.
  VELA_EXPORT U32 hwEncoding(bool direct, U8 width, VelaSwitch::ProfileHwApi hwApi) const;
  /// The inverse. What the encoding does not tell keeps its default.
  VELA_EXPORT static EntryCellResult fromHwEncoding(U32 encoding, bool direct, U8 width,
                                                    VelaSwitch::ProfileHwApi hwApi);
};

/// A cell of a key: the value of the two address bits behind the key, the first of them the more
/// significant.
class EntryCellIndex : public Orb::Ranged<EntryCellIndex, U8, 0, 3> {
 public:
  using Ranged::Ranged;
  static constexpr const char* rangeText = "VelaSwitchTable::EntryCellIndex::value > 3 not allowed";
  static constexpr U8 count = 4;
};

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
