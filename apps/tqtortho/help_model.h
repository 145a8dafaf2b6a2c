// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "commands.h"

namespace tqtortho::app {

/// What the command's help says, as plain data for the writers of pages and completions.
struct HelpOption {
  enum class Value { kNone, kChoice, kFile, kDirectory, kOther };

  std::vector<std::string> names;  ///< with their dashes, long ones first; empty for a positional
  std::string valueName;           ///< "FILE", "M", ...; empty for a flag
  std::string range;               ///< "0 to 1e+06"; empty without bounds
  std::string defaultText;
  std::string description;
  std::vector<std::string> choices;
  std::vector<std::string> needs, excludes;  ///< names of other options, sorted
  Value value = Value::kNone;
  bool required = false;
};

struct HelpCommand {
  std::string name, description, footer;
  std::vector<HelpOption> options, positionals;
  std::vector<HelpCommand> commands;  ///< without those that the help does not list
};

[[nodiscard]] HelpCommand ReadHelp(const CLI::App& app);

/// Manual page, section 1. `version` and `date` (YYYY-MM-DD) stand in its header and footer.
[[nodiscard]] std::string ManPage(const HelpCommand& tool, const std::string& version,
                                  const std::string& date);

/// Completion scripts; each is complete in one file of its shell's usual directory.
[[nodiscard]] std::string BashCompletion(const HelpCommand& tool);
[[nodiscard]] std::string ZshCompletion(const HelpCommand& tool);
[[nodiscard]] std::string FishCompletion(const HelpCommand& tool);

}  // namespace tqtortho::app
