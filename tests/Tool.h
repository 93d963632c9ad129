#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Support.h"
#include "agent/Json.h"

namespace VelaTest {

/// Runs the tool as its users do, in a folder of the test's own.
struct Tool : testing::Test {
  Tool() {
    directory = std::filesystem::temp_directory_path() /
                ("velatable-" + std::to_string(getpid()) + "-" +
                 testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(directory);
  }
  ~Tool() override { std::filesystem::remove_all(directory); }

  std::string file(const std::string& name) const { return directory / name; }
  std::string read(const std::string& name) const {
    std::ostringstream text;
    text << std::ifstream(file(name)).rdbuf();
    return text.str();
  }
  std::vector<VelaAgent::Json> lines(const std::string& name) const {
    std::vector<VelaAgent::Json> all;
    std::istringstream in(read(name));
    for (std::string line; std::getline(in, line);) all.push_back(VelaAgent::Json::parse(line));
    return all;
  }
  /// Writes a file of events, "events" unless it is named.
  std::string events(const std::string& text, const std::string& name = "events") const {
    std::ofstream(file(name)) << text;
    return file(name);
  }
  /// Runs the tool in the test's folder; its output goes to the files "out" and "err".
  int run(const std::string& arguments) const {
    const std::string command =
        "cd " + directory.string() + " && " VELATABLE " " + arguments + " > out 2> err";
    return WEXITSTATUS(std::system(command.c_str()));
  }

  std::filesystem::path directory;
};

}  // namespace VelaTest
