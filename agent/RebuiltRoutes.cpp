#include "agent/RebuiltRoutes.h"

#include <algorithm>

namespace VelaAgent {

/// While one exists, routes change for another reason.
class RebuiltRoutes::Changing {
 public:
  Changing(RebuiltRoutes& routes, RouteChange change)
      : change_(routes.change_), before_(std::exchange(change_, change)) {}
  ~Changing() { change_ = before_; }

 private:
  RouteChange& change_;
  RouteChange before_;
};

void RebuiltRoutes::take(const std::function<void(const RouteLevel::Guess&)>& forEachGuess) {
  const Changing changing(*this, RouteChange::guessed);
  forEachGuess([&](const RouteKey& route, VelaSwitch::NexthopIndexes nexthop) {
    *unclaimed_.insert(route).first = true;
    routes_.entryIs(route, routeResult(nexthop, route.prefix().len()));
  });
}

void RebuiltRoutes::forget(const RouteLevel::Routes& routes) {
  const Changing changing(*this, RouteChange::guessed);
  for (const RouteKey& route : routes) {
    if (claim(route)) routes_.entryDel(route);
  }
}

U32 RebuiltRoutes::release(const std::function<void(const RouteKey&)>& removing) {
  RouteLevel::Routes released = those([](const RouteKey&) { return true; });
  std::sort(released.begin(), released.end());
  unclaimed_.clear();
  const Changing changing(*this, RouteChange::released);
  for (const RouteKey& route : released) {
    if (removing) removing(route);
    routes_.entryDel(route);
  }
  return static_cast<U32>(released.size());
}

}  // namespace VelaAgent
