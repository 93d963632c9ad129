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
/// Bytes of lines that wait for the stream of statuses while it cannot be reached.
constexpr std::size_t unsentMost = std::size_t{1} << 20;
/// Reads without news between two that look whether the stream is what it was.
constexpr U64 quietMost = 8;
/// Calls of retry() between two readings of what does not say what is desired.
constexpr U64 pauseMost = 60;

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
  position_ = saved_ = file_.read().value_or(StreamPosition());
  beginLoad(saved_);
}

const char* StreamFollower::ownerOf(const TableAdapter& table) const {
  return settings_.routesAreOthers && isRouteTable(agent_, table) ? "the sources'" : nullptr;
}

void StreamFollower::connected() {
  connected_ = true;
  unconfirmed_ = true;
  seen_ = {};
  if (phase_ == Phase::lacking) beginLoad(target_);
}

/// The entry that was read last.
EntryId StreamFollower::place() const { return phase_ == Phase::snapshot ? read_ : taken_.id; }

/// Whether it is looked up before what comes behind it is read.
bool StreamFollower::confirms() const { return unconfirmed_ && place() != EntryId(); }

std::optional<StreamFollower::Reading> StreamFollower::reading() const {
  using Stream = Reading::Stream;
  if (!idle()) return std::nullopt;
  if (phase_ == Phase::lacking) return Reading{Stream::snapshot, seen_, false, true};
  return Reading{phase_ == Phase::snapshot ? Stream::snapshot : Stream::changes, place(),
                 confirms(), !confirms() && phase_ == Phase::following};
}

void StreamFollower::take(const std::vector<StreamEntry>& entries) {
  if (phase_ == Phase::lacking) {
    if (!entries.empty()) {
      seen_ = entries.back().id;
      pause_ = 1;
    } else if (wait_ > 0) {
      return;
    }
    return beginLoad(target_);
  }
  const bool confirmation = confirms();
  unconfirmed_ = false;
  if (confirmation) {
    if (entries.empty()) beginLoad(phase_ == Phase::following ? StreamPosition() : target_);
    return;
  }
  if (phase_ == Phase::snapshot) return takeSnapshot(entries);
  phase_ == Phase::changes ? takeChanges(entries) : takeNews(entries);
}

void StreamFollower::beginLoad(const StreamPosition& target) {
  phase_ = Phase::snapshot;
  target_ = target;
  reload_ = false;
  desired_.clear();
  read_ = {};
  parts_ = 0;
  wrong_ = 0;
  whole_ = false;
}

void StreamFollower::takeSnapshot(const std::vector<StreamEntry>& entries) {
  if (entries.empty()) {
    return parts_ == 0 ? snapshotRead({}) : lack("the one that is there has no end");
  }
  for (const StreamEntry& entry : entries) {
    read_ = entry.id;
    seen_ = std::max(seen_, read_);
    if (!isSnapshotEnd(entry)) {
      const auto lines = entry.fields.find("lines");
      if (lines != entry.fields.end()) fold(entry.id, lines->second);
      ++parts_;
      continue;
    }
    try {
      const SnapshotEnd end = snapshotEndOf(entry);
      if (end.parts == parts_) {
        if (desired_.empty() && wrong_ > 0)
          return lack("no line of the one that is there is right");
        whole_ = true;
        return snapshotRead(end.at);
      }
    } catch (const std::exception& error) {
      return lack(error.what());
    }
    if (replaced_ == read_) return lack("the one that is there lacks parts");
    // It took another's place amid the reading.
    replaced_ = read_;
    return beginLoad(target_);
  }
}

void StreamFollower::snapshotRead(const StreamPosition& at) {
  phase_ = Phase::changes;
  takenIs(at);
  if (target_.sequence != 0 && target_ == at) beginApplying();
}

void StreamFollower::takenIs(const StreamPosition& taken) {
  taken_ = taken;
  const bool begins = taken_.id == EntryId();
  if (taken_.id == position_.id && !(begins && holdsEntries())) whole_ = true;
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
    takenIs({entry.id, change ? change->sequence : taken_.sequence});
    if (target_.sequence != 0 && taken_ == target_) return beginApplying();
  }
  if (!entries.empty()) return;
  whole_ ? beginApplying()
         : lack("there is none, and the changes do not lead on from what it holds");
}

void StreamFollower::takeNews(const std::vector<StreamEntry>& entries) {
  if (entries.empty() && ++quiet_ >= quietMost) {
    quiet_ = 0;
    unconfirmed_ = true;
  }
  for (const StreamEntry& entry : entries) {
    auto change = read(entry);
    if (change && (change->snapshot || change->sequence != taken_.sequence + 1)) {
      reload_ = true;
      break;
    }
    taken_ = {entry.id, change ? change->sequence : taken_.sequence};
    enqueue(change ? std::move(change->lines) : "", entry.id, taken_);
  }
  if (reload_ && queue_.empty()) beginLoad({});
}

