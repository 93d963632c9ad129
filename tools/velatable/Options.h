#pragma once

#include <string>
#include <vector>

namespace VelaTool {

constexpr int exitGood = 0;
constexpr int exitRefused = 1;
constexpr int exitBadInput = 2;

/// What --reconcile is told for a switch that is to become empty.
constexpr const char* allowEmpty = "empty";

/// What was asked for on the command line; a command reads what it knows.
struct Options {
  std::string profile = "vela-48-5.1";
  std::string device = "sim";
  std::vector<std::string> events;
  std::string connect;  ///< The control socket of a daemon; empty where a device is asked.
  std::string output;
  std::string stream;                ///< The server of streams, and the switch that they are for.
  std::vector<std::string> streams;  ///< Of commands that take several servers.
  std::string switchName;
  std::string owner;
  std::string credentials;  ///< A file, or empty.
  std::string rows;
  std::string writes;
  std::string status;
  std::string results;
  std::string trace;
  std::vector<std::string> devices;  ///< Of commands that take several.
  std::string reconcile;             ///< Empty where it is not to be.
  std::string snapshot;              ///< Likewise.
  bool takeOver = false;
  bool allRows = false;
  bool allProfiles = false;
  bool repair = false;
  bool dryRun = false;
  bool json = false;
  bool csv = false;
  bool levels = false;
  bool hits = false;
  bool refused = false;
  bool keepGoing = false;
  bool explain = false;
  bool verbose = false;
};

}  // namespace VelaTool
