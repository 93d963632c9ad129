#pragma once

#include <functional>
#include <vector>

#include "Orb/KeyObserver.h"
#include "VelaSwitchTable/VelaTableLpm.h"

/// The levels of the ladder as whole routes see them.
namespace VelaRoutes {

using RouteKey = VelaSwitch::LpmKey;
using VelaSwitchTable::cellOf;
using VelaSwitchTable::LpmRoutes;
using VelaSwitchTable::LpmStatus;
using VelaSwitchTable::LpmTable;
using VelaSwitchTable::routeNexthop;
using VelaSwitchTable::routeResult;

/// Why a route comes or goes.
enum class RouteChange : U8 {
  desired,   ///< It was announced or withdrawn.
  guessed,   ///< The levels hold what they should already.
  released,  ///< It was guessed, and nobody announced it: what it has not written stays.
};

/// A level: it is told the routes that it serves, writes the cells that they own, and knows what
/// became of them.
class RouteLevel {
 public:
  using Status = VelaSwitchApi::EntryProgrammedStatus;
  using Guess = std::function<void(const RouteKey& route, VelaSwitch::NexthopIndexes nexthop)>;
  using Routes = std::vector<RouteKey>;
  using RoutesListener = std::function<void(const Routes&)>;

  /// `routes`, which it tells of statuses, must outlive it. `disowned` hears of routes whose key
  /// was announced on its own: what they were guessed from is not theirs.
  RouteLevel(LpmTable& routes, RoutesListener disowned)
      : routes_(routes), disowned_(std::move(disowned)) {}
  virtual ~RouteLevel() = default;
  RouteLevel(const RouteLevel&) = delete;
  RouteLevel& operator=(const RouteLevel&) = delete;

  virtual VelaSwitchApi::SwTable& table() const = 0;

  /// The route of the node has another next hop, or is not in the tree any more.
  virtual void handleRoute(LpmRoutes& shared, U32 node, RouteChange change) = 0;
  /// Writes the cells of a route in the tree again where they are not what they should be.
  virtual void tryAgain(LpmRoutes& shared, U32 node) = 0;
  /// Fills in what became of a route in the tree.
  virtual void stateRoute(const LpmRoutes& shared, U32 node, LpmStatus& status) const = 0;
  /// Whether the row of the routes is staged: what became of them follows.
  virtual bool staged(const LpmRoutes&) const { return false; }
  /// The routes that an entry of the level stands for; none when it is announced on its own.
  virtual Routes routesAt(const RouteKey& key) const = 0;
  /// Whether a row of the route is known to differ from what is desired.
  virtual bool marked(const RouteKey& route) const = 0;
  /// The routes that the rows look like the traces of.
  virtual void forEachGuess(const Guess& visit) const = 0;

 protected:
  LpmTable& routes() const { return routes_; }

  /// Tells of a key that is announced, unless it is by this very level.
  class Claims final : public Orb::KeyObserver<RouteKey> {
   public:
    explicit Claims(RouteLevel& level) : level_(level) {}
    void handleKey(const RouteKey& key) override {
      if (!level_.writing_) level_.disowned_(level_.disownedBy(key));
    }

   private:
    RouteLevel& level_;
  };
  /// While one exists, the table is told what routes ask for.
  class Writing {
   public:
    explicit Writing(RouteLevel& level) : level_(level) { level_.writing_ = true; }
    ~Writing() { level_.writing_ = false; }

   private:
    RouteLevel& level_;
  };

  /// The routes that lose their last row when the key is somebody else's.
  virtual Routes disownedBy(const RouteKey& key) const = 0;

 private:
  LpmTable& routes_;
  RoutesListener disowned_;
  bool writing_ = false;
};

}  // namespace VelaRoutes
