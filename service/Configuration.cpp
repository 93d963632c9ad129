#include "service/Configuration.h"

#include <arpa/inet.h>
#include <sys/un.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

#include "agent/Json.h"
#include "agent/Profiles.h"
#include "agent/Registry.h"

namespace VelaService {

using VelaAgent::InputException;
using VelaAgent::Json;

namespace {

/// Walks a document and notes what is wrong, so that one reading tells all of it.
class ConfigurationReader {
 public:
  explicit ConfigurationReader(std::vector<std::string>& mistakes) : mistakes_(mistakes) {}

  Configuration read(const Json& json);

 private:
  using Handler = std::function<void(const Json&)>;
  using Fields = std::vector<std::pair<std::string, Handler>>;

  void mistake(const std::string& where, const std::string& what) {
    mistakes_.push_back(where + ": " + what);
  }
  /// Hands the members of an object to those who read them.
  void each(const Json& json, const std::string& where, const Fields& fields);
  /// Runs a reader; what it throws is a mistake of the place.
  template <class Action>
  void at(const std::string& where, const Action& action) {
    try {
      action();
    } catch (const std::exception& error) {
      mistake(where, error.what());
    }
  }
  Handler text(std::string& to);
  void needed(const std::string& value, const char* where) {
    if (value.empty()) mistake(where, "is missing");
  }
  static Handler flag(bool& to);
  Handler seconds(Clock::duration& to);
  /// Where something listens, as the field of that name says.
  struct Listener {
    std::string field;
    std::string address;
    U16 port;
  };
  static std::pair<std::string, U16> readListen(const std::string& listen, bool anywhere,
                                                const char* danger);
  void readPorts(const std::string& interface, const Json& ports);
  void readTable(const std::string& number, const Json& vrf);
  Handler choice(std::string& to, std::vector<std::string> choices);
  Handler percent(unsigned& to);
  void readMarks(const Json& json, const std::string& where, Marks& marks, const Fields& others);
  void readThresholds(const Json& json);
  void readScrub(const Json& json);
  void readFpm(const Json& json);
  void readKernel(const Json& json);
  void readStream(const Json& json);
  Handler server(const std::string& where, std::string& to, const char* danger);
  void checkSources(const Json& json);
  void checkListeners();
  void checkFiles();
  void checkMarks();

