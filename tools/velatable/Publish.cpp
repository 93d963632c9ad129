#include <chrono>
#include <iostream>
#include <optional>
#include <random>
#include <thread>

#include "Commands.h"
#include "Lines.h"
#include "Names.h"
#include "RedisConnection.h"
#include "agent/Json.h"

namespace VelaTool {

namespace {

using VelaRedis::Command;
using VelaService::StreamNames;

constexpr std::size_t linesMost = 500;  ///< Of an entry, and its bytes.
constexpr std::size_t bytesMost = std::size_t{1} << 16;
constexpr auto retryMost = std::chrono::seconds(30);
constexpr auto retryPause = std::chrono::milliseconds(300);

/// Adds a change, numbered after the one before it, when that has the number that the controller
/// knows; otherwise it answers with that one. The server carries out a script as a whole, so what
/// comes twice, or late, is told apart, and so are two controllers. A snapshot that was put
/// together takes the last one's place, and changes before it go.
constexpr const char* addChange = R"(
local function last(key)
  local to = '+'
  while true do
    local entry = redis.call('XREVRANGE', key, to, '-', 'COUNT', 1)[1]
    if not entry then return nil end
    local fields = {}
    for at = 1, #entry[2], 2 do fields[entry[2][at]] = entry[2][at + 1] end
    fields.entry = entry[1]
    local numbered = (fields.sequence or ''):match('^%d+$')
    if numbered and (fields.lines or fields.snapshot or fields.at) then return fields end
    to = '(' .. entry[1]
  end
end
local owner, field, value, known, parts = unpack(ARGV)
local changes, snapshot, next = unpack(KEYS)
local before = last(changes) or last(snapshot) or {sequence = '0'}
local ahead = tonumber(before.sequence) - tonumber(known)
if ahead ~= 0 then
  local there = ahead == 1 and before.owner == owner and before[field] == value
  return {there and before.entry or '', before.sequence, before.owner or ''}
end
if next and redis.call('XLEN', next) ~= tonumber(parts) then
  return redis.error_reply('PARTS of the snapshot were lost')
end
local sequence = string.format('%.0f', tonumber(known) + 1)
local id = redis.call('XADD', changes, '*', 'sequence', sequence, 'owner', owner, field, value)
if next then
  redis.call('XADD', next, '*', 'at', id, 'sequence', sequence, 'owner', owner, 'parts', parts)
  redis.call('RENAME', next, snapshot)
  redis.call('PERSIST', snapshot)
  redis.call('XTRIM', changes, 'MINID', id)
end
return {id, sequence, owner}
)";
/// Parts of a snapshot that is not finished within an hour go.
constexpr const char* addPart = R"(
redis.call('XADD', KEYS[1], '*', 'lines', ARGV[1])
redis.call('EXPIRE', KEYS[1], 3600)
)";

/// Names what one run has put together.
std::string randomName() {
  std::random_device random;
  return VelaAgent::hexText(U64{random()} << 32 | random(), 16);
}

/// Tells a switch what is desired, as one of its controllers.
class Publisher {
 public:
  explicit Publisher(const Options& options)
      : options_(options),
        names_(VelaService::streamNames(options.switchName)),
        connection_(options.stream, options.credentials) {}

  void publish();

 private:
  void addFile(const std::string& name);
  void addLine(const std::string& place, std::string_view line);
  void endPart();
  void addSnapshotParts();
  template <class Act>
  void persist(const Act& act);
  void change(const char* field, const std::string& value, const std::string& next = {});
  void lastIs(U64 sequence, const std::string& owner);

  const Options& options_;
  StreamNames names_;
  RedisConnection connection_;
  std::string part_;  ///< Lines of the entry that is next.
  std::size_t partLines_ = 0;
  std::vector<std::string> parts_;  ///< Of a snapshot, until all are there.
  const std::string run_ = randomName();
  U64 attempts_ = 0;  ///< To put a snapshot together.
  U64 lines_ = 0;
  U64 sets_ = 0;  ///< Those that announce.
  U64 entries_ = 0;
  std::string last_;             ///< The last entry,
  std::optional<U64> sequence_;  ///< and the number of the last in the stream, once it is known.
};

