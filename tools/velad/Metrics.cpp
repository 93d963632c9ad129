#include "Metrics.h"

#include <prometheus/counter.h>
#include <prometheus/gauge.h>

#include "agent/TableAdapter.h"

namespace Velad {

using VelaService::Refusal;

Metrics::Metrics(const std::string& address) : exposer_(address, 1) {
  exposer_.RegisterCollectable(registry_);
}

void Metrics::settled(double seconds) {
  if (!settling_) {
    settling_ = &prometheus::BuildHistogram()
                     .Name("velad_settling_seconds")
                     .Help("From a source's first message to the last register of what it said")
                     .Register(*registry_)
                     .Add({}, prometheus::Histogram::BucketBoundaries{.0001, .0003, .001, .003, .01,
                                                                      .03, .1, .3, 1, 3, 10});
  }
  settling_->Observe(seconds);
}

void Metrics::gauge(const char* name, const char* about, const Labels& labels, double value) {
  prometheus::BuildGauge().Name(name).Help(about).Register(*registry_).Add(labels).Set(value);
}

void Metrics::counter(const char* name, const char* about, const Labels& labels, double value) {
  auto& counter =
      prometheus::BuildCounter().Name(name).Help(about).Register(*registry_).Add(labels);
  counter.Increment(value - counter.Value());
}

void Metrics::collect(const VelaAgent::Agent& agent, const VelaService::RouteService& routes) {
  const auto& figures = routes.figures();
  const auto number = [](U64 value) { return static_cast<double>(value); };
  const char* about = "Routes that are wanted, in hardware, or without room there";
  gauge("velad_routes", about, {{"state", "wanted"}}, number(figures.wanted));
  gauge("velad_routes", about, {{"state", "programmed"}}, number(figures.programmed));
  gauge("velad_routes", about, {{"state", "waiting"}}, number(figures.waiting));
  gauge("velad_queue_length", "Changes that wait to be carried out", {}, number(routes.queued()));
  for (std::size_t reason = 1; reason < VelaService::refusals; ++reason) {
    gauge("velad_routes_refused", "Routes that cannot be had, by reason",
          {{"reason", nameOf(static_cast<Refusal>(reason))}}, number(figures.refused[reason]));
  }
  for (VelaService::RouteService::SourceId each = 0; each < routes.sources().size(); ++each) {
    const auto& source = routes.figuresOf(each);
    const Labels labels{{"source", routes.sources()[each].name}};
    gauge("velad_source_connected", "Whether a source is connected", labels, source.connected);
    counter("velad_source_connections_total", "Connections of a source", labels,
            number(source.connections));
    counter("velad_source_messages_total", "Messages of a source", labels, number(source.messages));
    counter("velad_source_malformed_total", "Connections that ended with something malformed",
            labels, number(source.malformed));
  }
  counter("velad_row_writes_total", "Rows written", {}, number(agent.recorder().rowWrites()));
  for (const auto& table : agent.tables()) {
    const Labels labels{{"table", table->name()}, {"instance", std::to_string(table->instance())}};
    gauge("velad_table_entries", "Entries that were announced to a table", labels,
          number(table->entries()));
    gauge("velad_table_waiting", "Those of them that the table has no room for", labels,
          number(table->waiting()));
    if (!table->borrowsRows()) {
      counter("velad_table_moves_total", "Entries that moved to make room", labels,
              number(table->moves()));
    }
  }
}

}  // namespace Velad
