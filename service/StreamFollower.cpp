#include "service/StreamFollower.h"

#include <algorithm>

#include "agent/EventReader.h"
#include "service/RouteService.h"

namespace VelaService {

using VelaAgent::EventReader;
using VelaAgent::EventRunner;
using VelaAgent::Json;
using VelaAgent::TableAdapter;

namespace {

/// Lines of a load that are applied at a time, so that whoever asks is answered between them.
constexpr std::size_t partLines = 512;
/// Lines that wait for the stream of statuses while it cannot be reached.
constexpr std::size_t unsentMost = 4096;

std::string entryName(const TableAdapter& table, const Json& key) {
  return table.fullName() + " " + key.dump();
}

/// Hands each line to `take`, with its number from 1 and how many bytes lie behind it.
template <class Take>
void forEachLine(std::string_view text, const Take& take) {
  U64 number = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    ++number;
    if (line.find_first_not_of(" \r\t") != std::string_view::npos) take(line, number, text.size());
  }
}

}  // namespace

StreamFollower::StreamFollower(VelaAgent::Agent& agent, StreamSettings settings, bool restarted,
                               Warn warn)
    : agent_(agent),
      settings_(std::move(settings)),
      file_(settings_.positionFile, settings_.switchName),
      warn_(std::move(warn)),
      rebuilt_(restarted) {
  saved_ = file_.read();
  beginLoad(saved_);
}

const char* StreamFollower::ownerOf(const TableAdapter& table) const {
  return settings_.routesAreOthers && isRouteTable(agent_, table) ? "the sources'" : nullptr;
}

void StreamFollower::connected() {
  connected_ = true;
  unconfirmed_ = true;
  if (phase_ != Phase::applying && phase_ != Phase::following) beginLoad(target_);
}

std::optional<StreamFollower::Reading> StreamFollower::reading() const {
  using Stream = Reading::Stream;
  if (!idle()) return std::nullopt;
  switch (phase_) {
    case Phase::snapshot:
      return Reading{Stream::snapshot, read_, false, false};
    case Phase::changes:
      return Reading{Stream::changes, taken_.id, false, false};
    case Phase::following:
      return unconfirmed_ ? Reading{Stream::changes, position_.id, true, false}
                          : Reading{Stream::changes, position_.id, false, true};
    case Phase::applying:
    case Phase::lacking:
      break;
  }
  return std::nullopt;
}

void StreamFollower::take(const std::vector<StreamEntry>& entries) {
  if (phase_ == Phase::snapshot) return takeSnapshot(entries);
  if (phase_ == Phase::changes) return takeChanges(entries);
  if (!unconfirmed_) return takeNews(entries);
  unconfirmed_ = false;
  const bool none = position_.sequence == 0;
  const auto change = entries.size() == 1 ? read(entries.front()) : std::nullopt;
  const bool there = change && StreamPosition{entries[0].id, change->sequence} == position_;
  if (!none && !there) beginLoad({});
}

void StreamFollower::beginLoad(const StreamPosition& target) {
  phase_ = Phase::snapshot;
  target_ = target;
  reload_ = false;
  desired_.clear();
  read_ = {};
  parts_ = 0;
}

void StreamFollower::takeSnapshot(const std::vector<StreamEntry>& entries) {
  if (entries.empty()) {
    return parts_ == 0 ? snapshotRead({}) : lack("the snapshot has no end");
  }
  for (const StreamEntry& entry : entries) {
    read_ = entry.id;
    if (!isSnapshotEnd(entry)) {
      const auto lines = entry.fields.find("lines");
      if (lines != entry.fields.end()) fold(entry.id, lines->second);
      ++parts_;
      continue;
    }
    try {
      const SnapshotEnd end = snapshotEndOf(entry);
      if (end.parts == parts_) return snapshotRead(end.at);
    } catch (const std::exception& error) {
      return lack(error.what());
    }
    // Another took its place amid the reading, and is read next.
    wantsSnapshot_ = true;
    phase_ = Phase::lacking;
    return;
  }
}

