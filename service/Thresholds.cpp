#include "service/Thresholds.h"

#include <cmath>

#include "agent/TableAdapter.h"

namespace VelaService {

using VelaAgent::HwTableAdapter;

bool Thresholds::hasMarks(const HwTableAdapter& table) {
  return !table.borrowsRows() && table.typed().capacity() != 0;
}

void Thresholds::check() {
  for (const auto& table : agent_.tables()) {
    if (!hasMarks(*table)) continue;
    const Marks& marks = settings_.of(table->name());
    const double load = table->typed().load();
    State& state = states_[table.get()];
    const bool above = load > (state.above ? marks.low : marks.high);
    if (above == state.above) continue;
    state.above = above;
    ++(above ? state.rises : state.falls);
    watch_.tell("threshold", {{"table", table->name()},
                              {"instance", table->instance()},
                              {"above", above},
                              {"mark", above ? marks.high : marks.low},
                              {"load", load},
                              {"capacity", table->typed().capacity()}});
    watch_.notice(Orb::text("threshold: ", table->fullName(), " is ", std::lround(load),
                            above ? " % full, too much" : " % full, no more too much"));
  }
}

const Thresholds::State* Thresholds::state(const HwTableAdapter& table) const {
  const auto at = states_.find(&table);
  return at == states_.end() ? nullptr : &at->second;
}

}  // namespace VelaService
