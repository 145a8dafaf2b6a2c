// SPDX-License-Identifier: Apache-2.0
#include "help_model.h"

namespace tqtortho::app {
namespace {

using Value = HelpOption::Value;

std::string Joined(const std::vector<std::string>& words, const char* between) {
  std::string out;
  for (const auto& word : words) out += (out.empty() ? "" : between) + word;
  return out;
}

// A word in single quotes, as bash and zsh read it (fish too: '\'' means the same there).
std::string Quoted(const std::string& text) {
  std::string out = "'";
  for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

std::vector<std::string> LongNames(const HelpCommand& command) {
  std::vector<std::string> names;
  for (const auto& option : command.options) names.push_back(option.names.front());
  return names;
}

std::string BashCase(const HelpCommand& command, const std::string& label,
                     const std::string& words) {
  std::string out = "    " + label + ")\n      words=" + Quoted(words) + "\n";
  if (!command.positionals.empty()) out += "      kind=file\n";
  std::string cases;
  for (const auto& option : command.options) {
    if (option.value == Value::kNone) continue;
    cases += "        " + Joined(option.names, "|") + ") ";
    if (option.value == Value::kChoice) {
      cases += "kind=value words=" + Quoted(Joined(option.choices, " ")) + " ;;\n";
    } else {
      const bool file = option.value == Value::kFile, dir = option.value == Value::kDirectory;
      cases += std::string("kind=") +
               (file  ? "file"
                : dir ? "directory"
                      : "value") +
               " words= ;;\n";
    }
  }
  if (!cases.empty()) out += "      case $previous in\n" + cases + "      esac\n";
  return out + "      ;;\n";
}

// Descriptions stand between brackets and end at a colon elsewhere in zsh's argument form.
std::string ZshText(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '[' || c == ']' || c == ':' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

std::string ZshAction(const HelpOption& option) {
  switch (option.value) {
    case Value::kChoice:
      return ":(" + Joined(option.choices, " ") + ")";
    case Value::kFile:
      return ":_files";
    case Value::kDirectory:
      return ":_files -/";
    default:
      return ": ";
  }
}

std::string ZshArguments(const HelpCommand& command, const std::string& indent) {
  std::string out;
  for (const auto& option : command.options) {
    for (const auto& name : option.names) {
      const bool flag = option.value == Value::kNone, isLong = name.rfind("--", 0) == 0;
      std::string argument = name + (flag ? "" : isLong ? "=" : "+");
      argument += "[" + ZshText(option.description) + "]";
      if (!flag) argument += ":" + ZshText(option.valueName) + ZshAction(option);
      out += " \\\n" + indent + Quoted(argument);
    }
  }
  for (const auto& positional : command.positionals) {
    out += " \\\n" + indent + Quoted(":" + ZshText(positional.valueName) + ZshAction(positional));
  }
  return out;
}

std::string FishOptions(const HelpCommand& command, const std::string& start) {
  std::string out;
  for (const auto& option : command.options) {
    out += start;
    for (const auto& name : option.names) {
      const bool isLong = name.rfind("--", 0) == 0;
      out += isLong ? " -l " + name.substr(2) : " -s " + name.substr(1);
    }
    if (option.value == Value::kFile) out += " -r -F";
    if (option.value == Value::kOther) out += " -x";
    if (option.value == Value::kDirectory) out += " -x -a '(__fish_complete_directories)'";
    if (option.value == Value::kChoice) out += " -x -a " + Quoted(Joined(option.choices, " "));
    out += " -d " + Quoted(option.description) + "\n";
  }
  if (!command.positionals.empty()) out += start + " -F\n";
  return out;
}

}  // namespace

std::string BashCompletion(const HelpCommand& tool) {
  std::vector<std::string> commands;
  for (const auto& command : tool.commands) commands.push_back(command.name);
  std::string out = "# bash completion of " + tool.name + ", made from its help\n_" + tool.name +
                    R"(() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
  local command= kind=word words=
  # bash takes --option=value apart at the equals sign.
  if [[ $current == = ]]; then
    current=
  elif [[ $previous == = ]]; then
    previous=${COMP_WORDS[COMP_CWORD-2]}
  fi
  ((COMP_CWORD > 1)) && command=${COMP_WORDS[1]}
  case $command in
)";
  HelpCommand top = tool;
  top.positionals.clear();
  out += BashCase(top, "''", Joined(commands, " ") + " " + Joined(LongNames(tool), " "));
  for (const auto& command : tool.commands) {
    out += BashCase(command, command.name, Joined(LongNames(command), " "));
  }
  out += R"(  esac
  [[ $kind == word && -z $command && $current != -* ]] && words=${words%% --*}
  [[ $kind == file && $current == -* ]] && kind=word
  COMPREPLY=()
  case $kind in
    file) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    directory) mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
    *) mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current") ;;
  esac
  # Only a running completion can be told to quote names and to add slashes to directories.
  [[ $kind == file || $kind == directory ]] && compopt -o filenames 2>/dev/null
  return 0
}
)";
  return out + "complete -F _" + tool.name + " " + tool.name + "\n";
}

std::string ZshCompletion(const HelpCommand& tool) {
  std::string out = "#compdef " + tool.name + "\n# zsh completion of " + tool.name +
                    ", made from its help\n_" + tool.name +
                    "() {\n  local curcontext=$curcontext state line\n  typeset -A opt_args\n"
                    "  local -a commands=(\n";
  for (const auto& command : tool.commands) {
    out += "    " + Quoted(command.name + ":" + ZshText(command.description)) + "\n";
  }
  HelpCommand top = tool;
  top.positionals.clear();
  out += "  )\n  _arguments -C" + ZshArguments(top, "    ") +
         " \\\n    '1:command:->command' '*::argument:->argument'\n"
         "  case $state in\n    command) _describe command commands ;;\n    argument)\n"
         "      case $line[1] in\n";
  for (const auto& command : tool.commands) {
    out += "        " + command.name + ")\n          _arguments" +
           ZshArguments(command, "            ") + "\n          ;;\n";
  }
  return out + "      esac ;;\n  esac\n}\n_" + tool.name + " \"$@\"\n";
}

std::string FishCompletion(const HelpCommand& tool) {
  const std::string start = "complete -c " + tool.name;
  const std::string top = start + " -n __fish_use_subcommand";
  std::string out =
      "# fish completion of " + tool.name + ", made from its help\n" + start + " -f\n";
  out += FishOptions(tool, top);
  for (const auto& command : tool.commands) {
    out += top + " -a " + command.name + " -d " + Quoted(command.description) + "\n";
    out += FishOptions(command, start + " -n '__fish_seen_subcommand_from " + command.name + "'");
  }
  return out;
}

}  // namespace tqtortho::app