void StreamFollower::snapshotRead(const StreamPosition& at) {
  phase_ = Phase::changes;
  taken_ = at;
  if (target_.sequence != 0 && target_ == at) beginApplying();
}

void StreamFollower::takeChanges(const std::vector<StreamEntry>& entries) {
  for (const StreamEntry& entry : entries) {
    const auto change = read(entry);
    if (change && change->snapshot) return beginLoad(target_);
    if (change && change->sequence != taken_.sequence + 1) {
      return lack("changes " + std::to_string(taken_.sequence + 1) + " to " +
                  std::to_string(change->sequence - 1) + " are gone, and no snapshot has them");
    }
    if (change) fold(entry.id, change->lines);
    taken_ = {entry.id, change ? change->sequence : taken_.sequence};
    if (target_.sequence != 0 && taken_ == target_) return beginApplying();
  }
  if (entries.empty()) beginApplying();
}

void StreamFollower::takeNews(const std::vector<StreamEntry>& entries) {
  for (const StreamEntry& entry : entries) {
    auto change = read(entry);
    if (change && (change->snapshot || change->sequence != taken_.sequence + 1)) {
      reload_ = true;
      break;
    }
    taken_ = {entry.id, change ? change->sequence : taken_.sequence};
    queue_.push_back({change ? std::move(change->lines) : "", entry.id, taken_});
  }
  if (reload_ && queue_.empty()) beginLoad({});
}

void StreamFollower::lack(const std::string& why) {
  // It is told once; what follows is in each report.
  if (!std::exchange(wantsSnapshot_, true)) warn_("a snapshot is wanted: " + why);
  phase_ = Phase::lacking;
}

void StreamFollower::retry() {
  if (phase_ == Phase::lacking) beginLoad(target_);
  if (!(saved_ == position_) && idle()) save();
}

/// The change that an entry is; one that is none is passed over.
std::optional<Change> StreamFollower::read(const StreamEntry& entry) {
  try {
    return changeOf(entry);
  } catch (const std::exception& error) {
    invalid(entry.id, 0, error.what());
    return std::nullopt;
  }
}

void StreamFollower::fold(const EntryId& entry, const std::string& lines) {
  EventRunner runner(agent_);
  runner.ownersAre([this](const TableAdapter& table) { return ownerOf(table); });
  forEachLine(lines, [&](std::string_view line, U64 number, std::size_t) {
    try {
      const auto desire = runner.desireOf(line);
      if (!desire) return;
      const std::string name = entryName(*desire->table, desire->key);
      if (desire->withdraws) {
        desired_.erase(name);
      } else {
        desired_[name] = {++announcements_, std::string(line)};
      }
    } catch (const std::exception& error) {
      invalid(entry, number, error.what());
    }
  });
}

void StreamFollower::beginApplying() {
  phase_ = Phase::applying;
  wantsSnapshot_ = false;
  std::vector<Last*> all;
  all.reserve(desired_.size());
  for (auto& [name, last] : desired_) all.push_back(&last);
  std::sort(all.begin(), all.end(),
            [](const Last* a, const Last* b) { return a->number < b->number; });
  for (std::size_t number = 0; number < all.size(); ++number) {
    if (number % partLines == 0) queue_.push_back({"", taken_.id, std::nullopt});
    (queue_.back().lines += std::exchange(all[number]->line, {})) += '\n';
  }
}

void StreamFollower::work() {
  working_ = true;
  workOnQueue();
  working_ = false;
}

void StreamFollower::workOnQueue() {
  if (!queue_.empty()) {
    apply(queue_.front());
    if (queue_.front().after) position_ = *queue_.front().after;
    queue_.pop_front();
    if (!queue_.empty()) return;
  }
  if (phase_ == Phase::applying) endLoad();
  save();
  if (reload_) beginLoad({});
}

