#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <sstream>

#include "Daemon.h"
#include "Log.h"

namespace {

constexpr int exitBadInput = 2;

int serve(const std::string& file, bool check) {
  std::ifstream in(file);
  std::ostringstream text;
  text << in.rdbuf();
  if (!in) {
    std::cerr << "velad: cannot read " << file << '\n';
    return exitBadInput;
  }
  std::vector<std::string> mistakes;
  const auto configuration = VelaService::readConfiguration(text.str(), mistakes);
  for (const std::string& mistake : mistakes) std::cerr << file << ": " << mistake << '\n';
  if (!mistakes.empty()) return exitBadInput;
  if (check) return 0;
  Velad::Daemon(configuration).run();
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