void Publisher::publish() {
  const std::vector<std::string> standardInput{"-"};
  for (const std::string& file : options_.events.empty() ? standardInput : options_.events) {
    addFile(file);
  }
  if (!options_.snapshot.empty()) {
    if (sets_ == 0 && options_.snapshot != allowEmpty) {
      throw InputException(
          "the events announce no entry, and all would go (--snapshot=empty if that is meant)");
    }
    persist([this] { addSnapshotParts(); });
  }
  const Json summary = {{"switch", options_.switchName},
                        {"lines", lines_},
                        {"entries", entries_},
                        {"position", last_},
                        {"sequence", sequence_.value_or(0)}};
  if (options_.json) {
    std::cout << summary.dump() << '\n';
  } else {
    std::cout << options_.switchName << ": " << lines_ << " lines in " << entries_ << " entries"
              << (last_.empty() ? "" : ", up to " + last_) << '\n';
  }
}

void Publisher::addFile(const std::string& name) {
  Lines lines(name);
  U64 number = 0;
  for (std::string block; lines.next(block);) {
    for (std::string_view rest = block; !rest.empty();) {
      const std::string_view line = takeLine(rest);
      addLine((name == "-" ? "stdin" : name) + ":" + std::to_string(++number) + ": ", line);
    }
    // Nobody waits for more before what came is told.
    endPart();
  }
}

void Publisher::addLine(const std::string& place, std::string_view line) {
  if (line.find_first_not_of(" \t\r") == std::string_view::npos) return;
  try {
    const Json event = VelaAgent::jsonFromText(std::string(line));
    const Json op = event.is_object() ? event.value("op", Json()) : Json();
    if (op != "set" && op != "del") {
      throw InputException("says nothing of what is desired: neither set nor del");
    }
    if (op == "set") ++sets_;
  } catch (const InputException& error) {
    // What came before it stands.
    endPart();
    throw InputException(place + error.what());
  }
  if (partLines_ == linesMost || part_.size() + line.size() > bytesMost) endPart();
  (part_ += line) += '\n';
  ++partLines_;
  ++lines_;
}

void Publisher::endPart() {
  if (part_.empty()) return;
  partLines_ = 0;
  const std::string part = std::exchange(part_, {});
  ++entries_;
  if (!options_.snapshot.empty()) return parts_.push_back(part);
  persist([&] { change("lines", part); });
}

/// A snapshot is put together beside the one that is there.
void Publisher::addSnapshotParts() {
  // What comes late of an attempt that failed is not among it.
  const std::string next = names_.snapshot + ":" + run_ + ":" + std::to_string(++attempts_);
  for (const std::string& part : parts_) connection_.ask({"EVAL", addPart, "1", next, part});
  change("snapshot", run_, next);
}

/// Does what may meet a server that is gone for a while. What is told twice changes nothing.
template <class Act>
void Publisher::persist(const Act& act) {
  const auto end = std::chrono::steady_clock::now() + retryMost;
  for (;;) {
    try {
      return act();
    } catch (const ServerGone&) {
      if (std::chrono::steady_clock::now() >= end) throw;
      std::this_thread::sleep_for(retryPause);
    }
  }
}

/// `next` is the snapshot that was put together, where there is one.
void Publisher::change(const char* field, const std::string& value, const std::string& next) {
  for (;;) {
    Command command{"EVAL", addChange, next.empty() ? "2" : "3", names_.changes, names_.snapshot};
    if (!next.empty()) command.push_back(next);
    command.insert(command.end(),
                   {options_.owner, field, value, sequence_ ? std::to_string(*sequence_) : "-1",
                    std::to_string(parts_.size())});
    const auto reply = connection_.ask(command);
    if (reply->elements != 3) throw InputException("an answer that names no change");
    const std::string entry = VelaRedis::textOf(*reply->element[0]);
    const auto sequence = Orb::fromText<U64>(VelaRedis::textOf(*reply->element[1]));
    if (entry.empty()) {
      lastIs(sequence, VelaRedis::textOf(*reply->element[2]));
      continue;
    }
    last_ = entry;
    sequence_ = sequence;
    return;
  }
}

/// The last change is not the one that was known.
void Publisher::lastIs(U64 sequence, const std::string& owner) {
  // Whoever takes the switch back meanwhile is not taken over again.
  const bool takesOver = options_.takeOver && !sequence_;
  if (!owner.empty() && owner != options_.owner && !takesOver) {
    throw InputException(options_.switchName + " is " + owner +
                         "'s, who published last (--take-over if that is meant)");
  }
  if (sequence_ && sequence < *sequence_) {
    throw InputException("the server lost changes " + std::to_string(sequence + 1) + " to " +
                         std::to_string(*sequence_) + " of " + options_.switchName +
                         " (--snapshot tells anew what is desired)");
  }
  sequence_ = sequence;
}

}  // namespace

int publish(const Options& options) {
  Publisher(options).publish();
  return exitGood;
}

}  // namespace VelaTool
