#include "service/Upkeep.h"

#include "agent/TableAdapter.h"

namespace VelaService {

Upkeep::Upkeep(VelaAgent::Agent& agent, Watch& watch, UpkeepSettings settings)
    : agent_(agent),
      watch_(watch),
      scrubber_(agent, watch),
      thresholds_(agent, watch),
      polled_(agent.tables().size()) {
  settingsAre(std::move(settings));
}

void Upkeep::settingsAre(UpkeepSettings settings) {
  scrubber_.settingsAre(settings.scrub);
  thresholds_.settingsAre(std::move(settings.thresholds));
  hitPeriod_ = settings.hits;
}

void Upkeep::tick(Clock::time_point now) {
  scrubber_.tick(now);
  pollHits(now);
  if (now - checked_ < std::chrono::seconds(1)) return;
  checked_ = now;
  thresholds_.check();
}

/// A table at a time. Statuses have the time of day.
void Upkeep::pollHits(Clock::time_point now) {
  const auto& tables = agent_.tables();
  if (polled_ == tables.size()) {
    if (hitPeriod_ == Clock::duration::zero() || now - pollBegan_ < hitPeriod_) return;
    pollBegan_ = now;
    polled_ = 0;
    ++hitPolls_;
  }
  while (polled_ < tables.size() && !tables[polled_]->reportsHits()) ++polled_;
  if (polled_ == tables.size()) return;
  const auto day = std::chrono::system_clock::now().time_since_epoch();
  watch_.pollingIs(true);
  tables[polled_++]->pollHitBits(Orb::Seconds(std::chrono::duration<double>(day).count()));
  watch_.pollingIs(false);
}

}  // namespace VelaService
