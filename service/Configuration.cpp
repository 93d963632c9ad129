#include "service/Configuration.h"

#include <arpa/inet.h>

#include <set>
#include <tuple>

#include "agent/Json.h"
#include "agent/Profiles.h"

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
  static std::pair<std::string, U16> readListen(const std::string& listen, bool anywhere,
                                                const char* danger);
  void readPorts(const std::string& interface, const Json& ports);
  void readTable(const std::string& number, const Json& vrf);

  std::vector<std::string>& mistakes_;
  Configuration all_;
  U32 ports_ = 0;
  U32 vrfs_ = 0;
  std::set<U8> taken_;
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
  if (!taken_.insert(static_cast<U8>(value)).second) {
    throw InputException("another table has VRF " + std::to_string(value));
  }
  all_.routes.vrfs[Orb::fromText<U32>(number)] = static_cast<U8>(value);
}

Configuration ConfigurationReader::read(const Json& json) {
  // What the others are checked against comes first.
  if (json.is_object() && json.contains("profile")) text(all_.profile)(json["profile"]);
  at("profile", [&] {
    const auto profile = VelaAgent::loadProfile(all_.profile);
    ports_ = profile->ports();
    vrfs_ = profile->vrfs();
  });
  if (!mistakes_.empty()) return all_;
  std::string listen = all_.fpmAddress + ":" + std::to_string(all_.fpmPort);
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
  SourceSettings fpmSource{"fpm"};
  bool fpmAnywhere = false;
  bool metricsAnywhere = false;
  const Handler metrics = [&](const Json& value) {
    each(value, "metrics", {{"listen", text(all_.metrics)}, {"anywhere", flag(metricsAnywhere)}});
  };
  const Handler fpm = [&](const Json& value) {
    each(value, "fpm",
         {{"listen", text(listen)},
          {"anywhere", flag(fpmAnywhere)},
          {"quiet", seconds(fpmSource.quiet)},
          {"longest", seconds(fpmSource.longest)},
          {"offload", flag(fpmSource.answered)}});
  };
  SourceSettings kernelSource{"kernel"};
  const Handler kernel = [&](const Json& value) {
    each(value, "kernel",
         {{"quiet", seconds(kernelSource.quiet)},
          {"longest", seconds(kernelSource.longest)},
          {"receiveBuffer", [this](const Json& bytes) {
             all_.kernelReceiveBuffer =
                 static_cast<U32>(VelaAgent::numberFromJson(bytes, U32{1} << 30));
           }}});
  };
  each(json, "",
       {{"profile", [](const Json&) {}},
        {"device", text(all_.device)},
        {"control", text(all_.control)},
        {"nexthops", text(all_.routes.nexthopFile)},
        {"interfaces", named("interfaces", &ConfigurationReader::readPorts)},
        {"tables", named("tables", &ConfigurationReader::readTable)},
        {"fpm", fpm},
        {"kernel", kernel},
        {"metrics", metrics},
        {"queue", [this](const Json& value) {
           all_.routes.queueMost = VelaAgent::numberFromJson(value, 1U << 24);
           if (all_.routes.queueMost == 0) throw InputException("is to be 1 or more");
         }}});
  // zebra is listened for where nothing else is said.
  const bool fromKernel = json.contains("kernel");
  if (!fromKernel || json.contains("fpm")) all_.routes.sources.push_back(fpmSource);
  if (fromKernel) all_.routes.sources.push_back(kernelSource);
  at("fpm.listen", [&] {
    std::tie(all_.fpmAddress, all_.fpmPort) =
        readListen(listen, fpmAnywhere, "programs the switch");
  });
  if (!all_.metrics.empty()) {
    at("metrics.listen", [&] { readListen(all_.metrics, metricsAnywhere, "reads them"); });
  }
  needed(all_.device, "device");
  needed(all_.control, "control");
  if (all_.routes.nexthopFile.empty()) all_.routes.nexthopFile = all_.device + ".nexthops";
  if (all_.routes.vrfs.empty()) mistake("tables", "names no table; usually {\"254\": 0}");
  return all_;
}

}  // namespace

Configuration readConfiguration(const std::string& text, std::vector<std::string>& mistakes) {
  try {
    return ConfigurationReader(mistakes).read(VelaAgent::jsonFromText(text));
  } catch (const std::exception& error) {
    mistakes.emplace_back(error.what());
    return {};
  }
}

}  // namespace VelaService
