#include "Input.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <future>
#include <iostream>

#include "Lines.h"
#include "Progress.h"
#include "agent/JsonText.h"
#include "agent/Profiles.h"
#include "agent/RouteEntries.h"

namespace VelaTool {

using VelaAgent::EntryEvent;
using VelaAgent::EventReader;
using VelaDevice::Memory;

namespace {

/// The size of a file that is read; 0 where nobody knows.
double sizeOf(const std::string& file) {
  std::error_code error;
  const auto size = std::filesystem::file_size(file, error);
  return error ? 0 : static_cast<double>(size);
}

/// The file of "sim:FILE".
std::string fileOf(const std::string& device, const char* choices) {
  if (!device.starts_with("sim:")) {
    throw InputException(std::string("--device is ") + choices + ", not \"" + device + "\"");
  }
  return device.substr(4);
}

template <class MemoryOf>
SimulatedSwitch open(const std::string& file, const MemoryOf& memoryOf) {
  try {
    return SimulatedSwitch(memoryOf(file));
  } catch (const VelaDevice::ImageException& error) {
    throw InputException(file + ": " + error.what());
  }
}

std::string savedFile(const std::string& device) {
  std::string file = fileOf(device, "\"sim:FILE\"");
  if (!std::filesystem::exists(file)) throw InputException("cannot read " + file);
  return file;
}

}  // namespace

std::optional<std::ofstream> outputFile(const std::string& name) {
  if (name.empty()) return std::nullopt;
  std::ofstream file(name);
  if (!file) throw InputException("cannot write " + name);
  return file;
}

void finish(std::ostream& out, const std::string& name) {
  out.flush();
  if (!out) throw InputException("cannot write " + name);
}

void checkFiles(const Options& options) {
  namespace fs = std::filesystem;
  std::vector<std::string> kept = options.events;
  for (const std::string& name : options.events) {
    if (name == "-") continue;
    if (fs::is_directory(name)) throw InputException(name + " is a directory");
    if (!std::ifstream(name)) throw InputException("cannot read " + name);
  }
  if (options.device.starts_with("sim:")) kept.push_back(options.device.substr(4));
  for (const std::string& output :
       {options.output, options.rows, options.writes, options.status, options.results}) {
    for (const std::string& name : kept) {
      std::error_code error;
      if (output == "-" || !fs::is_regular_file(output, error)) continue;
      if (fs::equivalent(name, output, error)) {
        throw InputException(output + " is read: it cannot be written to");
      }
    }
  }
}

SimulatedSwitch openDevice(const std::string& device) {
  if (device == "sim") return {};
  return open(fileOf(device, "\"sim\" or \"sim:FILE\""),
              [](const std::string& file) { return Memory(file); });
}

SimulatedSwitch openCopy(const std::string& device) {
  if (device == "sim") return {};
  const std::string file = fileOf(device, "\"sim\" or \"sim:FILE\"");
  if (!std::filesystem::exists(file)) return {};
  return open(file, Memory::copyOf);
}

SimulatedSwitch openSaved(const std::string& device) {
  return open(savedFile(device), [](const std::string& file) { return Memory(file); });
}

SimulatedSwitch copySaved(const std::string& device) {
  return open(savedFile(device), Memory::copyOf);
}

Json keyFromText(const std::string& table, const std::string& text) {
  if (table == "Route" && text.find_first_of("{[\"") == std::string::npos) {
    const std::size_t colon = text.find(':');
    const std::string vrf = colon == std::string::npos ? "0" : text.substr(0, colon);
    const std::string at = colon == std::string::npos ? text : text.substr(colon + 1);
    const bool prefix = at.find('/') != std::string::npos;
    return {{"vrf", VelaAgent::numberFromJson(vrf, ~U64{0})}, {prefix ? "prefix" : "address", at}};
  }
  try {
    return VelaAgent::jsonFromText(text);
  } catch (const InputException& error) {
    throw InputException(std::string("the key is not JSON: ") + error.what());
  }
}

bool PrefixEvents::read(std::string_view line, std::string& event) {
  std::string_view words[3];
  std::size_t count = 0;
  for (std::size_t end = 0; count < 3; ++count) {
    constexpr const char* space = " \t\r";
    const std::size_t begin = line.find_first_not_of(space, end);
    if (begin == std::string_view::npos) break;
    end = std::min(line.find_first_of(space, begin), line.size());
    words[count] = line.substr(begin, end - begin);
  }
  if (count == 0 || words[0].starts_with('#')) return false;
  if (count == 3) throw InputException("expected \"a.b.c.d/len\" and at most one number");
  const U64 nexthop = count == 1 ? routes_ % nexthops_ : Orb::fromText<U64>(words[1]);
  ++routes_;
  const VelaSwitch::LpmKey key{vrf_, Orb::fromText<Ipnet::IpPrefix>(words[0])};
  event = R"({"op":"set","table":"Route","key":)";
  VelaAgent::appendJson(event, key);
  event += R"(,"result":)";
  VelaAgent::appendJson(event, VelaAgent::nexthopOfNumber(nexthop));
  event += '}';
  return true;
}

namespace {

/// Lines that were read together, but for those that hold nothing.
struct Block {
  std::string text;
  bool prefixes = false;           ///< Whether they are a list of prefixes, and no events.
  std::vector<EntryEvent> events;  ///< Used again, so perhaps more than there are lines.
  std::size_t lines = 0;
};

/// Reads a file's lines, and the events that they are.
class BlockReader {
 public:
  BlockReader(Lines& lines, EventRunner& runner, Form form)
      : lines_(lines), runner_(runner), form_(form) {}

