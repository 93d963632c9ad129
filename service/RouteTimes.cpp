#include "service/RouteTimes.h"

namespace VelaService {

RouteTimes::RouteTimes(const VelaAgent::Agent& agent) : routes_(agent.routeWriter().routes()) {
  routes_.entries().observerIs(this);
  routes_.entryStatuses().observerIs(this);
}

RouteTimes::~RouteTimes() {
  routes_.entries().observerDel(this);
  routes_.entryStatuses().observerDel(this);
}

U32 RouteTimes::now() const {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start_);
  return static_cast<U32>(seconds.count()) & ((1U << timeBits) - 1);
}

std::optional<RouteTimes::Times> RouteTimes::of(const Key& route) const {
  const Since* since = since_.find(route);
  if (!since) return std::nullopt;
  return Times{now() - since->desired, now() - (since->status & ((1U << timeBits) - 1))};
}

/// It is told of other results and of hits as well.
void RouteTimes::handleKey(const Key& route) {
  if (!routes_.has(VelaSwitchTable::LpmRoutes::desired, route)) {
    since_.erase(route);
    return;
  }
  const auto [since, isNew] = since_.insert(route);
  if (isNew) since->desired = now();
  const auto status = routes_.entryStatus(route);
  const U32 is = status ? static_cast<U32>(status->status) : 0;
  if (!isNew && is == since->status >> timeBits) return;
  since->status = is << timeBits | now();
}

}  // namespace VelaService
