#pragma once

#include "Feed.h"
#include "service/Configuration.h"
#include "service/KernelSource.h"

namespace Velad {

/// Hears the kernel's routes, of the network namespace that this runs in.
class KernelFeed final : public Feed {
 public:
  /// Throws std::system_error when the kernel is not to be had.
  KernelFeed(Loop& loop, const VelaService::Configuration& configuration, Place place);

  void worked() override;
  /// Tries again where the kernel could not be heard any more.
  void tick(U64 rowWrites) override;

 private:
  void connect();
  void fail(const char* why, bool malformed);
  void received();
  void readingIs(bool reading);

  Loop& loop_;
  U32 receiveBuffer_;
  std::optional<VelaService::KernelSource> kernel_;
  Handle<uv_poll_t> polled_;
  bool reading_ = false;
  U64 overruns_ = 0;                          ///< That were told.
  int error_ = 0;                             ///< Likewise.
  VelaService::Clock::time_point connectAt_;  ///< Not before then.
  VelaService::Clock::duration pause_{};
};

}  // namespace Velad