  /// False at the end. The runner may take what was read before meanwhile.
  bool read(Block& block) {
    if (!lines_.next(block.text)) return false;
    block.lines = 0;
    for (std::string_view rest = block.text; !rest.empty();) {
      const std::string_view line = takeLine(rest);
      ++number_;
      const std::size_t begin = line.find_first_not_of(" \t\r");
      if (begin == std::string_view::npos) continue;
      if (!prefixes_) prefixes_ = form_ == Form::eventsOrPrefixes && line[begin] != '{';
      if (block.lines == block.events.size()) block.events.emplace_back();
      EntryEvent& event = block.events[block.lines++];
      event.line = line;
      event.number = number_;
      if (!*prefixes_) runner_.read(event);
    }
    block.prefixes = prefixes_.value_or(false);
    return true;
  }

 private:
  Lines& lines_;
  EventRunner& runner_;
  Form form_;
  std::optional<bool> prefixes_;  ///< Once a line told.
  U64 number_ = 0;
};

/// Hands a list of prefixes to a runner, line by line.
class PrefixTaker {
 public:
  explicit PrefixTaker(EventRunner& runner) : runner_(runner) {}

  void take(std::string_view line, U64 number) {
    // Until it is applied an event stays where it is.
    std::string& event = ring_[taken_ % ring_.size()];
    if (!readPrefix(line, number, event)) return;
    ++taken_;
    event.reserve(event.size() + EventReader::padding);
    runner_.takeLine(event, EventReader::padding, number);
  }

 private:
  bool readPrefix(std::string_view line, U64 number, std::string& event) {
    try {
      return prefixes_.read(line, event);
    } catch (...) {
      runner_.flush();
      // It was no event, but is the line that is refused.
      runner_.lineNumberIs(number);
      throw;
    }
  }

  EventRunner& runner_;
  PrefixEvents prefixes_{0, VelaAgent::nexthopNumbers};
  std::vector<std::string> ring_ = std::vector<std::string>(VelaSwitchApi::batchMost + 2);
  std::size_t taken_ = 0;
};

}  // namespace

bool applyFiles(const Options& options, EventRunner& runner, Form form) {
  bool good = true;
  for (const std::string& file : options.events) {
    good = applyFile(file, options, runner, form) && good;
    if (!good && !options.keepGoing) break;
  }
  return good;
}

namespace {

/// The switch that there is, or a new one.
SimulatedSwitch askedChip(const Options& options, const std::string& command) {
  const bool saved = options.device != "sim";
  if (!saved && options.events.empty()) {
    throw InputException(command + " takes --events, --device or both, or --connect");
  }
  checkFiles(options);
  return saved ? copySaved(options.device) : SimulatedSwitch();
}

}  // namespace

AskedSwitch::AskedSwitch(const Options& options, const std::string& command)
    : chip(askedChip(options, command)),
      agent(VelaAgent::loadProfile(options.profile), chip),
      desiresKnown(!options.events.empty()) {
  if (!desiresKnown) {
    agent.decode();
    return;
  }
  EventRunner runner(agent);
  if (options.device == "sim") {
    agent.start(Agent::Start::fresh);
    good = applyFiles(options, runner);
    return;
  }
  agent.desireBegin();
  runner.desiresOnlyIs(true);
  good = applyFiles(options, runner);
  agent.desireEnd();
}

bool applyFile(const std::string& name, const Options& options, EventRunner& runner, Form form) {
  Lines lines(name);
  BlockReader reader(lines, runner, form);
  PrefixTaker prefixes(runner);
  // What every event did is told as it goes.
  Progress progress(options.verbose || options.json);
  const double size = sizeOf(name);
  double done = 0;
  bool good = true;
  const auto tell = [&](const char* kind, const std::string& text) {
    progress.hide();
    std::cout << std::flush;
    std::cerr << (name == "-" ? "stdin" : name) << ':' << runner.lineNumber() << ": " << kind
              << text << '\n';
  };
  runner.warningListenerIs([&](const std::string& text) { tell("warning: ", text); });
  bool going = true;
  const auto attempt = [&](const auto& apply) {
    try {
      apply();
    } catch (const Orb::AssertionFailed& error) {
      // The tables are not to be used any more.
      tell("", error.what());
      good = going = false;
    } catch (const std::exception& error) {
      tell("", error.what());
      good = false;
      going = options.keepGoing;
    }
  };
  // What comes next is read beside what is applied, where nobody is to be waited for.
  const auto when =
      lines.inFile() ? std::launch::async | std::launch::deferred : std::launch::deferred;
  const auto readTo = [&](Block& block) {
    return std::async(when, [&] { return reader.read(block); });
  };
  std::array<Block, 2> blocks;
  auto reading = readTo(blocks[0]);
  for (std::size_t at = 0; going && reading.get(); at ^= 1) {
    Block& block = blocks[at];
    reading = readTo(blocks[at ^ 1]);
    for (std::size_t i = 0; going && i < block.lines; ++i) {
      EntryEvent& event = block.events[i];
      attempt(
          [&] { block.prefixes ? prefixes.take(event.line, event.number) : runner.take(event); });
    }
    // What was put off is applied before anybody waits for more.
    attempt([&] { runner.flush(); });
    std::cout << std::flush;
    done += static_cast<double>(block.text.size());
    if (size != 0) progress.is(done / size);
  }
  runner.warningListenerIs(nullptr);
  return good;
}

}  // namespace VelaTool
