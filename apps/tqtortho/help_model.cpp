// SPDX-License-Identifier: Apache-2.0
#include "help_model.h"

#include <algorithm>
#include <set>

namespace tqtortho::app {
namespace {

std::vector<std::string> SortedNames(const std::set<CLI::Option*>& options) {
  std::vector<std::string> names;
  names.reserve(options.size());
  for (const CLI::Option* option : options) names.push_back(option->get_name());
  std::sort(names.begin(), names.end());  // the set goes by address, which differs between runs
  return names;
}

// A type as the help shows it: the value's name, and after colons what its checks demand
// ("TEXT:{a,b}", "M:FLOAT in [0 - 10]").
void ReadType(const std::string& type, HelpOption& into) {
  into.valueName = type.substr(0, type.find(':'));
  const auto open = type.find(":{"), close = type.rfind('}');
  if (open != std::string::npos && close != std::string::npos) {
    into.choices = CLI::detail::split(type.substr(open + 2, close - open - 2), ',');
  }
  const auto range = type.find(" in ["), end = type.rfind(']');
  if (range != std::string::npos && end != std::string::npos) {
    into.range = type.substr(range + 5, end - range - 5);
    const auto dash = into.range.find(" - ");
    if (dash != std::string::npos) into.range.replace(dash, 3, " to ");
  }
}

HelpOption::Value ValueOf(const HelpOption& option, bool positional) {
  using Value = HelpOption::Value;
  const std::string& name = option.valueName;
  if (!option.choices.empty()) return Value::kChoice;
  if (name == "DIR") return Value::kDirectory;
  if (name == "FILE" || name == "PATH" || name.rfind("F.", 0) == 0) return Value::kFile;
  return positional ? Value::kFile : Value::kOther;
}

HelpOption ReadOption(const CLI::Option& option) {
  HelpOption help;
  for (const auto& name : option.get_lnames()) help.names.push_back("--" + name);
  for (const auto& name : option.get_snames()) help.names.push_back("-" + name);
  help.description = option.get_description();
  help.defaultText = option.get_default_str();
  help.required = option.get_required();
  help.needs = SortedNames(option.get_needs());
  help.excludes = SortedNames(option.get_excludes());
  if (option.get_items_expected_max() == 0) return help;
  ReadType(option.get_type_name(), help);
  help.value = ValueOf(help, option.get_positional());
  if (option.get_positional()) help.valueName = option.get_name(true);
  return help;
}

}  // namespace

HelpCommand ReadHelp(const CLI::App& app) {
  HelpCommand help{app.get_name(), app.get_description(), app.get_footer(), {}, {}, {}};
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;  // hidden
    (option->get_positional() ? help.positionals : help.options).push_back(ReadOption(*option));
  }
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (!command->get_group().empty()) help.commands.push_back(ReadHelp(*command));
  }
  return help;
}

}  // namespace tqtortho::app
