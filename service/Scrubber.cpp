#include "service/Scrubber.h"

#include <algorithm>

#include "agent/Events.h"

namespace VelaService {

using VelaAgent::HwTableAdapter;

Scrubber::Scrubber(VelaAgent::Agent& agent, Watch& watch) : agent_(agent), watch_(watch) {
  for (const auto& table : agent_.tables()) {
    for (const auto& [id, hwTable] : table->convertor().hwTables()) {
      const auto& rows = hwTable->descriptor();
      parts_.push_back({table.get(), id, rows.first, rows.last});
    }
  }
  index_ = parts_.front().first;
}

void Scrubber::tick(Clock::time_point now) {
  constexpr double mostAtATime = 10000;
  const double seconds = std::chrono::duration<double>(now - at_.value_or(now)).count();
  at_ = now;
  due_ = std::min(due_ + settings_.rows * seconds, mostAtATime);
  for (; due_ >= 1; --due_) step(now);
}

void Scrubber::step(Clock::time_point now) {
  const Part part = parts_[part_];
  ++rows_;
  if (part.table->typed().rowGood(part.id, index_)) {
    if (++index_ > part.last) nextPart(now);
    return;
  }
  audit(*part.table);
  do {
    const Part& audited = parts_[part_];
    const U32 rows = audited.last - audited.first + 1;
    rows_ += rows;
    due_ -= rows;
    nextPart(now);
  } while (part_ != 0 && parts_[part_].table == part.table);
}

void Scrubber::nextPart(Clock::time_point now) {
  if (++part_ == parts_.size()) {
    part_ = 0;
    ++passes_;
    lastPass_ = now;
  }
  index_ = parts_[part_].first;
}

void Scrubber::audit(HwTableAdapter& table) {
  table.audit();
  const auto findings = table.findings();
  if (settings_.repair && !findings.empty()) {
    table.repair();
    agent_.settle();
  }
  std::size_t repairs = 0;
  for (const auto& finding : findings) {
    ++found_[{&table, finding.kind}];
    VelaAgent::Json line = {{"table", table.name()}, {"instance", table.instance()}};
    line.update(VelaAgent::findingLine(finding));
    const bool repaired =
        settings_.repair && finding.index &&
        table.typed().rowGood(finding.hwTable->descriptor().identity.id, *finding.index);
    line["repaired"] = repaired;
    repairs += repaired;
    watch_.tell("finding", line);
  }
  if (findings.empty()) return;
  watch_.notice(Orb::text("scrub: ", table.fullName(), ": ", findings.size(),
                          " findings, of which ", repairs, " are repaired"));
}

}  // namespace VelaService
