#pragma once

#include "service/RouteService.h"
#include "service/StreamFollower.h"
#include "service/Upkeep.h"

namespace VelaService {

/// What the daemon is told by its file.
struct Configuration {
  std::string profile = "vela-48-5.1";
  std::string device;   ///< The file of a simulated switch.
  std::string control;  ///< The path of the control socket.
  std::string fpmAddress = "127.0.0.1";
  U16 fpmPort = 2620;
  U32 kernelReceiveBuffer = U32{4} << 20;  ///< Bytes that wait of what the kernel says.
  std::string metrics;                     ///< ADDRESS:PORT to be scraped at; empty for nowhere.
  std::string page;                        ///< Likewise of the page that shows the switch.
  std::string log = "info";                ///< The least level that is logged.
  RouteSettings routes;
  UpkeepSettings upkeep;
  std::optional<StreamSettings> stream;  ///< Where desired state comes by streams.
};

/// Reads a configuration, JSON. What is wrong is added to `mistakes`, a line each, and where there
/// is something the configuration is of no use.
Configuration readConfiguration(const std::string& text, std::vector<std::string>& mistakes);

/// A file with a configuration.
struct ConfigurationFile {
  std::string path;
  std::string text;
  Configuration settings;             ///< Of no use where there are mistakes.
  std::vector<std::string> mistakes;  ///< A line each, the file's not to be read among them.
};
ConfigurationFile readConfigurationFile(const std::string& path);

/// The fields in which the texts of two configurations differ, by their names.
struct ConfigurationChanges {
  std::vector<std::string> live;     ///< Those that a running daemon takes over,
  std::vector<std::string> restart;  ///< and those that it has to be started with.
};
ConfigurationChanges compareConfigurations(const std::string& before, const std::string& after);

}  // namespace VelaService
