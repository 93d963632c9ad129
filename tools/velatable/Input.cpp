#include "Input.h"

#include <unistd.h>

#include <filesystem>
#include <iostream>

namespace VelaTool {

using VelaDevice::Memory;

namespace {

/// How far the events file is read, on a terminal.
class Progress {
 public:
  explicit Progress(const std::string& file) : on_(isatty(STDERR_FILENO) != 0 && file != "-") {
    std::error_code error;
    size_ = on_ ? std::filesystem::file_size(file, error) : 0;
    on_ = on_ && !error && size_ > minimum;
  }
  ~Progress() {
    if (on_) std::cerr << "\r\033[K";
  }
  void advance(std::size_t bytes) {
    done_ += bytes;
    if (!on_ || done_ * 100 / size_ == shown_) return;
    shown_ = done_ * 100 / size_;
    const auto filled = static_cast<int>(shown_ * 40 / 100);
    std::cerr << '\r' << '[' << std::string(filled, '=') << std::string(40 - filled, ' ') << "] "
              << shown_ << " %" << std::flush;
  }

 private:
  static constexpr std::size_t minimum = 1 << 20;  ///< Smaller files are read in no time.
  bool on_;
  std::size_t size_ = 0;
  std::size_t done_ = 0;
  std::size_t shown_ = ~std::size_t{0};
};

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
       {options.rows, options.writes, options.status, options.results}) {
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

bool applyFile(const std::string& name, EventRunner& runner, bool keepGoing) {
  std::ifstream file;
  if (name != "-") file.open(name);
  std::istream& in = name == "-" ? std::cin : file;
  Progress progress(name);
  bool good = true;
  U64 number = 0;
  const auto tell = [&](const char* kind, const std::string& text) {
    std::cout << std::flush;
    std::cerr << (name == "-" ? "stdin" : name) << ':' << number << ": " << kind << text << '\n';
  };
  runner.warningListenerIs([&](const std::string& text) { tell("warning: ", text); });
  for (std::string line; std::getline(in, line);) {
    ++number;
    progress.advance(line.size() + 1);
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    try {
      runner.apply(line);
    } catch (const Orb::AssertionFailed& error) {
      // The tables are not to be used any more.
      tell("", error.what());
      good = false;
      break;
    } catch (const std::exception& error) {
      tell("", error.what());
      good = false;
      if (!keepGoing) break;
    }
  }
  runner.warningListenerIs(nullptr);
  return good;
}

}  // namespace VelaTool
