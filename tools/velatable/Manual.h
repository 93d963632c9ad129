#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

/// What the command line says of itself, from the descriptions that --help prints.
namespace VelaTool {

/// Prints the manual page of a command, or of the tool itself when none is named, as man reads it.
/// `examples` is a file of paragraphs and of lines "$ …", which are shown as they are.
int manual(const CLI::App& tool, const std::string& command, const std::string& examples);

/// Prints what the last of the words may become, a line each; nothing where a file is meant.
int complete(const CLI::App& tool, const std::vector<std::string>& words);

}  // namespace VelaTool