  std::vector<std::string>& mistakes_;
  Configuration all_;
  SourceSettings fpm_{"fpm"};
  SourceSettings kernel_{"kernel"};
  // As many as any switch has, unless the profile says.
  U32 ports_ = 64;
  U32 vrfs_ = 256;
  std::set<U8> taken_;
  std::vector<Listener> listeners_;
  Orb::PtrConst<VelaSwitch::ProfileInfo> profile_;
};

void ConfigurationReader::each(const Json& json, const std::string& where, const Fields& fields) {
  if (!json.is_object()) return mistake(where, "is to be a JSON object");
  for (const auto& item : json.items()) {
    const std::string& name = item.key();
    std::string place = where;
    if (!place.empty()) place += '.';
    place += name;
    std::vector<std::string> names;
    const Handler* handler = nullptr;
    for (const auto& field : fields) {
      names.push_back(field.first);
      if (field.first == name) handler = &field.second;
    }
    if (!handler) {
      mistake(place, "unknown field" + VelaAgent::suggestion(name, names));
      continue;
    }
    at(place, [&] { (*handler)(item.value()); });
  }
}

ConfigurationReader::Handler ConfigurationReader::text(std::string& to) {
  return [&to](const Json& value) {
    if (!value.is_string()) throw InputException("is to be a text");
    to = value.get<std::string>();
  };
}

ConfigurationReader::Handler ConfigurationReader::flag(bool& to) {
  return [&to](const Json& value) {
    if (!value.is_boolean()) throw InputException("is to be true or false");
    to = value.get<bool>();
  };
}

ConfigurationReader::Handler ConfigurationReader::seconds(Clock::duration& to) {
  return [&to](const Json& value) {
    constexpr double most = 86400;
    const double number = value.is_number() ? value.get<double>() : -1;
    if (!(number >= 0 && number <= most)) throw InputException("is to be seconds, 0 to 86400");
    to = std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(number));
  };
}

/// The address and port of "ADDRESS:PORT". One that others reach has to be asked for.
std::pair<std::string, U16> ConfigurationReader::readListen(const std::string& listen,
                                                            bool anywhere, const char* danger) {
  const std::size_t colon = listen.rfind(':');
  const std::string address = listen.substr(0, colon);
  in_addr parsed{};
  if (colon == std::string::npos || inet_pton(AF_INET, address.c_str(), &parsed) != 1) {
    throw InputException("is to be ADDRESS:PORT, such as 127.0.0.1:2620");
  }
  const auto port = Orb::fromText<U16>(std::string_view(listen).substr(colon + 1));
  if (port == 0) throw InputException("is to have a port, 1 to 65535");
  if (!anywhere && !address.starts_with("127.")) {
    throw InputException(address + " is not loopback: whoever reaches it " + danger +
                         "; \"anywhere\": true allows it");
  }
  return {address, port};
}

void ConfigurationReader::readPorts(const std::string& interface, const Json& ports) {
  U64 mask = 0;
  for (const Json& port : ports.is_array() ? ports : Json::array({ports})) {
    const U64 number = VelaAgent::numberFromJson(port, ~U64{0});
    if (number >= ports_) {
      throw InputException("the switch has ports 0 to " + std::to_string(ports_ - 1) + ", no " +
                           std::to_string(number));
    }
    mask |= U64{1} << number;
  }
  if (mask == 0) throw InputException("names no port");
  all_.routes.portMasks[interface] = mask;
}

void ConfigurationReader::readTable(const std::string& number, const Json& vrf) {
  const U64 value = VelaAgent::numberFromJson(vrf, ~U64{0});
  if (value >= vrfs_) {
    throw InputException("the switch has VRFs 0 to " + std::to_string(vrfs_ - 1) + ", no " +
                         std::to_string(value));
  }
  const auto table = Orb::fromText<U32>(number);
  if (all_.routes.vrfs.contains(table)) throw InputException("this table is there twice");
  if (!taken_.insert(static_cast<U8>(value)).second) {
    throw InputException("another table has VRF " + std::to_string(value));
  }
  all_.routes.vrfs[table] = static_cast<U8>(value);
}

ConfigurationReader::Handler ConfigurationReader::choice(std::string& to,
                                                         std::vector<std::string> choices) {
  return [this, &to, choices = std::move(choices)](const Json& value) {
    text(to)(value);
    if (std::find(choices.begin(), choices.end(), to) != choices.end()) return;
    std::string list;
    for (const std::string& each : choices) list += (list.empty() ? "" : ", ") + each;
    throw InputException("is to be one of " + list);
  };
}

ConfigurationReader::Handler ConfigurationReader::percent(unsigned& to) {
  return [&to](const Json& value) {
    const U64 number = value.is_number_unsigned() ? value.get<U64>() : 101;
    if (number > 100) throw InputException("is to be a percentage, 0 to 100");
    to = static_cast<unsigned>(number);
  };
}

void ConfigurationReader::readMarks(const Json& json, const std::string& where, Marks& marks,
                                    const Fields& others) {
  const std::size_t before = mistakes_.size();
  Fields fields{{"high", percent(marks.high)}, {"low", percent(marks.low)}};
  fields.insert(fields.end(), others.begin(), others.end());
  each(json, where, fields);
  if (mistakes_.size() != before || marks.low < marks.high) return;
  mistake(where, Orb::text("low is to be below high, not ", marks.low, " and ", marks.high));
}

void ConfigurationReader::readThresholds(const Json& json) {
  ThresholdSettings& thresholds = all_.upkeep.thresholds;
  Json tables = Json::object();
  readMarks(json, "thresholds", thresholds.usual,
            {{"tables", [&](const Json& value) { tables = value; }}});
  Fields fields;
  for (const auto& family : VelaAgent::families()) {
    const std::string& name = family.name;
    fields.emplace_back(name, [this, name](const Json& value) {
      Marks marks = all_.upkeep.thresholds.usual;
      readMarks(value, "thresholds.tables." + name, marks, {});
      all_.upkeep.thresholds.tables[name] = marks;
    });
  }
  each(tables, "thresholds.tables", fields);
}

void ConfigurationReader::readScrub(const Json& json) {
  ScrubSettings& scrub = all_.upkeep.scrub;
  const Handler rows = [&scrub](const Json& value) {
    constexpr U32 most = 100000;
    scrub.rows = static_cast<U32>(VelaAgent::numberFromJson(value, most));
  };
  each(json, "scrub", {{"rows", rows}, {"repair", flag(scrub.repair)}});
}

void ConfigurationReader::readFpm(const Json& json) {
  std::string listen = all_.fpmAddress + ":" + std::to_string(all_.fpmPort);
  bool anywhere = false;
  each(json, "fpm",
       {{"listen", text(listen)},
        {"anywhere", flag(anywhere)},
        {"quiet", seconds(fpm_.quiet)},
        {"longest", seconds(fpm_.longest)},
        {"offload", flag(fpm_.answered)}});
  at("fpm.listen", [&] {
    std::tie(all_.fpmAddress, all_.fpmPort) = readListen(listen, anywhere, "programs the switch");
  });
}

void ConfigurationReader::readKernel(const Json& json) {
  each(json, "kernel",
       {{"quiet", seconds(kernel_.quiet)},
        {"longest", seconds(kernel_.longest)},
        {"receiveBuffer", [this](const Json& bytes) {
           all_.kernelReceiveBuffer =
               static_cast<U32>(VelaAgent::numberFromJson(bytes, U32{1} << 30));
         }}});
}

/// Where something is served by HTTP.
ConfigurationReader::Handler ConfigurationReader::server(const std::string& where, std::string& to,
                                                         const char* danger) {
  return [this, where, &to, danger](const Json& value) {
    bool anywhere = false;
    each(value, where, {{"listen", text(to)}, {"anywhere", flag(anywhere)}});
    if (to.empty()) return;
    at(where + ".listen", [&] {
      const auto [address, port] = readListen(to, anywhere, danger);
      listeners_.push_back({where + ".listen", address, port});
    });
  };
}

void ConfigurationReader::readStream(const Json& json) {
  StreamSettings& stream = all_.stream.emplace();
  each(json, "stream",
       {{"server", text(stream.server)},
        {"switch", text(stream.switchName)},
        {"credentials", text(stream.credentials)},
        {"position", text(stream.positionFile)},
        {"keep", [&](const Json& value) {
           stream.statusLength = VelaAgent::numberFromJson(value, 1U << 24);
           if (stream.statusLength == 0) throw InputException("is to be 1 or more");
         }}});
  needed(stream.server, "stream.server");
  at("stream.switch", [&] { streamNames(stream.switchName); });
}

/// zebra is listened for where nothing else is said. Without a source of routes all tables are the
/// stream's.
void ConfigurationReader::checkSources(const Json& json) {
  const bool fromKernel = json.contains("kernel");
  const bool fromFpm = json.contains("fpm") || (!fromKernel && !all_.stream);
  if (fromFpm) {
    all_.routes.sources.push_back(fpm_);
    listeners_.push_back({"fpm.listen", all_.fpmAddress, all_.fpmPort});
  }
  if (fromKernel) all_.routes.sources.push_back(kernel_);
  if (all_.stream) {
    all_.stream->routesAreOthers = fromFpm || fromKernel;
    if (all_.stream->positionFile.empty()) all_.stream->positionFile = all_.device + ".position";
  }
  if (fromFpm || fromKernel) {
    if (all_.routes.vrfs.empty()) mistake("tables", "names no table; usually {\"254\": 0}");
    if (all_.routes.nexthopFile.empty()) all_.routes.nexthopFile = all_.device + ".nexthops";
    return;
  }
  for (const char* name : {"tables", "interfaces", "nexthops"}) {
    if (!json.contains(name)) continue;
    mistake(name, "is for a source of routes, and there is but a stream");
  }
}

/// Two cannot listen at one port, unless at addresses of their own.
void ConfigurationReader::checkListeners() {
  static const std::string every = "0.0.0.0";
  for (auto one = listeners_.begin(); one != listeners_.end(); ++one) {
    const auto other = std::find_if(listeners_.begin(), one, [one](const Listener& each) {
      return each.port == one->port &&
             (each.address == one->address || each.address == every || one->address == every);
    });
    if (other != one) mistake(one->field, "is where " + other->field + " is");
  }
}

/// A file that is written is one thing's own.
void ConfigurationReader::checkFiles() {
  namespace fs = std::filesystem;
  std::map<fs::path, std::string> fields;
  const auto check = [&](const char* field, const std::string& path) {
    if (path.empty()) return;
    std::error_code unknown;
    fs::path place = fs::weakly_canonical(fs::absolute(path), unknown);
    if (unknown) place = fs::absolute(path);
    const auto [at, isNew] = fields.try_emplace(place, field);
    if (!isNew) mistake(field, "is the file of " + at->second);
  };
  check("device", all_.device);
  check("control", all_.control);
  check("nexthops", all_.routes.nexthopFile);
  if (all_.stream) check("stream.position", all_.stream->positionFile);
  constexpr std::size_t longest = sizeof(sockaddr_un::sun_path) - 1;
  if (all_.control.size() > longest) {
    mistake("control", Orb::text("is longer than a socket's path can be, ", longest, " bytes"));
  }
}

/// Marks of a table whose rows are another's, or that has none, would never be looked at.
void ConfigurationReader::checkMarks() {
  const auto& told = all_.upkeep.thresholds.tables;
  if (told.empty() || !profile_) return;
  VelaDevice::SimulatedSwitch chip;
  VelaAgent::Agent agent(profile_, chip);
  agent.make();
  std::set<std::string> marked;
  for (const auto& table : agent.tables()) {
    if (Thresholds::hasMarks(*table)) marked.insert(table->name());
  }
  for (const auto& [name, marks] : told) {
    if (!marked.contains(name)) {
      mistake("thresholds.tables." + name, "has no rows of its own that could be full");
    }
  }
}

Configuration ConfigurationReader::read(const Json& json) {
  if (!json.is_object()) throw InputException("is to be a JSON object");
  // What the others are checked against comes first.
  at("profile", [&] {
    if (json.contains("profile")) text(all_.profile)(json["profile"]);
    profile_ = VelaAgent::loadProfile(all_.profile);
    ports_ = profile_->ports();
    vrfs_ = profile_->vrfs();
  });
  const auto named = [this](const char* where,
                            void (ConfigurationReader::*member)(const std::string&, const Json&)) {
    return [this, where, member](const Json& value) {
      if (!value.is_object()) throw InputException("is to be a JSON object");
      for (const auto& item : value.items()) {
        at(std::string(where) + "." + item.key(),
           [&] { (this->*member)(item.key(), item.value()); });
      }
    };
  };
  each(json, "",
       {{"profile", [](const Json&) {}},
        {"device", text(all_.device)},
        {"control", text(all_.control)},
        {"nexthops", text(all_.routes.nexthopFile)},
        {"interfaces", named("interfaces", &ConfigurationReader::readPorts)},
        {"tables", named("tables", &ConfigurationReader::readTable)},
        {"fpm", [this](const Json& value) { readFpm(value); }},
        {"kernel", [this](const Json& value) { readKernel(value); }},
        {"metrics", server("metrics", all_.metrics, "reads them")},
        {"page", server("page", all_.page, "sees the switch")},
        {"thresholds", [this](const Json& value) { readThresholds(value); }},
        {"scrub", [this](const Json& value) { readScrub(value); }},
        {"hits", seconds(all_.upkeep.hits)},
        {"log", choice(all_.log, {"error", "warning", "info"})},
        {"stream", [this](const Json& value) { readStream(value); }},
        {"queue", [this](const Json& value) {
           all_.routes.queueMost = VelaAgent::numberFromJson(value, 1U << 24);
           if (all_.routes.queueMost == 0) throw InputException("is to be 1 or more");
         }}});
  needed(all_.device, "device");
  needed(all_.control, "control");
  checkSources(json);
  checkListeners();
  checkFiles();
  checkMarks();
  return all_;
}

/// Of fields that an object has twice the last would count, and nobody would know.
void noteTwice(const std::string& text, std::vector<std::string>& mistakes) {
  struct Object {
    std::set<std::string> names;
    std::string last;
  };
  std::vector<Object> objects;
  const auto note = [&](int, Json::parse_event_t event, const Json& parsed) {
    if (event == Json::parse_event_t::object_start) objects.emplace_back();
    if (event == Json::parse_event_t::object_end) objects.pop_back();
    if (event != Json::parse_event_t::key) return true;
    objects.back().last = parsed.get<std::string>();
    if (objects.back().names.insert(objects.back().last).second) return true;
    std::string place;
    for (const Object& each : objects) place += (place.empty() ? "" : ".") + each.last;
    mistakes.push_back(place + ": is there twice");
    return true;
  };
  std::ignore = Json::parse(text, note);
}

}  // namespace

