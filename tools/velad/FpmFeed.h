#pragma once

#include "Feed.h"
#include "service/Configuration.h"
#include "service/Netlink.h"

namespace Velad {

/// Listens for a forwarding plane manager's client.
class FpmFeed final : public Feed {
 public:
  /// Throws LoopException when the address cannot be had.
  FpmFeed(Loop& loop, const VelaService::Configuration& configuration, Place place);

  void worked() override;
  void tick(U64 rowWrites) override;

 private:
  void accept(int status);
  void received(std::span<const char> bytes);
  void close(const std::string& why, bool malformed);
  void answer();
  void checkFrame();

  Handle<uv_tcp_t> listener_{new uv_tcp_t};
  std::unique_ptr<Stream> stream_;
  VelaService::FpmStream frames_;
  U64 framesTicked_ = 0;                            ///< Of them, at the last tick.
  VelaService::Clock::time_point unfinishedSince_;  ///< A frame, which there need not be.
  bool answering_ = false;  ///< Answers are on their way; more follow when they are taken.
};

}  // namespace Velad
