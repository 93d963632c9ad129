#pragma once

#include "service/RouteService.h"

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
  RouteSettings routes;
};

/// Reads a configuration, JSON. What is wrong is added to `mistakes`, a line each, and where there
/// is something the configuration is of no use.
Configuration readConfiguration(const std::string& text, std::vector<std::string>& mistakes);

}  // namespace VelaService
