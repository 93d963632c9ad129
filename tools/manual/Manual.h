#pragma once

#include <CLI/CLI.hpp>
#include <string>

/// The manual pages of the programs, from the descriptions that --help prints.
namespace VelaTool {

/// What stands around them.
struct ManualPage {
  std::string section;
  std::string exitStatus;
  /// A file of examples: paragraphs, lines "$ …", which are shown as they are, and headings "# …"
  /// of other sections behind them.
  std::string examples;
};

/// Prints the page of a program, or of one of its commands, as man reads it. The program has a
/// name.
void printManual(const CLI::App& program, const CLI::App& command, const ManualPage& page);

}  // namespace VelaTool