Configuration readConfiguration(const std::string& text, std::vector<std::string>& mistakes) {
  try {
    const Json json = VelaAgent::jsonFromText(text);
    noteTwice(text, mistakes);
    return ConfigurationReader(mistakes).read(json);
  } catch (const std::exception& error) {
    mistakes.emplace_back(error.what());
    return {};
  }
}

ConfigurationFile readConfigurationFile(const std::string& path) {
  ConfigurationFile file{path, {}, {}, {}};
  std::ifstream in(path);
  // A folder shows when it is read.
  in.peek();
  std::ostringstream text;
  text << in.rdbuf();
  if (!in) {
    file.mistakes.emplace_back("cannot be read");
    return file;
  }
  file.text = text.str();
  file.settings = readConfiguration(file.text, file.mistakes);
  return file;
}

ConfigurationChanges compareConfigurations(const std::string& before, const std::string& after) {
  static const std::set<std::string> live{"thresholds", "scrub", "hits", "log"};
  const Json one = VelaAgent::jsonFromText(before);
  const Json other = VelaAgent::jsonFromText(after);
  std::set<std::string> names;
  for (const Json* each : {&one, &other}) {
    for (const auto& item : each->items()) names.insert(item.key());
  }
  ConfigurationChanges changes;
  for (const std::string& name : names) {
    if (one.value(name, Json()) == other.value(name, Json())) continue;
    (live.contains(name) ? changes.live : changes.restart).push_back(name);
  }
  return changes;
}

}  // namespace VelaService
