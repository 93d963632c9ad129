#pragma once

#include <optional>

#include "VelaRoutes/RouteLevel.h"
#include "VelaSwitchTable/VelaTableLpmBase.h"

namespace VelaRoutes {

/// A hashed level: the routes of a key share its cells. A key that the level has no room for waits
/// there; its routes have the status tableFull until it comes in.
class HashedLevel final : public RouteLevel, private Orb::KeyObserver<RouteKey> {
 public:
  HashedLevel(LpmTable& routes, RoutesListener disowned,
              Orb::Ptr<VelaSwitchTable::LpmBaseTable> table);
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
  /// While a batch is on, rows are staged until they are flushed; `number` says for which entry of
  /// the batch the next ones are.
  void batchIs(bool on);
  /// Rows of a batch that is on are written at once meanwhile, unless staging.
  void stagingIs(bool staging) { staging_ = staging; }
  void flush() { batch_->flush(); }
  void stagedNumberIs(std::size_t number) { stagedNumber_ = number; }
  bool staged(const LpmRoutes& shared) const override;
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
  /// The status of a key changed.
  void handleKey(const RouteKey& key) override { routes().handleStatuses(key); }
  static VelaSwitchTable::LpmResult resultOf(const RouteKey& key, const Tree& tree);
  const Record* recordOf(const LpmRoutes& shared) const;
  void program(LpmRoutes& shared);

  Orb::Ptr<VelaSwitchTable::LpmBaseTable> table_;
  Claims claims_{*this};
  Unheard unheard_;
  std::optional<VelaSwitchTable::LpmBaseTable::Batch> batch_;
  std::size_t stagedNumber_ = 0;
  bool staging_ = true;
};

}  // namespace VelaRoutes
