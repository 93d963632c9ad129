#include "Completion.h"

#include <iostream>

#include "VelaSwitch/Profile.h"
#include "agent/Registry.h"

namespace VelaTool {
namespace {

using Words = std::vector<std::string>;

Words tableNames() {
  Words names{"Route"};
  for (const VelaAgent::FamilyRegistration& family : VelaAgent::families()) {
    names.push_back(family.name);
  }
  return names;
}

Words profileNames() {
  Words names;
  for (const auto& profile : VelaSwitch::ProfileInfo::builtIns()) names.push_back(profile->name());
  return names;
}

/// What the argument of a name may be, as far as it is not a file.
Words valuesOf(const CLI::App& command, const std::string& argument) {
  if (argument == "table") {
    Words names = tableNames();
    if (command.get_name() == "lookup") {
      names.insert(names.end(), {"Flow", "Multicast", "LagMember"});
    }
    if (command.get_name() == "why") names.insert(names.end(), {"route", "address"});
    return names;
  }
  if (argument == "kind") return {"vlan", "port", "nexthop", "flow", "route"};
  if (argument == "name" || argument == "--profile") return profileNames();
  if (argument == "--device") return {"sim", "sim:"};
  return {};
}

bool takesValue(const CLI::Option& option) { return option.get_items_expected_min() > 0; }

/// The option that a word is, or null.
const CLI::Option* optionOf(const CLI::App& command, const std::string& word) {
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_positional() && option->check_name(word)) return option;
  }
  return nullptr;
}

Words optionsOf(const CLI::App& command) {
  Words all;
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_positional()) all.push_back("--" + option->get_lnames().at(0));
  }
  return all;
}

Words candidates(const CLI::App& tool, const Words& words) {
  Words all;
  if (words.size() < 2) {
    if (!words.empty() && words.back().starts_with('-')) return optionsOf(tool);
    for (const CLI::App* each : tool.get_subcommands(nullptr)) {
      if (!each->get_group().empty()) all.push_back(each->get_name());
    }
    return all;
  }
  const CLI::App* command = tool.get_subcommand(words[0]);
  const CLI::Option* before = optionOf(*command, words[words.size() - 2]);
  if (before && takesValue(*before)) return valuesOf(*command, before->get_name());
  if (words.back().starts_with('-')) return optionsOf(*command);
  // Which argument it is: as many as there are words before it that are neither an option nor one's
  // value.
  std::size_t number = 0;
  for (std::size_t i = 1; i + 1 < words.size(); ++i) {
    if (const CLI::Option* option = optionOf(*command, words[i])) {
      if (takesValue(*option)) ++i;
    } else {
      ++number;
    }
  }
  for (const CLI::Option* option : command->get_options()) {
    if (!option->get_positional()) continue;
    if (number-- == 0) return valuesOf(*command, option->get_single_name());
  }
  return all;
}

}  // namespace

int complete(const CLI::App& tool, const Words& words) {
  const std::string begun = words.empty() ? "" : words.back();
  for (const std::string& each : candidates(tool, words)) {
    if (each.starts_with(begun)) std::cout << each << '\n';
  }
  return 0;
}

}  // namespace VelaTool
