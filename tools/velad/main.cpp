#include <CLI/CLI.hpp>
#include <iostream>

#include "Daemon.h"
#include "Log.h"
#include "tools/manual/Manual.h"

namespace {

constexpr int exitBadInput = 2;
constexpr const char* exitStatus =
    "0, or 2 when the configuration is wrong or the switch or a socket cannot be had.";

int serve(const std::string& path, bool check) {
  const auto file = VelaService::readConfigurationFile(path);
  for (const std::string& mistake : file.mistakes) std::cerr << path << ": " << mistake << '\n';
  if (!file.mistakes.empty()) return exitBadInput;
  if (check) return 0;
  Velad::leastLevelIs(Velad::levelOf(file.settings.log));
  Velad::Daemon(file).run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"keep the routes of a routing daemon in a switch", "velad"};
  std::string file;
  bool check = false;
  app.set_version_flag("--version", "velad " VELA_VERSION);
  app.add_option("file", file, "the configuration, JSON")->required();
  app.add_flag("--check", check, "say what is wrong with the configuration, no more");
  app.add_option_function<std::string>(
         "--manual",
         [&](const std::string& examples) {
           VelaTool::printManual(app, app, {"8", exitStatus, examples});
           throw CLI::Success();
         })
      ->trigger_on_parse()
      ->group("");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : exitBadInput;
  }
  try {
    return serve(file, check);
  } catch (const std::exception& error) {
    Velad::log(Velad::Level::error, error.what());
    return exitBadInput;
  }
}
