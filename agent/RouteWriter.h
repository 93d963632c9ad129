#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "VelaSwitchTable/VelaTableLpm.h"
#include "VelaSwitchTable/VelaTableLpm11.h"
#include "VelaSwitchTable/VelaTableLpmBase.h"
#include "agent/RouteTree.h"

namespace VelaAgent {

/// Spreads whole routes over the ladder of levels and keeps their statuses.
///
/// It watches the entries of an LpmTable. A change of one route changes the cells that the route
/// owns and no others: one key of a hashed level, or as many keys of the first level as it covers
/// and no longer route claims. The levels then hold, for every cell, the longest route of the level
/// that covers it.
///
/// A key that its level has no room for waits there; its routes have the status tableFull until it
/// comes in.
///
/// An entry of a level that is announced on its own takes its key from routes that were only
/// guessed from what hardware held.
class RouteWriter final : private Orb::KeyObserver<VelaSwitch::LpmKey> {
 public:
  using Key = VelaSwitch::LpmKey;
  using Status = VelaSwitchApi::EntryProgrammedStatus;

  /// The tables must be made on one switch; `levels` are the hashed ones, shortest first.
  RouteWriter(Orb::Ptr<VelaSwitchTable::LpmTable> routes,
              Orb::Ptr<VelaSwitchTable::Lpm11Table> firstLevel,
              std::vector<Orb::Ptr<VelaSwitchTable::LpmBaseTable>> levels);
  ~RouteWriter();
  RouteWriter(const RouteWriter&) = delete;
  RouteWriter& operator=(const RouteWriter&) = delete;

  VelaSwitchTable::LpmTable& routes() const { return *routes_; }

  /// What a whole route is announced as.
  static VelaSwitchTable::LpmResult resultOf(VelaSwitch::NexthopIndexes nexthop, U8 prefixLen);

  /// The other way round.
  static VelaSwitch::NexthopIndexes nexthopOf(const VelaSwitchTable::LpmResult& result);

  /// Writes a route's cells again where they are not what they should be.
  void handleRoute(const Key& key);
  /// Looks again at routes of the first level that failed.
  void retry();

  /// Takes up the routes that the levels hold after they were rebuilt from hardware. A route whose
  /// every cell belongs to longer ones has left no trace there. Before hardware interface 5.1 the
  /// first level does not tell a route's length: each of its rows becomes a route of 11 bits.
  void rebuild();
  /// The route is announced: rebuilt or not, it stays.
  void claim(const Key& key);
  /// All that is desired was announced: guesses that announced routes account for go.
  void complete();
  /// Forgets the rebuilt routes that were not claimed, after a word on each; returns how many.
  /// Entries of the levels that were announced on their own stay.
  U32 releaseUnclaimed(const std::function<void(const Key&)>& removing = nullptr);

  /// The hashed level that serves the real length, or null for the first level.
  VelaSwitchTable::LpmBaseTable* levelOf(U8 prefixLen) const;
  /// The level that serves the real length, whichever it is.
  VelaSwitchApi::SwTable& tableOf(U8 prefixLen) const;
  /// The routes that an entry of a level stands for; none when it is announced on its own.
  std::vector<Key> routesAt(const VelaSwitchApi::SwTable& level, const Key& key) const;
  /// The key that the route has in its hashed level.
  static Key levelKey(const Key& route);
  /// Whether a row of the route is known to differ from what is desired.
  bool marked(const Key& route) const;
  /// Routes that were guessed from hardware and not announced since.
  U32 unclaimed() const { return unclaimed_.size(); }
  bool unclaimed(const Key& route) const { return unclaimed_.has(route); }
  /// Programmed entries of the levels that stand for announced routes.
  U64 programmedCells() const;

 private:
  static constexpr U8 cellBits = 2;
  using Tree = RouteTree<cellBits>;
  using FirstTree = RouteTree<VelaSwitchTable::Lpm11Family::keyLength>;

  /// The routes of one key of a hashed level.
  struct Group {
    Tree tree;
    bool claimed = false;  ///< Written in this run.
  };
  struct FirstGroup {
    FirstTree tree;
    std::bitset<FirstTree::cells> claimed;
  };
  /// Hears of a level's keys that are announced.
  class Claims final : public Orb::KeyObserver<Key> {
   public:
    using Handler = std::function<void(const Key&)>;
    explicit Claims(Handler handler) : handler_(std::move(handler)) {}
    void handleKey(const Key& key) override { handler_(key); }

   private:
    Handler handler_;
  };

  /// A hashed level and what is particular to it.
  struct Level final : Orb::KeyObserver<Key> {
    Level(RouteWriter& routeWriter, Orb::Ptr<VelaSwitchTable::LpmBaseTable> level)
        : writer(routeWriter), table(std::move(level)) {}

    RouteWriter& writer;
    Orb::Ptr<VelaSwitchTable::LpmBaseTable> table;
    Orb::Map<Key, Group> groups;
    Claims claims{[this](const Key& key) { writer.keyClaimed(*this, key); }};

    /// The status of a key changed.
    void handleKey(const Key& key) override { writer.statusChanged(*this, key); }
  };

  void handleKey(const Key& route) override;
  void writeFirst(const Key& route, const VelaSwitchTable::LpmResult* result);
  void writeFirstCells(U8 vrf, U32 node);
  void writeHashed(Level& level, const Key& route, const VelaSwitchTable::LpmResult* result);
  static VelaSwitchTable::LpmResult resultOf(const Key& key, const Group& group);
  void programGroup(Level& level, const Key& key, const Group& group);
  void statusChanged(Level& level, const Key& key);
  void statusIs(Level& level, const Key& key, const Group& group);

  void keyClaimed(Level& level, const Key& key);
  void firstKeyClaimed(const Key& key);
  static Key firstRoute(U8 vrf, U32 node);
  static std::vector<Key> routesOf(const Key& key, const Group& group);
  void forget(const std::vector<Key>& routes);
  Status firstStatus(const Key& route) const;
  void refreshFirst(const Key& route);
  void rebuildHashed(Level& level);
  void rebuildFirst();
  void take(const Key& route, VelaSwitch::NexthopIndexes nexthop);
  Level& levelFor(U8 prefixLen) const;

  Orb::Ptr<VelaSwitchTable::LpmTable> routes_;
  Orb::Ptr<VelaSwitchTable::Lpm11Table> first_;
  std::vector<FirstGroup> firstGroups_;  ///< By VRF.
  std::vector<std::unique_ptr<Level>> levels_;
  std::vector<Key> troubled_;  ///< Routes of the first level whose rows could not be written.
  Orb::Map<Key, bool> unclaimed_;

  Claims firstClaims_{[this](const Key& key) { firstKeyClaimed(key); }};
  bool statusSeen_ = false;
  bool writing_ = false;  ///< The levels are told what routes ask for.
  /// The routes change to what the levels hold already.
  bool taking_ = false;
  bool releasing_ = false;
};

}  // namespace VelaAgent
