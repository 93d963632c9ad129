#pragma once

#include <functional>

#include "Log.h"
#include "Loop.h"
#include "service/RouteService.h"

namespace Velad {

/// Brings what a source of routes says to the route service.
class Feed {
 public:
  /// Messages that came at the time were taken, and there may be something to do.
  using Heard = std::function<void(VelaService::Clock::time_point came)>;

  /// Whose messages it brings, and where.
  struct Place {
    VelaService::RouteService& routes;
    VelaService::RouteService::SourceId source;
    Heard heard;
  };

  explicit Feed(Place place) : place_(std::move(place)) {}
  virtual ~Feed() = default;
  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;

  /// Routes were carried out: there may be room for more.
  virtual void worked() = 0;
  /// To be called before each tick of the service, which is to know whether there is something to
  /// read. Tells when what the source did not announce is gone.
  virtual void tick(U64 rowWrites) {
    const auto& figures = routes().figuresOf(source());
    if (std::exchange(complete_, figures.complete) || !figures.complete) return;
    log(Level::info, name() + ": all is announced; " + std::to_string(figures.removed) +
                         " routes that were not are removed, " + std::to_string(rowWrites) +
                         " rows written since start");
  }

 protected:
  const std::string& name() const { return routes().sources()[source()].name; }
  VelaService::RouteService& routes() const { return place_.routes; }
  VelaService::RouteService::SourceId source() const { return place_.source; }
  void heard(VelaService::Clock::time_point came) const { place_.heard(came); }

 private:
  Place place_;
  bool complete_ = false;
};

}  // namespace Velad
