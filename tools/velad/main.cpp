#include <CLI/CLI.hpp>
#include <iostream>

#include "Daemon.h"
#include "Log.h"

namespace {

constexpr int exitBadInput = 2;

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
  CLI::App app{"velad: keeps the routes of a routing daemon in a switch"};
  std::string file;
  bool check = false;
  app.set_version_flag("--version", "velad " VELA_VERSION);
  app.add_option("file", file, "the configuration, JSON")->required();
  app.add_flag("--check", check, "say what is wrong with the configuration, no more");
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
