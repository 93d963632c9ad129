#pragma once

#include <array>
#include <memory>

#include "VelaRoutes/FirstLevel.h"
#include "VelaRoutes/HashedLevel.h"
#include "VelaSwitchApi/SwitchTables.h"

namespace VelaRoutes {

/// The tables that whole routes take.
struct Ladder {
  Orb::Ptr<LpmTable> routes;                         ///< Whole routes; it has no rows of its own.
  Orb::Ptr<VelaSwitchTable::Lpm11Table> firstLevel;  ///< Routes of up to 11 bits.
  /// The hashed ones, shortest first.
  std::vector<Orb::Ptr<VelaSwitchTable::LpmBaseTable>> levels;
};
/// Makes them, and adds those that have rows to the tables of a switch.
VELA_EXPORT Ladder makeLadder(VelaSwitchApi::SwitchTables& tables);

/// Spreads whole routes over the ladder of levels.
///
/// It watches the entries of an LpmTable. A change of one route changes the cells that the route
/// owns and no others: one key of a hashed level, or as many keys of the first level as it covers
/// and no longer route claims. The levels then hold, for every cell, the longest route of the level
/// that covers it.
///
/// An entry of a level that is announced on its own takes its key from routes that were only
/// guessed from what hardware held.
class VELA_EXPORT RouteWriter final : private LpmTable::Levels {
 public:
  using Key = RouteKey;  ///< A route: a prefix of 0 to 32 bits in a VRF.

  /// The tables must be made on one switch.
  explicit RouteWriter(Ladder ladder);
  ~RouteWriter();
  RouteWriter(const RouteWriter&) = delete;
  RouteWriter& operator=(const RouteWriter&) = delete;

  LpmTable& routes() const { return *routes_; }  ///< Those that are announced or were guessed.

  /// Writes a route's cells again where they are not what they should be.
  void handleRoute(const Key& route);
  /// Looks again at routes of the first level that failed.
  void retry();

  /// Takes up the routes that the levels hold after they were rebuilt from hardware. A route whose
  /// every cell belongs to longer ones has left no trace there.
  void rebuild();
  /// Announces a route, whatever is under way. Returns whether that changed it.
  bool announce(const Key& route, VelaSwitch::NexthopIndexes nexthop);
  bool withdraw(const Key& route);  ///< Likewise; returns whether there was one.
  /// The route is announced: rebuilt or not, it stays.
  void claim(const Key& route);
  /// A route is announced soon.
  void soon(const Key& route) const;
  /// All that is desired was announced: guesses that announced routes account for go.
  void complete();
  /// Forgets the rebuilt routes that were not claimed, after a word on each; returns how many.
  /// Entries of the levels that were announced on their own stay.
  U32 releaseUnclaimed(const std::function<void(const Key&)>& removing = nullptr);

  /// While one exists, rows of hashed levels are staged until flush(), of routes that are
  /// announced; what is still staged in the end is lost.
  class Batch {
   public:
    /// One at a time; the writer must outlive it.
    explicit Batch(RouteWriter& writer) : writer_(writer) { is(true); }
    ~Batch() { is(false); }
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    void flush();  ///< Writes what is staged.
    /// Nothing is staged meanwhile, unless staging.
    void stagingIs(bool staging) { writer_.staging_.on = staging; }
    /// The next rows are for the entry of the number.
    void numberIs(std::size_t number) { writer_.staging_.number = number; }
    /// Whether the row of the route's key is staged.
    bool staged(const Key& route) const;

   private:
    void is(bool on);

    RouteWriter& writer_;
  };

  /// The hashed level that serves the real length, or null for the first level.
  VelaSwitchTable::LpmBaseTable* levelOf(U8 prefixLen) const;
  /// What is programmed of the route's key in a hashed level or waits to be, or null.
  const VelaSwitchApi::HashBaseCuckooEntry* itemOf(const Key& route) const;
  /// The level that serves the real length, whichever it is.
  VelaSwitchApi::SwTable& tableOf(U8 prefixLen) const;
  /// The routes that an entry of a level stands for; none when it is announced on its own.
  std::vector<Key> routesAt(const VelaSwitchApi::SwTable& level, const Key& key) const;
  /// Whether a row of the route is known to differ from what is desired.
  bool marked(const Key& route) const;
  /// Routes that were guessed from hardware and not announced since.
  U32 unclaimed() const { return routes_->count(LpmRoutes::unclaimed); }
  /// Whether the route is one of them.
  bool unclaimed(const Key& route) const { return routes_->has(LpmRoutes::unclaimed, route); }
  /// Programmed entries of the levels that stand for announced routes.
  U64 programmedCells() const;

 private:
  class Changing;

  void checkRoute(const Key& route) const override;
  void keySoon(const Key& key, U32 tag) const override;
  void handleRoute(LpmRoutes& shared, U32 node) override;
  void stateRoute(const LpmRoutes& shared, U32 node, LpmStatus& status) const override;
  bool staged(const LpmRoutes& shared) const override;
  static void traceTrap(const Key& route);
  void forget(const RouteLevel::Routes& guesses);
  RouteLevel::RoutesListener forgetting();
  HashedLevel* hashedFor(U8 prefixLen) const { return hashedFor_[prefixLen]; }
  const RouteLevel& levelFor(U8 prefixLen) const;
  RouteLevel& levelFor(U8 prefixLen);
  template <class Visitor>
  void forEachLevel(const Visitor& visit) const;

  Orb::Ptr<LpmTable> routes_;
  FirstLevel first_;
  HashedLevel::Staging staging_;
  std::vector<std::unique_ptr<HashedLevel>> hashed_;
  std::array<HashedLevel*, 33> hashedFor_{};   ///< By real length; null for the first level's.
  RouteChange change_ = RouteChange::desired;  ///< Why routes change just now.
};

}  // namespace VelaRoutes