/// All that is desired was announced: the rest goes.
void StreamFollower::endLoad() {
  // Rows of no entry are brought to their default; where routes are others' they say when.
  if (std::exchange(rebuilt_, false) && !settings_.routesAreOthers) agent_.complete();
  for (TableAdapter* table : agent_.announced()) {
    if (ownerOf(*table)) continue;
    withdrawUndesired(*table);
    table->typed().reconcile([](const auto&) {});
  }
  agent_.settle();
  desired_.clear();
  position_ = taken_;
  phase_ = Phase::following;
  ++loads_;
}

void StreamFollower::withdrawUndesired(TableAdapter& table) {
  std::vector<VelaAgent::AnyValue> undesired;
  table.typed().forEachEntry([&](VelaAgent::AnyRef key, VelaAgent::AnyRef) {
    if (desired_.contains(entryName(table, table.keyToJson(key)))) return;
    // Entries of route levels come and go with the routes.
    if (!agent_.standsForRoutes(table, key)) undesired.push_back(VelaAgent::AnyValue::of(key));
  });
  for (const auto& key : undesired) table.typed().withdraw(key);
  agent_.settle();
}

void StreamFollower::apply(const Part& part) {
  EventRunner runner(agent_);
  runner.desiresOnlyIs(true);
  runner.ownersAre([this](const TableAdapter& table) { return ownerOf(table); });
  runner.resultListenerIs([this](const std::string& line) { tell(line); });
  const auto attempt = [&](const auto& act) {
    try {
      act();
    } catch (const std::exception& error) {
      invalid(part.entry, runner.lineNumber(), error.what());
    }
  };
  std::string text = part.lines;
  text.append(EventReader::padding, ' ');
  forEachLine(text, [&](std::string_view line, U64 number, std::size_t behind) {
    ++lines_;
    attempt([&] { runner.takeLine(line, behind, number); });
  });
  attempt([&] { runner.flush(); });
}

/// The registers go to disk before the position that says so.
void StreamFollower::save() {
  try {
    agent_.chip().sync();
    file_.write(position_);
    saved_ = position_;
    warned_ = false;
  } catch (const std::exception& error) {
    if (!std::exchange(warned_, true)) warn_(error.what());
  }
}

void StreamFollower::invalid(const EntryId& entry, U64 line, const std::string& why) {
  ++invalid_;
  Json told = {{"invalid", why}, {"entry", toText(entry)}};
  if (line != 0) told["line"] = line;
  // What is wrong may be the bytes of a text.
  tell(told.dump(-1, ' ', false, Json::error_handler_t::replace));
}

Json StreamFollower::report() const {
  U64 entries = 0;
  U64 refused = 0;
  for (const TableAdapter* table : agent_.announced()) {
    if (ownerOf(*table)) continue;
    // Routes are counted, not what they are spread over.
    if (!isRouteLevel(agent_, *table)) entries += table->entries();
    refused += table->refused();
  }
  U64 findings = 0;
  if (scrubber_) {
    scrubber_->forEachFound([&](const auto&, auto, U64 count) { findings += count; });
  }
  return {{"position", toText(position_.id)},
          {"sequence", position_.sequence},
          {"wantsSnapshot", wantsSnapshot_},
          {"loads", loads_},
          {"lines", lines_},
          {"invalid", invalid_},
          {"entries", entries},
          {"refused", refused},
          {"findings", findings},
          {"dropped", dropped_},
          {"rowWrites", agent_.recorder().rowWrites()}};
}

void StreamFollower::told(U64, std::string_view line) {
  if (!working_) tell(std::string(line));
}

void StreamFollower::tell(std::string line) {
  unsent_.push_back(std::move(line));
  if (unsent_.size() <= unsentMost) return;
  unsent_.pop_front();
  if (sending_ > 0) --sending_;
  ++dropped_;
}

std::string StreamFollower::unsent(std::size_t bytes) {
  std::string all;
  for (sending_ = 0; sending_ < unsent_.size() && all.size() < bytes; ++sending_) {
    (all += unsent_[sending_]) += '\n';
  }
  return all;
}

void StreamFollower::sent() {
  unsent_.erase(unsent_.begin(), unsent_.begin() + static_cast<std::ptrdiff_t>(sending_));
  sending_ = 0;
}

}  // namespace VelaService
