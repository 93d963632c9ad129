#include "VelaRoutes/Routes.h"

#include <algorithm>
#include <utility>

namespace VelaRoutes {

using VelaSwitchApi::BatchListener;
using VelaSwitchApi::EntryOutcome;

Routes::~Routes() { writer_.routes().entryStatuses().observerDel(this); }

Routes::Status Routes::status(const Key& route) const {
  const auto status = writer_.routes().entryStatus(route);
  if (!status) return Status::notProgrammed;
  const bool marked = status->status == Status::programmed && writer_.marked(route);
  return marked ? Status::hardwareError : status->status;
}

bool Routes::announced(const Key& route) const {
  return writer_.routes().has(LpmRoutes::desired, route) && !writer_.unclaimed(route);
}

std::optional<Routes::Nexthop> Routes::nexthop(const Key& route) const {
  const auto result = writer_.routes().entry(route);
  return result ? std::optional(routeNexthop(*result)) : std::nullopt;
}

Routes::Status Routes::announce(const Key& route, const Nexthop& nexthop) {
  const Status status = outcomeOf(route, begin(route, nexthop));
  writer_.retry();
  return status;
}

/// Rows of routes that follow each other are staged together. A route whose row could not be is
/// told at once, with those before it, for what is known of it then.
class Routes::Announcing {
 public:
  Announcing(Routes& routes, const RouteAt& routeAt, BatchListener& listener)
      : routes_(routes), routeAt_(routeAt), listener_(listener) {}

  void announce(std::size_t number) {
    const auto [route, nexthop] = routeAt_(number);
    // Rows of the first level, several of a route, are not staged.
    if (number - told_ == VelaSwitchApi::batchMost || batch_.staged(route) ||
        !routes_.writer_.levelOf(route.prefix().len())) {
      tellAll();
    }
    listener_.entryBegins(number);
    batch_.numberIs(number);
    const bool known = routes_.announced(route);
    const bool changed = routes_.begin(route, nexthop);
    changes_.push_back({known, changed});
    if (batch_.staged(route)) return;
    if (changed || routes_.status(route) != Status::programmed) tellAll();
  }

  void tellAll() {
    // Whoever hears of routes may announce others; and one that is tried again is told what becomes
    // of it.
    batch_.stagingIs(false);
    batch_.flush();
    while (told_ < changes_.size()) {
      const std::size_t number = told_++;
      const Key& route = routeAt_(number).first;
      LpmTable& table = routes_.writer_.routes();
      // It may have joined others of its key whose status is what it was.
      if (!table.has(LpmRoutes::stated, route)) table.handleStatus(route);
      const auto& [known, changed] = changes_[number];
      listener_.entryBegins(number);
      listener_.entryDone(number, {known, changed, routes_.outcomeOf(route, changed)});
    }
    batch_.stagingIs(true);
  }

 private:
  struct Change {
    bool known;
    bool changed;
  };