void StreamFollower::lack(const std::string& why) {
  // It is told once; what follows is in each report.
  if (!std::exchange(wantsSnapshot_, true)) warn_("a snapshot is wanted: " + why);
  phase_ = Phase::lacking;
  wait_ = pause_;
  pause_ = std::min(2 * pause_, pauseMost);
}

void StreamFollower::retry() {
  if (wait_ > 0) --wait_;
  if (!(saved_ == position_) && idle()) save();
}

/// The change that an entry is; one that is none is passed over.
std::optional<Change> StreamFollower::read(const StreamEntry& entry) {
  try {
    return changeOf(entry);
  } catch (const std::exception& error) {
    readInvalid(entry.id, 0, error.what());
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
      ++wrong_;
      readInvalid(entry, number, error.what());
    }
  });
}

void StreamFollower::beginApplying() {
  phase_ = Phase::applying;
  wantsSnapshot_ = false;
  pause_ = 1;
  std::vector<Last*> all;
  all.reserve(desired_.size());
  for (auto& [name, last] : desired_) all.push_back(&last);
  std::sort(all.begin(), all.end(),
            [](const Last* a, const Last* b) { return a->number < b->number; });
  for (std::size_t begin = 0; begin < all.size(); begin += partLines) {
    std::string lines;
    const std::size_t end = std::min(begin + partLines, all.size());
    for (std::size_t at = begin; at < end; ++at) {
      (lines += std::exchange(all[at]->line, {})) += '\n';
    }
    enqueue(std::move(lines), taken_.id, std::nullopt);
  }
}

void StreamFollower::enqueue(std::string lines, const EntryId& entry,
                             std::optional<StreamPosition> after) {
  U64 count = 0;
  forEachLine(lines, [&](std::string_view, U64, std::size_t) { ++count; });
  queued_ += count;
  queue_.push_back({std::move(lines), count, entry, after});
}

void StreamFollower::work() {
  working_ = true;
  workOnQueue();
  working_ = false;
}

void StreamFollower::workOnQueue() {
  if (!queue_.empty()) {
    if (position_.id == EntryId()) {
      // Killed amid its first lines, the switch has entries, and they are of these streams.
      position_.id = queue_.front().entry;
      save();
    }
    apply(queue_.front());
    if (queue_.front().after) position_ = *queue_.front().after;
    lines_ += queue_.front().count;
    queued_ -= queue_.front().count;
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
      if (part.after)
        invalidTold_[2] = std::max(invalidTold_[2], {part.entry, runner.lineNumber()});
    }
  };
  std::string text = part.lines;
  text.append(EventReader::padding, ' ');
  forEachLine(text, [&](std::string_view line, U64 number, std::size_t behind) {
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

bool StreamFollower::holdsEntries() const {
  const auto tables = agent_.announced();
  return std::any_of(tables.begin(), tables.end(), [this](const TableAdapter* table) {
    return !ownerOf(*table) && table->entries() + table->unclaimed() > 0;
  });
}

/// What is read again was told before.
void StreamFollower::readInvalid(const EntryId& entry, U64 line, const std::string& why) {
  const std::size_t kind = phase_ == Phase::snapshot ? 1 : 2;
  auto& told = invalidTold_[line == 0 ? 0 : kind];
  const std::pair place(entry, line);
  if (place <= told) return;
  told = place;
  invalid(entry, line, why);
}

void StreamFollower::invalid(const EntryId& entry, U64 line, const std::string& why) {
  ++invalid_;
  Json told = {{"invalid", VelaAgent::quoted(why)}, {"entry", toText(entry)}};
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
  return {{"position", toText(position_.sequence == 0 ? EntryId() : position_.id)},
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
  unsentBytes_ += line.size();
  unsent_.push_back(std::move(line));
  while (unsentBytes_ > unsentMost) {
    unsentBytes_ -= unsent_.front().size();
    unsent_.pop_front();
    if (sending_ > 0) --sending_;
    ++dropped_;
  }
}

std::string StreamFollower::unsent(std::size_t bytes) {
  std::string all;
  for (sending_ = 0; sending_ < unsent_.size(); ++sending_) {
    const std::string& line = unsent_[sending_];
    if (!all.empty() && all.size() + line.size() >= bytes) break;
    (all += line) += '\n';
  }
  return all;
}

void StreamFollower::sent() {
  for (; sending_ > 0; --sending_) {
    unsentBytes_ -= unsent_.front().size();
    unsent_.pop_front();
  }
}

}  // namespace VelaService
