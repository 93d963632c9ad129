#pragma once

#include <memory>
#include <optional>
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
/// A key that its level has no room for waits; its routes have the status tableFull. When the level
/// loses an entry, waiting keys are tried again in order of arrival.
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
  /// Tries waiting keys again in levels that lost entries, and looks again at routes that failed.
  void retry();

  /// Takes up the routes that the levels hold after they were rebuilt from hardware. A route whose
  /// every cell belongs to longer ones has left no trace there. Before hardware interface 5.1 the
  /// first level does not tell a route's length: each of its rows becomes a route of 11 bits.
  void rebuild();
  /// The route is announced: rebuilt or not, it stays.
  void claim(const Key& key);
  /// Forgets the rebuilt routes that were not claimed; returns how many. Entries of
  /// the levels that were announced on their own stay.
  U32 releaseUnclaimed();

  /// The hashed level that serves the real length, or null for the first level.
  VelaSwitchTable::LpmBaseTable* levelOf(U8 prefixLen) const;
  /// The key that the route has in its hashed level.
  static Key levelKey(const Key& route);
  /// Keys that wait for room in the level.
  U32 waiting(const VelaSwitchApi::SwTable& level) const;
  /// Programmed entries of the levels that stand for routes.
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
  /// The keys that wait for room in a level.
  class WaitingKeys {
   public:
    explicit WaitingKeys(VelaSwitchTable::LpmBaseTable& table) : table_(table) {}

    U32 size() const { return tickets_.size(); }
    void add(const Key& key);
    void del(const Key& key);
    /// The key that waited longest among those that have room now, or nothing.
    std::optional<Key> firstWithRoom();

   private:
    /// Tickets are numbered in order of arrival.
    using Ticket = U32;
    static constexpr Ticket none = ~Ticket{0};
    struct Queue {
      std::vector<Ticket> tickets;
      std::size_t head = 0;
    };

    void enqueue(const Key& key);
    Ticket first(Queue& queue) const;
    void compact();

    VelaSwitchTable::LpmBaseTable& table_;
    Orb::Map<Key, Ticket> tickets_;
    std::vector<std::optional<Key>> keys_;  ///< By ticket; nothing for a key that waits no more.
    std::vector<Queue> queues_;             ///< By row: those whose key may lie in it.
  };

  /// A hashed level and what is particular to it.
  struct Level final : Orb::KeyObserver<Key> {
    Level(RouteWriter& routeWriter, Orb::Ptr<VelaSwitchTable::LpmBaseTable> level)
        : writer(routeWriter), table(std::move(level)), waiting(*table) {}

    RouteWriter& writer;
    Orb::Ptr<VelaSwitchTable::LpmBaseTable> table;

    Orb::Map<Key, Group> groups;
    WaitingKeys waiting;
    U64 removalsSeen = 0;

    /// The status of a key changed.
    void handleKey(const Key& key) override { writer.statusChanged(*this, key); }
  };

  void handleKey(const Key& route) override;
  void writeFirst(const Key& route, const VelaSwitchTable::LpmResult* result);
  void writeFirstCells(U8 vrf, U32 node);
  void writeHashed(Level& level, const Key& route, const VelaSwitchTable::LpmResult* result);
  void programGroup(Level& level, const Key& key, const Group& group);
  void statusChanged(Level& level, const Key& key);
  void statusIs(Level& level, const Key& key, const Group& group);

  void retry(Level& level);
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

  bool statusSeen_ = false;
  /// The routes change to what the levels hold already.
  bool taking_ = false;
  bool releasing_ = false;
};

}  // namespace VelaAgent
