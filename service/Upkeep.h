#pragma once

#include "service/Scrubber.h"
#include "service/Thresholds.h"

namespace VelaService {

/// May be changed at any time.
struct UpkeepSettings {
  ScrubSettings scrub;
  ThresholdSettings thresholds;
  Clock::duration hits = std::chrono::seconds(10);  ///< From one poll to the next; 0: none.
};

/// What is done in the background: rows are audited, hit bits polled, and loads watched.
class Upkeep {
 public:
  /// Both must outlive it.
  Upkeep(VelaAgent::Agent& agent, Watch& watch, UpkeepSettings settings);

  void settingsAre(UpkeepSettings settings);
  /// Does what is due; to be called several times a second, while no change is under way.
  void tick(Clock::time_point now);

  const Scrubber& scrubber() const { return scrubber_; }
  const Thresholds& thresholds() const { return thresholds_; }
  /// Polls of all hit bits that began.
  U64 hitPolls() const { return hitPolls_; }

 private:
  void pollHits(Clock::time_point now);

  VelaAgent::Agent& agent_;
  Watch& watch_;
  Scrubber scrubber_;
  Thresholds thresholds_;
  Clock::duration hitPeriod_{};
  std::size_t polled_;  ///< Tables that were polled since the poll under way began.
  Clock::time_point pollBegan_;
  Clock::time_point checked_;
  U64 hitPolls_ = 0;
};

}  // namespace VelaService
