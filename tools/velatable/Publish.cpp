#include <chrono>
#include <iostream>
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

/// Each change is numbered after the one before it, and names its controller. The server carries
/// out a script as a whole: of two controllers one is refused.
constexpr const char* nextChange = R"(
local last = redis.call('XREVRANGE', KEYS[1], '+', '-', 'COUNT', 1)[1]
local sequence = '1'
if last then
  local fields = {}
  for at = 1, #last[2], 2 do fields[last[2][at]] = last[2][at + 1] end
  if not tonumber(fields.sequence) or not fields.owner then
    return redis.error_reply('FOREIGN ' .. last[1])
  end
  if fields.owner ~= ARGV[1] and ARGV[2] ~= '1' then
    return redis.error_reply('OWNER ' .. fields.owner)
  end
  sequence = string.format('%.0f', tonumber(fields.sequence) + 1)
end
)";
constexpr const char* addChange = R"(
local id = redis.call('XADD', KEYS[1], '*', 'sequence', sequence, 'owner', ARGV[1], 'lines', ARGV[3])
return id .. ' ' .. sequence
)";
/// The snapshot that was put together takes the last one's place, and changes before it go.
constexpr const char* addSnapshot = R"(
if redis.call('XLEN', KEYS[2]) ~= tonumber(ARGV[3]) then
  return redis.error_reply('PARTS were lost')
end
local id = redis.call('XADD', KEYS[1], '*', 'sequence', sequence, 'owner', ARGV[1], 'snapshot', '1')
redis.call('XADD', KEYS[2], '*', 'at', id, 'sequence', sequence, 'parts', ARGV[3])
redis.call('RENAME', KEYS[2], KEYS[3])
redis.call('PERSIST', KEYS[3])
redis.call('XTRIM', KEYS[1], 'MINID', id)
return id .. ' ' .. sequence
)";

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
  void change(const char* script, std::vector<std::string> keys, const std::string& argument);

  const Options& options_;
  StreamNames names_;
  RedisConnection connection_;
  std::string part_;  ///< Lines of the entry that is next.
  std::size_t partLines_ = 0;
  std::vector<std::string> parts_;  ///< Of a snapshot, until all are there.
  bool takesOver_ = options_.takeOver;
  U64 lines_ = 0;
  U64 entries_ = 0;
  std::string last_;  ///< The last entry: its id and its number.
};

void Publisher::publish() {
  const std::vector<std::string> standardInput{"-"};
  for (const std::string& file : options_.events.empty() ? standardInput : options_.events) {
    addFile(file);
  }
  if (!options_.snapshot.empty()) {
    if (lines_ == 0 && options_.snapshot != allowEmpty) {
      throw InputException(
          "the events announce no entry, and all would go (--snapshot=empty if that is meant)");
    }
    persist([this] { addSnapshotParts(); });
  }
  const std::size_t space = last_.find(' ');
  const Json summary = {
      {"switch", options_.switchName},
      {"lines", lines_},
      {"entries", entries_},
      {"position", last_.substr(0, space)},
      {"sequence", space == std::string::npos ? 0 : Orb::fromText<U64>(last_.substr(space + 1))}};
  if (options_.json) {
    std::cout << summary.dump() << '\n';
  } else {
    std::cout << options_.switchName << ": " << lines_ << " lines in " << entries_ << " entries"
              << (last_.empty() ? "" : ", up to " + summary["position"].get<std::string>()) << '\n';
  }
}

void Publisher::addFile(const std::string& name) {
  Lines lines(name);
  U64 number = 0;
  for (;;) {
    // Nobody waits for more before what came is told.
    if (!lines.ready()) endPart();
    const auto line = lines.next();
    if (!line) break;
    addLine((name == "-" ? "stdin" : name) + ":" + std::to_string(++number) + ": ", *line);
  }
  endPart();
}

void Publisher::addLine(const std::string& place, std::string_view line) {
  if (line.find_first_not_of(" \t\r") == std::string_view::npos) return;
  try {
    const Json event = VelaAgent::jsonFromText(std::string(line));
    const Json op = event.is_object() ? event.value("op", Json()) : Json();
    if (op != "set" && op != "del") {
      throw InputException("says nothing of what is desired: neither set nor del");
    }
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
  persist([&] { change(addChange, {names_.changes}, part); });
}

/// A snapshot is put together beside the one that is there.
void Publisher::addSnapshotParts() {
  const std::string next = names_.snapshot + ":" + options_.owner;
  constexpr const char* hour = "3600";
  connection_.ask({"DEL", next});
  for (const std::string& part : parts_) {
    connection_.ask({"XADD", next, "*", "lines", part});
    connection_.ask({"EXPIRE", next, hour});
  }
  change(addSnapshot, {names_.changes, next, names_.snapshot}, std::to_string(parts_.size()));
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

void Publisher::change(const char* script, std::vector<std::string> keys,
                       const std::string& argument) {
  Command command{"EVAL", std::string(nextChange) + script, std::to_string(keys.size())};
  command.insert(command.end(), keys.begin(), keys.end());
  command.insert(command.end(), {options_.owner, takesOver_ ? "1" : "0", argument});
  try {
    last_ = VelaRedis::textOf(*connection_.ask(command));
  } catch (const ServerGone&) {
    throw;
  } catch (const InputException& error) {
    const std::string text = error.what();
    const std::string what = text.substr(text.find(' ') + 1);
    if (text.starts_with("OWNER ")) {
      throw InputException(options_.switchName + " is " + what +
                           "'s, who published last (--take-over if that is meant)");
    }
    if (text.starts_with("FOREIGN ")) {
      throw InputException("entry " + what + " of " + names_.changes + " is no change");
    }
    throw;
  }
  // Whoever takes the switch back meanwhile is not taken over again.
  takesOver_ = false;
}

}  // namespace

int publish(const Options& options) {
  Publisher(options).publish();
  return exitGood;
}

}  // namespace VelaTool
