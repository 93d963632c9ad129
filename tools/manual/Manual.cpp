#include "tools/manual/Manual.h"

#include <fstream>
#include <iostream>

#include "agent/Input.h"

namespace VelaTool {
namespace {

/// Text that roff takes as it is.
std::string plain(const std::string& text) {
  std::string out = !text.empty() && (text[0] == '.' || text[0] == '\'') ? "\\&" : "";
  for (const char c : text) {
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
  }
  return out;
}

bool isFlag(const CLI::Option& option) { return option.get_items_expected_max() == 0; }

/// "--device TEXT" or "events ...", with what is its name in bold.
std::string synopsisOf(const CLI::Option& option) {
  if (option.get_positional()) {
    const std::string name = "\\fI" + plain(option.get_single_name()) + "\\fR";
    return option.get_expected_max() > 1 ? name + " ..." : name;
  }
  std::string names;
  for (const std::string& name : option.get_snames()) names += "\\fB\\-" + name + "\\fR, ";
  names += "\\fB\\-\\-" + plain(option.get_lnames().at(0)) + "\\fR";
  return isFlag(option) ? names : names + " \\fI" + plain(option.get_type_name()) + "\\fR";
}

void printOptions(const CLI::App& command, bool positional) {
  bool any = false;
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_positional() != positional || option->get_group().empty()) continue;
    if (!any) std::cout << ".SH " << (positional ? "ARGUMENTS" : "OPTIONS") << '\n';
    any = true;
    std::cout << ".TP\n" << synopsisOf(*option) << '\n' << plain(option->get_description());
    if (!option->get_default_str().empty()) {
      std::cout << " (default: " << plain(option->get_default_str()) << ')';
    }
    std::cout << '\n';
  }
}

using Commands = std::vector<const CLI::App*>;

Commands commandsOf(const CLI::App& program) {
  Commands all = program.get_subcommands(nullptr);
  std::erase_if(all, [](const CLI::App* each) { return each->get_group().empty(); });
  return all;
}

void printSynopsis(const CLI::App& command, const std::string& name) {
  std::cout << ".SH SYNOPSIS\n\\fB" << plain(name) << "\\fR "
            << (commandsOf(command).empty() ? "" : "\\fIcommand\\fR ") << "[\\fIoptions\\fR]";
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_positional()) continue;
    const std::string text = synopsisOf(*option);
    std::cout << ' ' << (option->get_required() ? text : "[" + text + "]");
  }
  std::cout << '\n';
}

void printExamples(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw VelaAgent::InputException(path + ": cannot be read");
  std::cout << ".SH EXAMPLES\n";
  bool command = false;
  for (std::string line; std::getline(file, line);) {
    const bool isCommand = line.starts_with("$ ");
    if (isCommand != command) std::cout << (isCommand ? ".PP\n.nf\n.RS 4\n" : ".RE\n.fi\n.PP\n");
    command = isCommand;
    if (line.empty()) continue;
    const bool heading = line.starts_with("# ");
    std::cout << (heading ? ".SH " : "") << plain(isCommand || heading ? line.substr(2) : line)
              << '\n';
  }
  if (command) std::cout << ".RE\n.fi\n";
}

}  // namespace

void printManual(const CLI::App& program, const CLI::App& command, const ManualPage& page) {
  const bool whole = &program == &command;
  const std::string of = program.get_name();
  const std::string name = whole ? of : of + "-" + command.get_name();
  std::cout << ".TH " << plain(name) << ' ' << page.section << " \"\" \"" << of
            << " " VELA_VERSION "\"\n"
            << ".SH NAME\n"
            << plain(name) << " \\- " << plain(command.get_description()) << '\n';
  printSynopsis(command, whole ? of : of + " " + command.get_name());
  const Commands commands = commandsOf(command);
  if (!commands.empty()) std::cout << ".SH COMMANDS\nEach has a page of its own.\n";
  for (const CLI::App* each : commands) {
    std::cout << ".TP\n\\fB" << of << "\\-" << plain(each->get_name()) << "\\fR(" << page.section
              << ")\n"
              << plain(each->get_description()) << '\n';
  }
  printOptions(command, true);
  printOptions(command, false);
  std::cout << ".SH EXIT STATUS\n" << plain(page.exitStatus) << '\n';
  printExamples(page.examples);
}

}  // namespace VelaTool
