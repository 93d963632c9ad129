#pragma once

#include <array>
#include <optional>
#include <vector>

#include "Orb/KeyObserver.h"
#include "Orb/Ptr.h"
#include "Orb/Seconds.h"
#include "Orb/Slab.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitch/RouteTree.h"
#include "VelaSwitchApi/EntryRecord.h"
#include "VelaSwitchApi/PhysicalHashTable.h"
#include "VelaSwitchTable/family/RouteCell.h"

/// What whole routes are and become; what that is in the levels of the ladder stands in
/// RouteCell.h.
namespace VelaSwitchTable {

/// The cells of one key of a hashed level. In the collection of whole routes, cell 0 carries the
/// route's next hop.
struct LpmResult {
  static constexpr const char* typeName = "VelaSwitchTable::LpmResult";
  using Cells = std::array<EntryCellResult, EntryCellIndex::count>;  ///< By EntryCellIndex.
  Orb::Field<"cells", Cells> cells;     ///< Of each the longest route of the level that covers it.
  Orb::Field<"cpuTrap", bool> cpuTrap;  ///< Packets go to the CPU.
  auto operator<=>(const LpmResult&) const = default;

  /// The cell of two address bits.
  const EntryCellResult& cellResult(EntryCellIndex index) const { return cells()[index.value()]; }
  /// Changes one cell.
  void cellResultIs(EntryCellIndex index, const EntryCellResult& cell) {
    cells.value[index.value()] = cell;
  }
};

/// A cell of a route.
inline EntryCellResult cellOf(VelaSwitch::NexthopIndexes nexthop, U8 realPrefixLen) {
  EntryCellResult cell;
  cell.nexthopIndexes = nexthop;
  cell.realPrefixLen = realPrefixLen;
  return cell;
}

/// What a whole route is announced as, and the other way round.
inline LpmResult routeResult(VelaSwitch::NexthopIndexes nexthop, U8 prefixLen) {
  LpmResult result;
  result.cells.value[0] = cellOf(nexthop, prefixLen);
  return result;
}
/// The next hop of such a result.
inline VelaSwitch::NexthopIndexes routeNexthop(const LpmResult& result) {
  return result.cells()[0].nexthopIndexes();
}

/// What became of one route.
struct LpmStatus {
  static constexpr const char* typeName = "VelaSwitchTable::LpmStatus";
  LpmStatus() = default;
  /// notProgrammed, and never hit.
  explicit LpmStatus(const VelaSwitch::LpmKey& route) : key(route) {}

  VelaSwitch::LpmKey key;  ///< The route.
  /// Of all its cells together.
  VelaSwitchApi::EntryProgrammedStatus status = VelaSwitchApi::EntryProgrammedStatus::notProgrammed;
  /// When a key that carries the route was hit last; zero for never. Routes of up to 11 bits have
  /// no hit bits.
  Orb::Seconds lastHit;
  bool operator==(const LpmStatus&) const = default;
};

/// The routes of three lengths that share the address bits of the shortest: in a hashed level they
/// are one entry. All that is known of them, each being a node of the tree.
struct LpmRoutes {
  using Key = VelaSwitch::LpmKey;
  static constexpr U8 range = 2;  ///< So many bits are behind the key.
  using Tree = VelaSwitch::RouteTree<range>;
  static_assert(Tree::cells == EntryCellIndex::count);
  /// What is so of a route.
  enum Flag : U8 {
    desired,    ///< It is announced.
    unclaimed,  ///< It was guessed from what hardware held, and nobody announced it since.
    noted,      ///< For whoever owns the routes, as long as it is announced.
    stated,     ///< It has a status.
    odd,        ///< Its result is not just a next hop: that lies apart.
    held,       ///< Its status is programmed,
    waits,      ///< or tableFull.
  };
  static constexpr U8 flags = waits + 1;

  /// Of no route yet; `hash` is the key's.
  LpmRoutes(const Key& shared, U32 hash) : key(shared), tag(hash) {}
  static void* operator new(std::size_t size, Orb::Slab& slab) {
    return Orb::Slab::take(&slab, size);
  }
  static void operator delete(void* routes) { Orb::Slab::give(routes); }
  static void operator delete(void* routes, Orb::Slab&) { Orb::Slab::give(routes); }

