#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace VelaTool {

/// Prints what the last of the words may become, a line each; nothing where a file is meant.
int complete(const CLI::App& tool, const std::vector<std::string>& words);

}  // namespace VelaTool
