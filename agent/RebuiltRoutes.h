#pragma once

#include "agent/RouteLevel.h"

namespace VelaAgent {

/// Routes that were guessed from what hardware held, until they are announced or go.
class RebuiltRoutes {
 public:
  /// `routes` must outlive it.
  explicit RebuiltRoutes(VelaSwitchTable::LpmTable& routes) : routes_(routes) {}

  /// Why the change comes that the routes tell of just now.
  RouteChange change() const { return change_; }
  U32 count() const { return unclaimed_.size(); }
  bool has(const RouteKey& route) const { return unclaimed_.has(route); }

  /// Takes up what the levels look like.
  void take(const std::function<void(const RouteLevel::Guess&)>& forEachGuess);
  /// The route is announced or withdrawn; returns whether it had been guessed.
  bool claim(const RouteKey& route) { return unclaimed_.erase(route); }
  /// Those of the routes that nobody announced go, and their keys stay as they are.
  void forget(const RouteLevel::Routes& routes);
  /// All of them go, after a word on each; returns how many.
  U32 release(const std::function<void(const RouteKey&)>& removing);
  template <class Wanted>
  RouteLevel::Routes those(const Wanted& wanted) const {
    RouteLevel::Routes routes;
    unclaimed_.forEach([&](const RouteKey& route, bool) {
      if (wanted(route)) routes.push_back(route);
    });
    return routes;
  }

 private:
  class Changing;

  VelaSwitchTable::LpmTable& routes_;
  Orb::Map<RouteKey, bool> unclaimed_;
  RouteChange change_ = RouteChange::desired;
};

}  // namespace VelaAgent
