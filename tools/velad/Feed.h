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

  Feed(VelaService::RouteService& routes, VelaService::RouteService::SourceId source, Heard heard)
      : routes_(routes), source_(source), heard_(std::move(heard)) {}
  virtual ~Feed() = default;
  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;

  /// Routes were carried out: there may be room for more.
  virtual void worked() = 0;
  /// To be called now and then. Tells when what the source did not announce is gone.
  virtual void tick(U64 rowWrites) {
    const auto& figures = routes_.figuresOf(source_);
    if (std::exchange(complete_, figures.complete) || !figures.complete) return;
    log(Level::info, name() + ": all is announced; " + std::to_string(figures.removed) +
                         " routes that were not are removed, " + std::to_string(rowWrites) +
                         " rows written since start");
  }

 protected:
  const std::string& name() const { return routes_.sources()[source_].name; }
  VelaService::RouteService& routes() const { return routes_; }
  VelaService::RouteService::SourceId source() const { return source_; }
  void heard(VelaService::Clock::time_point came) const { heard_(came); }

 private:
  VelaService::RouteService& routes_;
  VelaService::RouteService::SourceId source_;
  Heard heard_;
  bool complete_ = false;
};

}  // namespace Velad
