#pragma once

#include <CivetServer.h>

#include <condition_variable>
#include <mutex>

#include "Loop.h"
#include "service/Explain.h"

namespace Velad {

/// The page that shows the switch, over HTTP. Whoever reads it is answered by a thread of its own,
/// from a picture that the thread of the event loop makes when one is wanted, part by part.
class PageServer final : private CivetHandler {
 public:
  /// The others must outlive it. Throws std::exception when the address ("127.0.0.1:9110") cannot
  /// be had.
  PageServer(Loop& loop, const std::string& address, VelaAgent::Agent& agent,
             const VelaService::Thresholds& thresholds);
  /// The loop must not run any more.
  ~PageServer() override;

 private:
  using Clock = VelaService::Clock;
  using Picture = std::shared_ptr<const VelaAgent::Json>;

  static PageServer& of(uv_handle_t* handle) { return *static_cast<PageServer*>(handle->data); }

  // In the threads of the server:
  bool handleGet(CivetServer* server, mg_connection* connection) override;
  Picture picture();

  // In the thread of the loop:
  void begin();
  void step();

  VelaAgent::Agent& agent_;
  const VelaService::Thresholds& thresholds_;
  VelaAgent::FitMeter meter_;
  uv_async_t wanting_{};
  uv_idle_t making_{};
  std::optional<VelaService::LivePicture> parts_;  ///< Of the picture under way.

  std::mutex mutex_;  ///< Of what follows.
  std::condition_variable changed_;
  Picture latest_;
  Clock::time_point made_;
  bool wanted_ = false;
  bool ends_ = false;

  std::optional<CivetServer> server_;
};

}  // namespace Velad
