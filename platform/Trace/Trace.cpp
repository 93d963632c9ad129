#include "Trace/Trace.h"

#include <algorithm>
#include <array>
#include <mutex>

namespace {

/// Guards the sink, the ring and its count. A sink may trace in turn.
std::recursive_mutex guard;

Twinlog::Sink* sink = nullptr;

std::array<Spoor::Record, Spoor::ringSize> ring;
U64 messages = 0;

std::vector<Trace::Handle*>& handles() {
  static std::vector<Trace::Handle*> all;
  return all;
}

}  // namespace

namespace Twinlog {

void sinkIs(Sink* next) {
  const std::lock_guard lock(guard);
  sink = next;
}

}  // namespace Twinlog

namespace Spoor {

std::vector<Record> records() {
  std::vector<Record> held;
  const std::lock_guard lock(guard);
  for (const Record& record : ring) {
    if (record.sequence != 0) held.push_back(record);
  }
  std::sort(held.begin(), held.end(),
            [](const Record& a, const Record& b) { return a.sequence < b.sequence; });
  return held;
}

void recordsDelAll() {
  const std::lock_guard lock(guard);
  ring.fill({});
}

}  // namespace Spoor

namespace Trace {

Handle::Handle(const char* name) : name_(name) { handles().push_back(this); }

void Handle::twinlogLevelIs(int level) {
  twinlogLevel_ = level;
  threshold_ = std::max(twinlogLevel_, spoorLevel_);
}

void Handle::spoorLevelIs(int level) {
  spoorLevel_ = level;
  threshold_ = std::max(twinlogLevel_, spoorLevel_);
}

void Handle::emit(U8 level, std::initializer_list<Orb::TextPart> parts) const {
  const std::lock_guard lock(guard);
  if (level <= spoorLevel_) {
    Spoor::Record& record = ring[messages % Spoor::ringSize];
    record.sequence = ++messages;
    record.handle = name_;
    record.level = level;
    Orb::FixedSink text(record.text, sizeof record.text);
    appendText(text, parts);
    record.length = static_cast<U8>(text.used());
  }
  if (level <= twinlogLevel_ && sink) sink->line(name_, level, Orb::joined(parts));
}

Handle* Handle::find(std::string_view name) {
  const auto at = std::find_if(handles().begin(), handles().end(),
                               [&](const Handle* handle) { return handle->name() == name; });
  return at == handles().end() ? nullptr : *at;
}

const std::vector<Handle*>& Handle::all() { return handles(); }

}  // namespace Trace