  Routes& routes_;
  const RouteAt& routeAt_;
  BatchListener& listener_;
  std::vector<Change> changes_;
  RouteWriter::Batch batch_{routes_.writer_};
  std::size_t told_ = 0;
};

void Routes::announceAll(std::size_t count, const RouteAt& routeAt, BatchListener& listener) {
  // The levels have one batch at a time; who hears of it may announce more.
  if (announcing_) return announceEach(count, routeAt, listener);
  announcing_ = true;
  {
    Announcing announcing(*this, routeAt, listener);
    try {
      for (std::size_t number = 0; number < count; ++number) {
        const bool first = number % VelaSwitchApi::batchMost == 0;
        const std::size_t ahead = first ? std::min(count - number, VelaSwitchApi::batchMost) : 0;
        for (std::size_t i = 0; i < ahead; ++i) writer_.soon(routeAt(number + i).first);
        announcing.announce(number);
      }
      announcing.tellAll();
    } catch (...) {
      announcing.tellAll();
      announcing_ = false;
      throw;
    }
  }
  announcing_ = false;
  writer_.retry();
}

void Routes::announceEach(std::size_t count, const RouteAt& routeAt, BatchListener& listener) {
  for (std::size_t number = 0; number < count; ++number) {
    const auto [route, nexthop] = routeAt(number);
    listener.entryBegins(number);
    const bool known = announced(route);
    const bool changed = begin(route, nexthop);
    listener.entryDone(number, {known, changed, outcomeOf(route, changed)});
  }
}

std::vector<EntryOutcome> Routes::announceAll(std::span<const std::pair<Key, Nexthop>> routes) {
  VelaSwitchApi::EntryOutcomes outcomes(routes.size());
  announceAll(
      routes.size(),
      [&](std::size_t number) { return Route(routes[number].first, routes[number].second); },
      outcomes);
  return std::move(outcomes.all);
}

bool Routes::begin(const Key& route, const Nexthop& nexthop) {
  if (!nexthop.valid()) throw Orb::RangeException("VelaSwitch::NexthopIndexes: no next hop");
  writer_.routes().flagIs(route, LpmRoutes::noted, false);
  return writer_.announce(route, nexthop);
}

Routes::Status Routes::outcomeOf(const Key& route, bool changed) {
  LpmTable& table = writer_.routes();
  if (!changed && status(route) != Status::programmed) writer_.handleRoute(route);
  const Status outcome = status(route);
  if (outcome == Status::programmed) return outcome;
  if (!std::exchange(watching_, true)) table.entryStatuses().observerIs(this);
  table.flagIs(route, LpmRoutes::noted, true);
  return outcome;
}

void Routes::handleKey(const Key& route) {
  LpmTable& table = writer_.routes();
  if (!table.has(LpmRoutes::noted, route)) return;
  if (status(route) != Status::programmed) return;
  table.flagIs(route, LpmRoutes::noted, false);
  if (admission_) admission_->routeAdmitted(route);
}

bool Routes::withdraw(const Key& route) {
  const bool there = writer_.withdraw(route);
  writer_.retry();
  return there;
}

std::vector<VelaSwitchApi::Competitor> Routes::competing(const Key& route) const {
  const auto* item = writer_.itemOf(route);
  return item ? item->table().competing(item) : std::vector<VelaSwitchApi::Competitor>();
}

std::size_t Routes::competitors(const Key& route) const {
  const auto* item = writer_.itemOf(route);
  return item ? item->table().competingRows(item).size() : 0;
}

template <class Wanted>
U32 Routes::countHeld(LpmRoutes::Flag flag, const Wanted& wanted) const {
  U32 count = 0;
  writer_.routes().forEachRoute(flag, [&](const LpmRoutes& routes, U32 node) {
    if (routes.has(LpmRoutes::held, node) && wanted(routes, node)) ++count;
  });
  return count;
}

U32 Routes::programmed() const {
  const auto any = [](const LpmRoutes&, U32) { return true; };
  return writer_.routes().count(LpmRoutes::held) - countHeld(LpmRoutes::unclaimed, any);
}

U32 Routes::waiting() const { return writer_.routes().count(LpmRoutes::waits); }

/// One whose row is marked keeps its note, and may have lost the mark since.
U32 Routes::refused() const {
  const auto there = [&](const LpmRoutes& routes, U32 node) {
    return !writer_.marked(routes.routeOf(node));
  };
  return writer_.routes().count(LpmRoutes::noted) - countHeld(LpmRoutes::noted, there);
}

U32 Routes::reconcile(const std::function<void(const Key&)>& removing) {
  const U32 released = writer_.releaseUnclaimed(removing);
  for (const Key& key : writer_.routes().entries().keys()) {
    const Status now = status(key);
    if (now != Status::programmed && now != Status::tableFull) writer_.handleRoute(key);
  }
  writer_.retry();
  return released;
}

}  // namespace VelaRoutes
