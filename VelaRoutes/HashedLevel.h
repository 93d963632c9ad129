#pragma once

#include <optional>

#include "VelaRoutes/RouteLevel.h"
#include "VelaSwitchTable/VelaTableLpmBase.h"

namespace VelaRoutes {

/// A hashed level: the routes of a key share its cells. A key that the level has no room for waits
/// there; its routes have the status tableFull until it comes in.
class HashedLevel final : public RouteLevel, private Orb::KeyObserver<RouteKey> {
 public:
  /// How rows of a batch that is on are written, of all levels.
  struct Staging {
    bool on = true;          ///< Rather than at once.
    std::size_t number = 0;  ///< The entry of the batch that the next ones are for.
  };

  /// `staging` must outlive it.
  HashedLevel(LpmTable& routes, RoutesListener disowned,
              Orb::Ptr<VelaSwitchTable::LpmBaseTable> table, const Staging& staging);
  ~HashedLevel() override;

  VelaSwitchTable::LpmBaseTable& table() const override { return *table_; }
  void handleRoute(LpmRoutes& shared, U32 node, RouteChange change) override;
  void tryAgain(LpmRoutes& shared, U32 node) override;
  void stateRoute(const LpmRoutes& shared, U32 node, LpmStatus& status) const override;
  Routes routesAt(const RouteKey& key) const override;
  bool marked(const RouteKey& route) const override {
    return table_->hwInconsistentEntry(LpmRoutes::keyOf(route));
  }
  void forEachGuess(const Guess& visit) const override;
  /// While a batch is on, rows are staged until they are flushed.
  void batchIs(bool on);
  void flush() { batch_->flush(); }
  bool staged(const LpmRoutes& shared) const override;
  /// What is programmed of the routes' key or waits to be, or null.
  const VelaSwitchApi::HashBaseCuckooEntry* itemOf(const LpmRoutes& shared) const;
  /// Whether hardware has the entry that the routes make.
  bool inHardware(const LpmRoutes& shared) const;

 private:
  using Record = VelaSwitchTable::LpmBaseTable::Record;
  using Tree = LpmRoutes::Tree;
  /// What becomes of keys is told by their statuses.
  struct Unheard final : VelaSwitchApi::BatchListener {
    void entryDone(std::size_t, const VelaSwitchApi::EntryOutcome&) override {}
  };

  Routes disownedBy(const RouteKey& key) const override;
  void handleKey(const RouteKey& key) override;
  static VelaSwitchTable::LpmResult resultOf(const RouteKey& key, const Tree& tree);
  /// Whether the routes say what the level knows of their key.
  static bool known(const LpmRoutes& shared) { return shared.item && shared.item->known(); }
  const Record* recordOf(const LpmRoutes& shared) const;
  void program(LpmRoutes& shared);
  void withdraw(LpmRoutes& shared, RouteChange change);

  Orb::Ptr<VelaSwitchTable::LpmBaseTable> table_;
  Claims claims_{*this};
  Unheard unheard_;
  std::optional<VelaSwitchTable::LpmBaseTable::Batch> batch_;
  const Staging& staging_;
};

}  // namespace VelaRoutes
