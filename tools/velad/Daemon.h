#pragma once

#include <list>
#include <optional>

#include "Loop.h"
#include "Metrics.h"
#include "service/Configuration.h"
#include "service/Control.h"
#include "service/Netlink.h"

namespace Velad {

/// Listens for a forwarding plane manager's client and for operators, and works between what they
/// say. One thread has it all.
class Daemon {
 public:
  /// The switch, whose memory no other process may have, is started. Throws what is wrong with
  /// device or sockets.
  explicit Daemon(const VelaService::ConfigurationFile& file);
  ~Daemon();

  /// Runs until SIGTERM or SIGINT. Forwarding stays as it is then.
  void run();

 private:
  class Operator;
  struct Feed {
    std::unique_ptr<Stream> stream;
    VelaService::FpmStream frames;
  };

  void listen();
  void listenForOperators();
  void accept();
  void received(std::span<const char> bytes);
  void closeFeed(const std::string& why, bool malformed);
  void acceptOperator();
  void resumeOperators();
  void workIfNeeded();
  void work();
  void tick();
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
  std::optional<VelaService::Watch> watch_;
  std::optional<VelaService::Upkeep> upkeep_;
  std::optional<VelaService::Control> control_;
  Loop loop_;
  uv_tcp_t fpm_{};
  uv_pipe_t operatorListener_{};
  uv_idle_t working_{};
  uv_prepare_t pausing_{};
  uv_timer_t ticking_{};
  uv_signal_t term_{};
  uv_signal_t interrupt_{};
  uv_signal_t hangup_{};
  Feed feed_;
  std::list<std::unique_ptr<Operator>> operators_;
  bool complete_ = false;
  std::optional<Metrics> metrics_;
  unsigned ticks_ = 0;
  VelaService::Clock::time_point busySince_;  ///< While there is something to do.
};

}  // namespace Velad
