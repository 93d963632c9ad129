#include <algorithm>

#include "Fuzz.h"
#include "service/StreamFollower.h"

// Whatever entries of streams say: a snapshot of nothing behind it leaves nothing in the switch.

namespace {

using VelaService::StreamEntry;

/// The follower outlives an input, so that inputs meet what others left.
struct Followed {
  VelaFuzz::Rig rig{"vela-20-4.0"};
  VelaService::StreamFollower follower{rig.agent, {}, false, [](const std::string&) {}};

  /// Hands over entries as if they were what was asked for.
  void take(const std::vector<StreamEntry>& entries) {
    if (!follower.reading()) follower.retry();
    follower.take(entries);
    while (!follower.idle()) follower.work();
  }
  /// Whatever it is amid, has it read that nothing is desired.
  void empty(U64& number) {
    for (bool emptied = false;;) {
      if (!follower.reading()) follower.retry();
      const auto reading = follower.reading();
      if (reading->news && emptied) return;
      std::vector<StreamEntry> entries;
      if (reading->news) {
        entries = {{{++number, 0}, {{"sequence", "0"}, {"snapshot", "1"}}}};
      } else if (reading->stream == VelaService::StreamFollower::Reading::Stream::snapshot &&
                 reading->from == VelaService::EntryId()) {
        entries = {{{++number, 0}, {{"at", "1-0"}, {"sequence", "7"}, {"parts", "0"}}}};
        emptied = true;
      }
      take(entries);
    }
  }
};

/// An entry of a text of lines: its name and value in turn. The lines of a value end in tabs.
StreamEntry entryOf(std::string_view text, U64 number) {
  StreamEntry entry{{number, 0}, {}};
  std::string name;
  for (bool isName = true; !text.empty(); isName = !isName) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string part(text.substr(0, end));
    std::replace(part.begin(), part.end(), '\t', '\n');
    text.remove_prefix(std::min(end + 1, text.size()));
    if (isName) {
      name = part;
    } else {
      entry.fields[name] = part;
    }
  }
  return entry;
}

}  // namespace

/// Entries end with a zero. Each is handed over for itself.
extern "C" int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
  static Followed followed;
  static U64 number = 0;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  const bool fatal = VelaFuzz::refusable([&] {
    followed.follower.connected();
    while (!text.empty()) {
      const std::size_t end = std::min(text.find('\0'), text.size());
      followed.take({entryOf(text.substr(0, end), ++number)});
      text.remove_prefix(std::min(end + 1, text.size()));
      if (end == 0) followed.take({});
    }
  });
  if (fatal) __builtin_trap();
  followed.empty(number);
  followed.follower.unsent(~std::size_t{0});
  followed.follower.sent();
  if (followed.rig.agent.announcedEntries() != 0) __builtin_trap();
  return 0;
}
