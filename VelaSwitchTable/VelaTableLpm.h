#pragma once

#include "Orb/Map.h"
#include "Orb/RecordIndex.h"
#include "Trace/Trace.h"
#include "VelaSwitchTable/family/LpmRoutes.h"

namespace VelaSwitchTable {

/// The whole routes, and what became of each where somebody writes them into levels.
class VELA_EXPORT LpmTable final : public Orb::PtrInterface {
 public:
  using Key = VelaSwitch::LpmKey;  ///< A prefix of any length in a VRF.
  using Flag = LpmRoutes::Flag;
  using Levels = LpmLevels;  ///< Whoever writes the routes into levels.

  explicit LpmTable(std::string name) : name_(std::move(name)) {}  ///< Without routes.
  ~LpmTable() override;

  static constexpr const char* typeName = "VelaSwitchTable::LpmTable";
  static constexpr const char* sourceUnit = "VelaTableLpm";
  static inline Trace::Handle trace{sourceUnit};
  const Orb::Type& fwkType() const override;
  const std::string& name() const { return name_; }  ///< For people.

  /// The routes' results, or their statuses.
  template <class Value>
  using View = RoutesView<const LpmTable, Value>;

  /// Announces a route; an equal one changes nothing. Returns whether it changed.
  bool entryIs(const Key& route, const LpmResult& result);
  bool entryDel(const Key& given);  ///< Withdraws it; false when there is none.
  void entryDelAll();               ///< Withdraws all, in ascending order.
  /// The route's result, if it is announced.
  std::optional<LpmResult> entry(const Key& route) const { return entries().find(route); }
  View<LpmResult> entries() const { return View<LpmResult>(*this); }  ///< Guessed ones included.

  LpmStatus entryStatusIs(const Key& route);  ///< The route's, made when there is none.
  void entryStatusDel(const Key& given);      ///< Forgets it.
  void entryStatusDelAll();                   ///< Forgets all.
  /// The route's status, if it has one.
  std::optional<LpmStatus> entryStatus(const Key& key) const { return entryStatuses().find(key); }
  /// Of all routes that have one; what they say is worked out when it is asked for.
  View<LpmStatus> entryStatuses() const { return View<LpmStatus>(*this); }

  /// Sets or clears a flag of an announced route that does not follow from anything else:
  /// `unclaimed` or `noted`. Returns whether that changed it.
  bool flagIs(const Key& route, Flag flag, bool set);
  /// Whether the route has the flag.
  bool has(Flag flag, const Key& route) const { return find(flag, route).routes != nullptr; }
  U32 count(Flag flag) const { return counts_[flag]; }  ///< How many routes have it.
  std::vector<Key> keys(Flag flag) const;               ///< Which, in ascending order.
  /// Calls `visit(routes, node)` for each that has it, in no order. They must not change meanwhile.
  template <class Visitor>
  void forEachRoute(Flag flag, const Visitor& visit) const {
    if (count(flag) == 0) return;
    forEachKey([&](const LpmRoutes& routes) {
      LpmRoutes::forEachNode(routes.nodes[flag], [&](U32 node) { visit(routes, node); });
    });
  }

  void levelsAre(Levels* levels) { levels_ = levels; }  ///< One at most; null when it goes.
  /// The routes of a key, or null.
  LpmRoutes* routesOf(const Key& key) const {
    return key == lastKey_ ? last_ : lookUp(key, VelaSwitchApi::entryTag(key));
  }
  void reserve(U32 keys) { index_.reserve(keys); }  ///< Room for the routes of so many keys.
  void soon(U32 tag) const { index_.soon(tag); }    ///< Those of the key with the tag are needed.
  /// Calls `visit(routes)` for each key, in no order. They must not change meanwhile.
  template <class Visitor>
  void forEachKey(const Visitor& visit) const {
    index_.forEach([&](const void* each) { visit(*static_cast<const LpmRoutes*>(each)); });
  }
  LpmStatus statusOf(const LpmRoutes& routes, U32 node) const;  ///< Of one that has a status.
  void handleStatus(const Key& route);     ///< Told by the levels: the route's status changed.
  void handleStatuses(LpmRoutes& routes);  ///< Likewise of all in the tree of a key.

 private:
  friend View<LpmResult>;
  friend View<LpmStatus>;

  struct Place {
    LpmRoutes* routes;  ///< Null when there are none.
    U32 node;
  };

  /// The route, if it has the flag.
  Place find(Flag flag, const Key& route) const;
  LpmRoutes* lookUp(const Key& key, U32 tag) const;
  LpmRoutes& routesIs(const Key& key);
  void set(LpmRoutes& routes, U32 node, Flag flag, bool set);
  bool holds(const LpmRoutes& routes, U32 node, const LpmResult& result, bool odd) const;
  void store(LpmRoutes& routes, U32 node, const LpmResult& result, bool odd);
  void statedIs(LpmRoutes& routes, U32 node, bool stated);
  void statusDel(LpmRoutes& routes, U32 node);
  void dropUnknown(LpmRoutes& routes);
  void state(const LpmRoutes& routes, U32 node, LpmStatus& status) const;
  LpmResult resultOf(const LpmRoutes& routes, U32 node) const;

  std::string name_;
  Orb::RecordIndex index_{
      [](const void* each) { return static_cast<const LpmRoutes*>(each)->tag; }};
  Orb::Slab slab_;
  mutable Key lastKey_;                ///< What was asked for last: it is again and again.
  mutable LpmRoutes* last_ = nullptr;  ///< Null where there is none.
  U32 dropped_ = 0;                    ///< Keys that nothing was known of any more, so far.
  std::array<U32, LpmRoutes::flags> counts_{};
  Orb::Map<Key, LpmResult> oddResults_;
  Levels* levels_ = nullptr;
  mutable Orb::KeyObservers<Key> observers_;
  mutable Orb::KeyObservers<Key> statusObservers_;
};

VELA_EXPORT Orb::Ptr<LpmTable> LpmTableIs(const std::string& name);       ///< Without routes.
VELA_EXPORT Orb::Ptr<LpmTable> lpmTableFactory(const std::string& name);  ///< Likewise.

}  // namespace VelaSwitchTable
