#include "service/Stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "Orb/Text.h"
#include "agent/Json.h"

namespace VelaService {

using VelaAgent::InputException;
using VelaAgent::Json;

namespace {

const std::string& fieldOf(const StreamEntry& entry, const char* name) {
  const auto at = entry.fields.find(name);
  if (at == entry.fields.end()) throw InputException(std::string("no field \"") + name + "\"");
  return at->second;
}

U64 numberOf(const StreamEntry& entry, const char* name) {
  return Orb::fromText<U64>(fieldOf(entry, name));
}

/// A file or a directory that goes to disk.
class Durable {
 public:
  Durable(const std::string& path, int flags)
      : path_(path), file_(::open(path.c_str(), flags | O_CLOEXEC, 0666)) {
    if (file_ < 0) fail();
  }
  ~Durable() { ::close(file_); }
  Durable(const Durable&) = delete;
  Durable& operator=(const Durable&) = delete;

  void write(const std::string& text) {
    if (::write(file_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) fail();
  }
  void sync() {
    if (::fsync(file_) != 0) fail();
  }

 private:
  [[noreturn]] void fail() const { throw std::runtime_error("cannot write " + path_); }

  std::string path_;
  int file_;
};

}  // namespace

std::string toText(const EntryId& id) {
  return std::to_string(id.milliseconds) + "-" + std::to_string(id.number);
}

EntryId entryIdFromText(std::string_view text) {
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos) {
    throw InputException("\"" + std::string(text) + "\" names no entry of a stream");
  }
  return {Orb::fromText<U64>(text.substr(0, dash)), Orb::fromText<U64>(text.substr(dash + 1))};
}

Change changeOf(const StreamEntry& entry) {
  Change change;
  change.sequence = numberOf(entry, "sequence");
  change.snapshot = entry.fields.contains("snapshot");
  if (!change.snapshot) change.lines = fieldOf(entry, "lines");
  return change;
}

bool isSnapshotEnd(const StreamEntry& entry) { return entry.fields.contains("at"); }

SnapshotEnd snapshotEndOf(const StreamEntry& entry) {
  return {{entryIdFromText(fieldOf(entry, "at")), numberOf(entry, "sequence")},
          numberOf(entry, "parts")};
}

StreamNames streamNames(const std::string& switchName) {
  const auto allowed = [](char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
           (letter >= '0' && letter <= '9') || std::string_view("-_.:").find(letter) < 4;
  };
  if (switchName.empty() || !std::all_of(switchName.begin(), switchName.end(), allowed)) {
    throw InputException("the name of a switch has letters, digits and -_.: only");
  }
  const std::string all = "vela:{" + switchName + "}:";
  return {all + "changes", all + "snapshot", all + "status"};
}

std::optional<StreamPosition> PositionFile::read() const {
  std::ifstream file(path_);
  std::ostringstream text;
  text << file.rdbuf();
  try {
    const Json json = Json::parse(text.str());
    if (json.at("switch") != switchName_) return std::nullopt;
    return StreamPosition{entryIdFromText(json.at("position").get<std::string>()),
                          json.at("sequence")};
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

void PositionFile::write(const StreamPosition& position) const {
  if (path_.empty()) return;
  const std::string next = path_ + ".new";
  const Json json = {
      {"switch", switchName_}, {"position", toText(position.id)}, {"sequence", position.sequence}};
  {
    Durable file(next, O_WRONLY | O_CREAT | O_TRUNC);
    file.write(json.dump() + "\n");
    file.sync();
  }
  if (std::rename(next.c_str(), path_.c_str()) != 0) {
    throw std::runtime_error("cannot write " + path_);
  }
  const auto folder = std::filesystem::path(path_).parent_path();
  Durable(folder.empty() ? "." : folder.string(), O_RDONLY | O_DIRECTORY).sync();
}

}  // namespace VelaService
