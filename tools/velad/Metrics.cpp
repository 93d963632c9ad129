#include "Metrics.h"

#include <CivetServer.h>
#include <prometheus/counter.h>
#include <prometheus/gauge.h>

#include "Http.h"
#include "agent/TableAdapter.h"

namespace Velad {

using VelaService::Refusal;

namespace {

double number(U64 value) { return static_cast<double>(value); }

prometheus::Labels labelsOf(const VelaAgent::TableAdapter& table) {
  return {{"table", table.name()}, {"instance", std::to_string(table.instance())}};
}

}  // namespace

Metrics::Metrics(const std::string& address) {
  try {
    exposer_.emplace(httpOptions(address));
  } catch (const CivetException&) {
    throw std::runtime_error("metrics: cannot listen at " + address);
  }
  exposer_->RegisterCollectable(registry_);
}

void Metrics::carriedOut(U64 changes, double seconds) {
  if (!changing_) {
    changing_ = &prometheus::BuildHistogram()
                     .Name("velad_change_seconds")
                     .Help("From a source's message to the last register of what it changes")
                     .Register(*registry_)
                     .Add({}, prometheus::Histogram::BucketBoundaries{.0001, .0003, .001, .003, .01,
                                                                      .03, .1, .3, 1, 3, 10});
  }
  for (; changes > 0; --changes) changing_->Observe(seconds);
}

void Metrics::gauge(const char* name, const char* about, const Labels& labels, double value) {
  prometheus::BuildGauge().Name(name).Help(about).Register(*registry_).Add(labels).Set(value);
}

void Metrics::counter(const char* name, const char* about, const Labels& labels, double value) {
  auto& counter =
      prometheus::BuildCounter().Name(name).Help(about).Register(*registry_).Add(labels);
  counter.Increment(value - counter.Value());
}

void Metrics::collect(const VelaService::StreamFollower& stream) {
  gauge("velad_source_connected", "Whether a source is connected", {{"source", "stream"}},
        stream.isConnected());
  gauge("velad_stream_sequence", "The number of the last change that was applied", {},
        static_cast<double>(stream.position().sequence));
}

void Metrics::collect(const VelaAgent::Agent& agent, const VelaService::RouteService& routes,
                      const VelaService::Upkeep& upkeep) {
  const auto& figures = routes.figures();
  const char* about = "Routes that are wanted, in hardware, or without room there";
  gauge("velad_routes", about, {{"state", "wanted"}}, number(figures.wanted));
  gauge("velad_routes", about, {{"state", "programmed"}}, number(figures.programmed));
  gauge("velad_routes", about, {{"state", "waiting"}}, number(figures.waiting));
  for (std::size_t reason = 1; reason < VelaService::refusals; ++reason) {
    gauge("velad_routes_refused", "Routes that cannot be had, by reason",
          {{"reason", nameOf(static_cast<Refusal>(reason))}}, number(figures.refused[reason]));
  }
  for (VelaService::RouteService::SourceId each = 0; each < routes.sourceCount(); ++each) {
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
  counter("velad_bus_failures_total", "Accesses to rows and hit bits that failed", {},
          number(agent.recorder().failures()));
  counter("velad_hit_polls_total", "Polls of all hit bits", {}, number(upkeep.hitPolls()));
  for (const auto& table : agent.tables()) collect(*table, upkeep.thresholds());
  collect(upkeep.scrubber());
}

void Metrics::collect(const VelaAgent::HwTableAdapter& table,
                      const VelaService::Thresholds& thresholds) {
  const Labels labels = labelsOf(table);
  gauge("velad_table_entries", "Entries that were announced to a table", labels,
        number(table.entries()));
  gauge("velad_table_waiting", "Those of them that the table has no room for", labels,
        number(table.waiting()));
  if (table.typed().capacity() == 0) return;
  gauge("velad_table_used", "Rows of a table that have an entry", labels,
        number(table.typed().used()));
  gauge("velad_table_peak", "The most rows that ever had one", labels,
        number(table.typed().peak()));
  // Of tables that share rows the first stands for them.
  if (table.borrowsRows()) return;
  gauge("velad_table_capacity", "Rows of a table that entries may lie in", labels,
        number(table.typed().capacity()));
  gauge("velad_table_load_ratio", "The part of them that is taken, by whatever table", labels,
        table.typed().load() / 100);
  counter("velad_table_moves_total", "Entries that moved to make room", labels,
          number(table.moves()));
  const VelaService::Thresholds::State* state = thresholds.state(table);
  if (!state) return;
  gauge("velad_table_above_threshold", "Whether a table is too full", labels, state->above);
  const auto crossings = [&](const char* direction, U64 count) {
    Labels all = labels;
    all["direction"] = direction;
    counter("velad_table_threshold_crossings_total", "How often a table crossed its marks", all,
            number(count));
  };
  crossings("up", state->rises);
  crossings("down", state->falls);
}

void Metrics::collect(const VelaService::Scrubber& scrubber) {
  counter("velad_scrubbed_rows_total", "Rows that were audited", {}, number(scrubber.rows()));
  scrubber.forEachFound([&](const auto& table, auto kind, U64 count) {
    Labels labels = labelsOf(table);
    labels["finding"] = VelaAgent::nameOf(kind);
    counter("velad_scrub_findings_total", "Rows that were found wrong", labels, number(count));
  });
  const auto last = scrubber.lastPass();
  if (!last) return;
  gauge("velad_scrub_age_seconds", "How long ago all rows had been audited", {},
        std::chrono::duration<double>(VelaService::Clock::now() - *last).count());
}

}  // namespace Velad