  /// The key that a route shares, and its node.
  [[gnu::always_inline]] static Key keyOf(const Key& route) {
    const U8 length = route.prefix().len();
    const U8 base = static_cast<U8>(length - length % (range + 1));
    return VelaSwitch::inWords({route.vrf(), Ipnet::IpPrefix(route.prefix().address(), base)});
  }
  U32 nodeOf(const Key& route) const { return Tree::nodeOf(route.prefix(), key.prefix().len()); }
  static Key routeOf(const Key& key, U32 node) {
    return {key.vrf(), Tree::prefixOf(key.prefix(), node)};
  }
  Key routeOf(U32 node) const { return routeOf(key, node); }
  /// What the level knows of their entry is needed soon.
  void entrySoon() const {
    const VelaSwitchApi::KeyRecord* record = item.get();
    __builtin_prefetch(record);
  }
  bool has(Flag flag, U32 node) const { return (nodes[flag] >> node & 1) != 0; }
  template <class Visitor>
  static void forEachNode(U8 nodes, const Visitor& visit) {
    for (U32 left = nodes; left != 0; left &= left - 1) visit(std::countr_zero(left));
  }

  Key key;
  std::array<U8, flags> nodes{};                      ///< By flag, a bit for each node.
  bool written = false;                               ///< Their entry was written in this run.
  U32 tag;                                            ///< The key's hash, as tables have it.
  Orb::Ptr<VelaSwitchApi::HashBaseCuckooEntry> item;  ///< Their entry's record, when known().
  Tree tree;  ///< The routes that levels are to hold: those without a trap.
};

static_assert(sizeof(LpmRoutes) + Orb::Slab::inFront == Orb::Slab::line);

/// Whoever writes the routes into levels.
class VELA_EXPORT LpmLevels {
 public:
  /// Asserts what must hold of a route, before anything of it is stored.
  virtual void checkRoute(const LpmRoutes::Key& route) const = 0;
  /// The route of the node came, goes or has another next hop.
  virtual void handleRoute(LpmRoutes& routes, U32 node) = 0;
  /// Fills in what became of a route of the tree.
  virtual void stateRoute(const LpmRoutes& routes, U32 node, LpmStatus& status) const = 0;
  /// Whether the routes of the key are still to be written: what became of them follows.
  virtual bool staged(const LpmRoutes&) const { return false; }
  /// The first route of a key is announced next; `tag` is the key's hash.
  virtual void keySoon(const LpmRoutes::Key&, U32 /*tag*/) const {}

 protected:
  ~LpmLevels() = default;
};

/// The routes' results, or their statuses, in the accessor style of collections.
template <class Table, class Value>
class RoutesView {
 public:
  explicit RoutesView(Table& table) : table_(table) {}  ///< The table must outlive the view.

  U32 size() const { return table_.count(flag); }  ///< How many there are.
  /// Nothing for a route that has none.
  std::optional<Value> find(const LpmRoutes::Key& route) const {
    const auto at = table_.find(flag, route);
    if (!at.routes) return std::nullopt;
    if constexpr (ofStatuses) {
      return table_.statusOf(*at.routes, at.node);
    } else {
      return table_.resultOf(*at.routes, at.node);
    }
  }
  /// All keys, in ascending order.
  std::vector<LpmRoutes::Key> keys() const { return table_.keys(flag); }
  /// For those who want to hear of changed keys. They must be removed before they go.
  void observerIs(Orb::KeyObserver<LpmRoutes::Key>* observer) { observers().observerIs(observer); }
  /// One that is not there changes nothing.
  void observerDel(Orb::KeyObserver<LpmRoutes::Key>* observer) {
    observers().observerDel(observer);
  }

 private:
  static constexpr bool ofStatuses = std::same_as<Value, LpmStatus>;
  static constexpr LpmRoutes::Flag flag = ofStatuses ? LpmRoutes::stated : LpmRoutes::desired;
  auto& observers() { return ofStatuses ? table_.statusObservers_ : table_.observers_; }

  Table& table_;
};

}  // namespace VelaSwitchTable
