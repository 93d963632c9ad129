#pragma once

#include <optional>

#include "Feed.h"
#include "Metrics.h"
#include "Operators.h"
#include "PageServer.h"
#include "RedisSource.h"
#include "service/Configuration.h"
#include "service/Delays.h"

namespace Velad {

/// Hears sources of routes and operators, and works between what they say. One thread has it all.
class Daemon {
 public:
  /// The switch, whose memory no other process may have, is started. Throws what is wrong with
  /// device or sockets.
  explicit Daemon(const VelaService::ConfigurationFile& file);
  ~Daemon();

  /// Runs until SIGTERM or SIGINT. Forwarding stays as it is then.
  void run();

 private:
  bool idle() const { return routes_->idle() && (!follower_ || follower_->idle()); }
  void workIfNeeded();
  void followNexthops();
  void work();
  void tick();
  void tellFailures();
  void reload();
  template <class Handle>
  static Daemon& of(Handle* handle) {
    return *static_cast<Daemon*>(handle->data);
  }

  VelaService::ConfigurationFile file_;  ///< As it was at the start,
  std::string lastText_;                 ///< and when it was read last.
  const VelaService::Configuration& configuration_ = file_.settings;
  VelaDevice::SimulatedSwitch chip_;
  VelaAgent::Agent agent_;
  std::optional<VelaService::RouteService> routes_;
  std::optional<VelaService::RouteTimes> times_;
  std::optional<VelaService::Watch> watch_;
  std::optional<VelaService::Upkeep> upkeep_;
  std::optional<VelaService::StreamFollower> follower_;
  std::optional<VelaService::Control> control_;
  Loop loop_;
  std::optional<RedisSource> stream_;
  uv_idle_t working_{};
  uv_timer_t ticking_{};
  uv_signal_t term_{};
  uv_signal_t interrupt_{};
  uv_signal_t hangup_{};
  std::vector<std::unique_ptr<Feed>> feeds_;
  std::optional<Operators> operators_;
  std::optional<Metrics> metrics_;
  std::optional<PageServer> page_;
  unsigned ticks_ = 0;
  U64 busFailures_ = 0;                     ///< That the log has told of,
  std::string nexthopFailure_;              ///< and what it said of the file of next hops last.
  VelaService::Clock::time_point heardAt_;  ///< When a source of routes said something last.
  VelaService::Delays delays_;              ///< Of changes from sources of routes,
  VelaService::Delays streamDelays_;        ///< and from the stream.
};

}  // namespace Velad
