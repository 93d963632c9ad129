#pragma once

#include <optional>
#include <span>

#include "VelaRoutes/RouteWriter.h"

namespace VelaRoutes {

/// Hears of routes that come in although their announcement was refused.
class VELA_EXPORT AdmissionListener {
 public:
  /// The route is in hardware. Routes may be announced and withdrawn here.
  virtual void routeAdmitted(const RouteKey& route) = 0;

 protected:
  ~AdmissionListener() = default;
};

/// Whole routes for whoever owns a switch: announced, withdrawn, what became of them, and who
/// stands in the way of those that were refused.
///
/// A route that hardware has no room for waits; it comes in when another goes. Statuses are asked
/// for here rather than of the LpmTable: a row that is known to be wrong counts as hardwareError.
class VELA_EXPORT Routes final : private Orb::KeyObserver<RouteKey> {
 public:
  using Key = RouteKey;  ///< A prefix of 0 to 32 bits in a VRF.
  /// See docs/api.md for what to do about each.
  using Status = VelaSwitchApi::EntryProgrammedStatus;
  /// The LAG that packets leave by, and their rewrite.
  using Nexthop = VelaSwitch::NexthopIndexes;
  using Route = std::pair<const Key&, const Nexthop&>;  ///< A key and its next hop, where they lie.

  /// `writer` must outlive this.
  explicit Routes(RouteWriter& writer) : writer_(writer) {}
  ~Routes();
  Routes(const Routes&) = delete;
  Routes& operator=(const Routes&) = delete;

  RouteWriter& writer() const { return writer_; }  ///< As it was given.

  /// Announces a route. One that is unchanged but not programmed is tried again. What it costs, and
  /// what failed before, is written when it returns. Throws Orb::RangeException, before anything
  /// changed, for a VRF that the profile does not have and for a next hop that is not valid().
  Status announce(const Key& route, const Nexthop& nexthop);
  /// The same of `count` routes, in order: `routeAt(number)` must stay where it is meanwhile; it
  /// is asked ahead and more than once, and does not throw. Rows of hashed levels go to the bus in
  /// runs.
  using RouteAt = std::function<Route(std::size_t number)>;
  /// `listener` hears of each route when its rows are written. When one is out of its range those
  /// before it stand, and are told.
  void announceAll(std::size_t count, const RouteAt& routeAt,
                   VelaSwitchApi::BatchListener& listener);
  /// One outcome a route, in order.
  std::vector<VelaSwitchApi::EntryOutcome> announceAll(
      std::span<const std::pair<Key, Nexthop>> routes);
  /// Returns whether there was one. Those that waited for its room come in.
  bool withdraw(const Key& route);

  /// Whether the route is announced; one that was only guessed from hardware is not.
  bool announced(const Key& route) const;
  /// The next hop of a route that is announced or was guessed.
  std::optional<Nexthop> nexthop(const Key& route) const;
  Status status(const Key& route) const;  ///< notProgrammed for a route that is not known.
  /// The rows that leave a refused route none; one fewer than the routes' keys that need them.
  std::vector<VelaSwitchApi::Competitor> competing(const Key& route) const;
  /// How many they are.
  std::size_t competitors(const Key& route) const;

  /// Routes that were announced and stand; those of them that hardware has, that wait for room, and
  /// that hardware lacks since they were refused.
  U32 size() const { return writer_.routes().entries().size() - writer_.unclaimed(); }
  U32 programmed() const;  ///< See size().
  U32 waiting() const;     ///< See size().
  U32 refused() const;     ///< See size().

  /// There is one at most; null for none. Not called for routes that are tried again by an
  /// announcement, which says itself what became of them.
  void admissionListenerIs(AdmissionListener* listener) { admission_ = listener; }
  /// All that is desired was announced: removes the routes that were guessed from hardware and not
  /// claimed, after a word on each, and tries again what failed. Returns how many went.
  U32 reconcile(const std::function<void(const Key&)>& removing = nullptr);

 private:
  class Announcing;

  void announceEach(std::size_t count, const RouteAt& routeAt,
                    VelaSwitchApi::BatchListener& listener);
  /// The first part of an announcement, and what follows when its rows are written.
  bool begin(const Key& route, const Nexthop& nexthop);
  Status outcomeOf(const Key& route, bool changed);
  /// How many routes that have the flag, and a status of programmed, are wanted.
  template <class Wanted>
  U32 countHeld(LpmRoutes::Flag flag, const Wanted& wanted) const;
  /// The status of a route changed.
  void handleKey(const Key& route) override;

  RouteWriter& writer_;
  AdmissionListener* admission_ = nullptr;
  bool watching_ = false;    ///< Routes were refused.
  bool announcing_ = false;  ///< A batch is under way.
};

}  // namespace VelaRoutes
