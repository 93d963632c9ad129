#pragma once

#include <prometheus/exposer.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <optional>

#include "service/StreamFollower.h"
#include "service/Upkeep.h"

namespace Velad {

/// Figures for Prometheus, over HTTP. Whoever scrapes is answered by a thread of its own from what
/// was collected last; what was never collected is absent.
class Metrics {
 public:
  /// Throws std::exception when the address ("127.0.0.1:9109") cannot be had.
  explicit Metrics(const std::string& address);

  /// Takes the figures as they are.
  void collect(const VelaAgent::Agent& agent, const VelaService::RouteService& routes,
               const VelaService::Upkeep& upkeep);
  void collect(const VelaService::StreamFollower& stream);
  /// Of all sources together.
  void queueLengthIs(U64 changes) {
    gauge("velad_queue_length", "Changes that wait to be carried out", {},
          static_cast<double>(changes));
  }
  /// So many changes were carried out, so long after the message that asked for them came.
  void carriedOut(U64 changes, double seconds);

 private:
  using Labels = prometheus::Labels;
  void gauge(const char* name, const char* about, const Labels& labels, double value);
  void counter(const char* name, const char* about, const Labels& labels, double value);
  void collect(const VelaAgent::HwTableAdapter& table, const VelaService::Thresholds& thresholds);
  void collect(const VelaService::Scrubber& scrubber);

  std::optional<prometheus::Exposer> exposer_;
  std::shared_ptr<prometheus::Registry> registry_ = std::make_shared<prometheus::Registry>();
  prometheus::Histogram* changing_ = nullptr;  ///< When there is something to tell.
};

}  // namespace Velad
