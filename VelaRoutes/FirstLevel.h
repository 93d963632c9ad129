#pragma once

#include "VelaRoutes/RouteLevel.h"
#include "VelaSwitchTable/VelaTableLpm11.h"

namespace VelaRoutes {

/// The first level, which holds routes of up to 11 bits: a route has as many keys there as it
/// covers and no longer route claims.
class FirstLevel final : public RouteLevel {
 public:
  static constexpr U8 keyLength = VelaSwitchTable::Lpm11Family::keyLength;

  FirstLevel(LpmTable& routes, RoutesListener disowned,
             Orb::Ptr<VelaSwitchTable::Lpm11Table> table);
  ~FirstLevel() override;

  VelaSwitchTable::Lpm11Table& table() const override { return *table_; }
  void handleRoute(LpmRoutes& shared, U32 node, RouteChange change) override;
  void tryAgain(LpmRoutes& shared, U32 node) override;
  void stateRoute(const LpmRoutes& shared, U32 node, LpmStatus& status) const override;
  Routes routesAt(const RouteKey& key) const override;
  bool marked(const RouteKey& route) const override { return status(route) != Status::programmed; }
  /// Before hardware interface 5.1 rows do not tell a route's length: each becomes a route of 11
  /// bits.
  void forEachGuess(const Guess& visit) const override;
  /// Programmed entries that stand for announced routes.
  U64 programmedCells() const;

  /// Looks again at routes that failed.
  void retry() {
    if (!troubled_.empty()) retryTroubled();
  }
  /// Whether the route of a row that does not tell its length is but a part of the one around it,
  /// which leads to the same next hop.
  bool partOfRouteAround(const RouteKey& route) const;
  /// Writes what is to be in the cells of the route, be it there or not.
  void writeCellsOf(const RouteKey& route, RouteChange change);

 private:
  using Tree = VelaSwitch::RouteTree<keyLength>;

  /// The routes of a VRF.
  struct Group {
    Tree tree;
    std::bitset<Tree::cells> claimed;  ///< Written in this run.
  };

  Routes disownedBy(const RouteKey& key) const override;
  VelaSwitchTable::Lpm11Result rowOf(const Tree& tree, U32 owner) const;
  const VelaSwitchTable::EntryCellResult* said(const RouteKey& key) const;
  bool agreed(const Tree& guesses, U8 vrf, U32 guess) const;
  Status status(const RouteKey& route) const;
  bool troubled(const RouteKey& route) const;
  void refresh(const RouteKey& route);
  void retryTroubled();

  Orb::Ptr<VelaSwitchTable::Lpm11Table> table_;
  std::vector<Group> groups_;  ///< By VRF.
  Routes troubled_;            ///< Routes whose rows could not be written.
  Claims claims_{*this};
};

}  // namespace VelaRoutes
