#include "Manual.h"

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
    if (option->get_positional() != positional) continue;
    if (!any) std::cout << ".SH " << (positional ? "ARGUMENTS" : "OPTIONS") << '\n';
    any = true;
    std::cout << ".TP\n" << synopsisOf(*option) << '\n' << plain(option->get_description());
    if (!option->get_default_str().empty()) {
      std::cout << " (default: " << plain(option->get_default_str()) << ')';
    }
    std::cout << '\n';
  }
}

void printSynopsis(const CLI::App& command, const std::string& name) {
  std::cout << ".SH SYNOPSIS\n\\fB" << plain(name) << "\\fR [\\fIoptions\\fR]";
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
    if (!line.empty()) std::cout << plain(isCommand ? line.substr(2) : line) << '\n';
  }
  if (command) std::cout << ".RE\n.fi\n";
}

}  // namespace

int manual(const CLI::App& tool, const std::string& command, const std::string& examples) {
  const bool whole = command.empty();
  const CLI::App& told = whole ? tool : *tool.get_subcommand(command);
  const std::string page = whole ? "velatable" : "velatable-" + command;
  std::cout << ".TH " << plain(page) << " 1 \"\" \"velatable " VELA_VERSION "\"\n"
            << ".SH NAME\n"
            << plain(page) << " \\- " << plain(told.get_description()) << '\n';
  printSynopsis(told, whole ? "velatable" : "velatable " + command);
  if (whole) {
    std::cout << ".SH COMMANDS\nEach has a page of its own.\n";
    for (const CLI::App* each : tool.get_subcommands(nullptr)) {
      if (each->get_group().empty()) continue;
      std::cout << ".TP\n\\fBvelatable\\-" << plain(each->get_name()) << "\\fR(1)\n"
                << plain(each->get_description()) << '\n';
    }
  }
  printOptions(told, true);
  printOptions(told, false);
  std::cout << ".SH EXIT STATUS\n0 when all went well, 1 when something was refused, missing or "
               "different, 2 for bad input.\n";
  printExamples(examples);
  return 0;
}

}  // namespace VelaTool
