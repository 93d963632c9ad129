#pragma once

#include <functional>
#include <vector>

#include "Orb/Collection.h"
#include "VelaSwitchTable/VelaTableLpm.h"

/// The levels of the ladder as whole routes see them.
namespace VelaAgent {

using RouteKey = VelaSwitch::LpmKey;

/// Why a route comes or goes.
enum class RouteChange : U8 {
  desired,   ///< It was announced or withdrawn.
  guessed,   ///< The levels hold what they should already.
  released,  ///< It was guessed, and nobody announced it: what it has not written stays.
};

/// What a whole route is announced as, and the other way round.
VelaSwitchTable::LpmResult routeResult(VelaSwitch::NexthopIndexes nexthop, U8 prefixLen);
VelaSwitch::NexthopIndexes routeNexthop(const VelaSwitchTable::LpmResult& result);

/// A cell of a route.
VelaSwitchTable::EntryCellResult cellOf(VelaSwitch::NexthopIndexes nexthop, U8 realPrefixLen);

/// The bits of the prefix's address from `from` on, up to its length.
U32 bitsBehind(const Ipnet::IpPrefix& prefix, U8 from);
/// The prefix of `base`, made longer by `extra` bits.
Ipnet::IpPrefix longer(const Ipnet::IpPrefix& base, U8 extra, U32 bits);

/// A level: it is told the routes that it serves, writes the cells that they own, and gives them
/// their statuses.
class RouteLevel {
 public:
  using Status = VelaSwitchApi::EntryProgrammedStatus;
  using Guess = std::function<void(const RouteKey& route, VelaSwitch::NexthopIndexes nexthop)>;
  using Routes = std::vector<RouteKey>;
  using RoutesListener = std::function<void(const Routes&)>;

  /// `routes`, whose statuses it keeps, must outlive it. `disowned` hears of routes whose key was
  /// announced on its own: what they were guessed from is not theirs.
  RouteLevel(VelaSwitchTable::LpmTable& routes, RoutesListener disowned)
      : routes_(routes), disowned_(std::move(disowned)) {}
  virtual ~RouteLevel() = default;
  RouteLevel(const RouteLevel&) = delete;
  RouteLevel& operator=(const RouteLevel&) = delete;

  virtual VelaSwitchApi::SwTable& table() const = 0;

  /// The route has another result, or none.
  virtual void routeIs(const RouteKey& route, const VelaSwitchTable::LpmResult* result,
                       RouteChange change) = 0;
  /// Writes a route's cells again where they are not what they should be.
  virtual void tryAgain(const RouteKey& route, const VelaSwitchTable::LpmResult& result) = 0;
  /// The routes that an entry of the level stands for; none when it is announced on its own.
  virtual Routes routesAt(const RouteKey& key) const = 0;
  /// Whether a row of the route is known to differ from what is desired.
  virtual bool marked(const RouteKey& route) const = 0;
  /// The routes that the rows look like the traces of.
  virtual void forEachGuess(const Guess& visit) const = 0;
  /// Programmed entries that stand for announced routes.
  virtual U64 programmedCells() const = 0;

 protected:
  VelaSwitchTable::LpmTable& routes() const { return routes_; }

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
  VelaSwitchTable::LpmTable& routes_;
  RoutesListener disowned_;
  bool writing_ = false;
};

}  // namespace VelaAgent
