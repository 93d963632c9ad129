#pragma once

#include <optional>

#include "Orb/Map.h"
#include "service/RouteService.h"

namespace VelaService {

/// Since when routes are desired, and since when each has its status. That takes some 50 bytes a
/// route.
class RouteTimes final : private Orb::KeyObserver<VelaSwitch::LpmKey> {
 public:
  using Key = VelaSwitch::LpmKey;

  /// `agent` must be started, and outlive this. What its tables held before has no time.
  explicit RouteTimes(const VelaAgent::Agent& agent);
  ~RouteTimes();
  RouteTimes(const RouteTimes&) = delete;
  RouteTimes& operator=(const RouteTimes&) = delete;

  /// For how long, in seconds.
  struct Times {
    U32 desired;
    U32 status;
  };
  /// Nothing for a route that was there from the beginning and did not change, or is not desired.
  std::optional<Times> of(const Key& route) const;

 private:
  /// Times take that many bits; they are seconds since the start.
  static constexpr unsigned timeBits = 29;
  struct Since {
    U32 desired = 0;
    U32 status = 0;  ///< Above its time the status.
  };

  U32 now() const;
  void handleKey(const Key& route) override;

  VelaSwitchTable::LpmTable& routes_;
  Clock::time_point start_ = Clock::now();
  Orb::Map<Key, Since> since_;
};

}  // namespace VelaService
