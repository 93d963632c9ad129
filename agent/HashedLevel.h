#pragma once

#include "VelaSwitchTable/VelaTableLpmBase.h"
#include "agent/RouteLevel.h"
#include "agent/RouteTree.h"

namespace VelaAgent {

/// A hashed level: the routes of a key share its cells. A key that the level has no room for waits
/// there; its routes have the status tableFull until it comes in.
class HashedLevel final : public RouteLevel, private Orb::KeyObserver<RouteKey> {
 public:
  HashedLevel(VelaSwitchTable::LpmTable& routes, RoutesListener disowned,
              Orb::Ptr<VelaSwitchTable::LpmBaseTable> table);
  ~HashedLevel() override;

  /// The key that the route has in its level.
  static RouteKey keyOf(const RouteKey& route);

  VelaSwitchTable::LpmBaseTable& table() const override { return *table_; }
  void routeIs(const RouteKey& route, const VelaSwitchTable::LpmResult* result,
               RouteChange change) override;
  void tryAgain(const RouteKey& route, const VelaSwitchTable::LpmResult& result) override;
  Routes routesAt(const RouteKey& key) const override;
  bool marked(const RouteKey& route) const override {
    return table_->hwInconsistentEntry(keyOf(route));
  }
  void forEachGuess(const Guess& visit) const override;
  U64 programmedCells() const override;

 private:
  static constexpr U8 cellBits = 2;
  using Tree = RouteTree<cellBits>;

  /// The routes of one key.
  struct Group {
    Tree tree;
    bool claimed = false;  ///< Written in this run.
  };

  Routes disownedBy(const RouteKey& key) const override;
  /// The status of a key changed.
  void handleKey(const RouteKey& key) override;
  static RouteKey routeOf(const RouteKey& key, U32 node);
  static VelaSwitchTable::LpmResult resultOf(const RouteKey& key, const Tree& tree);
  bool inHardware(const RouteKey& key) const;
  void program(const RouteKey& key, const Group& group);
  void giveStatus(const RouteKey& key, const Group& group);

  Orb::Ptr<VelaSwitchTable::LpmBaseTable> table_;
  Orb::Map<RouteKey, Group> groups_;
  bool statusSeen_ = false;
  Claims claims_{*this};
};

}  // namespace VelaAgent
