// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cctype>
#include <sstream>

#include "help_model.h"

namespace tqtortho::app {
namespace {

// roff reads backslashes as escapes and lines that start with a dot or a quote as requests, and
// sets a bare hyphen as a typographic one, which cannot be copied into a terminal.
std::string Escaped(const std::string& text, bool literal) {
  std::string out;
  for (const char c : text) {
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-' && literal) {
      out += "\\-";
    } else if (c == '\'') {
      out += literal ? "\\(aq" : "\\(cq";
    } else if (c == '~' && literal) {
      out += "\\(ti";
    } else {
      out += c;
    }
  }
  return (!out.empty() && out.front() == '.') ? "\\&" + out : out;
}

// Words that begin with dashes are options wherever they stand in a text.
std::string Prose(const std::string& text) {
  constexpr std::size_t kWidth = 76;
  std::istringstream words(text);
  std::string out, line, word;
  while (words >> word) {
    word = Escaped(word, word.front() == '-' || word.rfind("(--", 0) == 0);
    if (!line.empty() && line.size() + word.size() >= kWidth) {
      out += line + "\n";
      line.clear();
    }
    line += (line.empty() ? "" : " ") + word;
  }
  return line.empty() ? out : out + line + "\n";
}

std::string Bold(const std::string& text) { return "\\fB" + Escaped(text, true) + "\\fR"; }
std::string Italic(const std::string& text) { return "\\fI" + Escaped(text, true) + "\\fR"; }

std::string Joined(const std::vector<std::string>& names) {
  std::string out;
  for (const auto& name : names) out += (out.empty() ? "" : ", ") + name;
  return out;
}

// Indented lines of a help text are commands to copy; "Example: command" is one as well.
std::string Paragraphs(const std::string& text) {
  std::istringstream lines(text);
  std::string out, line, code;
  const auto flush = [&] {
    if (!code.empty()) out += ".PP\n.RS 4\n.EX\n" + code + ".EE\n.RE\n";
    code.clear();
  };
  const std::string kExample = "Example: ";
  while (std::getline(lines, line)) {
    if (line.rfind(kExample, 0) == 0) {
      out += ".PP\nExample:\n";
      line = "  " + line.substr(kExample.size());
    }
    if (line.rfind("  ", 0) == 0) {
      code += Escaped(line.substr(line.find_first_not_of(' ')), true) + "\n";
    } else {
      flush();
      if (!line.empty()) out += ".PP\n" + Prose(line);
    }
  }
  flush();
  return out;
}

std::string ValueText(const HelpOption& option) {
  if (option.choices.empty()) return Italic(option.valueName);
  std::string out;
  for (const auto& choice : option.choices) out += (out.empty() ? "" : "|") + Bold(choice);
  return out;
}

std::string OptionEntry(const HelpOption& option) {
  std::string head;
  for (const auto& name : option.names) head += (head.empty() ? "" : ", ") + Bold(name);
  if (option.value != HelpOption::Value::kNone) {
    head += (head.empty() ? "" : " ") + (option.names.empty() ? Italic(option.valueName)  //
                                                              : ValueText(option));
  }
  std::string text = option.description + ".";
  text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
  if (option.required) text += " Required.";
  if (!option.range.empty()) text += " From " + option.range + ".";
  if (!option.defaultText.empty()) text += " Default: " + option.defaultText + ".";
  if (!option.needs.empty()) text += " Together with " + Joined(option.needs) + ".";
  if (!option.excludes.empty()) text += " Not together with " + Joined(option.excludes) + ".";
  return ".TP\n" + head + "\n" + Prose(text);
}

std::string Options(const HelpCommand& command) {
  std::string out;
  for (const auto& option : command.positionals) out += OptionEntry(option);
  for (const auto& option : command.options) out += OptionEntry(option);
  return out;
}

std::string CommandSection(const HelpCommand& tool, const HelpCommand& command) {
  std::string out = ".SS " + command.name + "\n" + Bold(tool.name + " " + command.name);
  for (const auto& option : command.options) {
    if (option.required) out += " " + Bold(option.names.front()) + " " + ValueText(option);
  }
  out += " [" + Italic("options") + "]";
  for (const auto& positional : command.positionals) out += " " + Italic(positional.valueName);
  return out + "\n.PP\n" + Prose(command.description + ".") + Options(command) +
         Paragraphs(command.footer);
}

}  // namespace

std::string ManPage(const HelpCommand& tool, const std::string& version, const std::string& date) {
  std::string name = tool.name;
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  const auto end = tool.description.find(".\n");
  std::string brief = tool.description.substr(0, end);
  if (!brief.empty()) {
    brief[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(brief[0])));
  }
  const std::string rest = end == std::string::npos ? "" : tool.description.substr(end + 2);

  std::string out = ".TH " + name + " 1 \"" + date + "\" \"" + tool.name + " " + version + "\"\n";
  out += ".SH NAME\n" + tool.name + " \\- " + Escaped(brief, false) + "\n";
  out += ".SH SYNOPSIS\n" + Bold(tool.name) + " " + Italic("command") + " [" + Italic("options") +
         "]\n";
  out += ".SH DESCRIPTION\n" + Bold(tool.name) + " makes " + Escaped(brief, false) +
         ".\nEach command has its own options; " + Bold(tool.name) + " " + Italic("command") + " " +
         Bold("--help") + "\nlists them as well.\n" + Paragraphs(rest);
  out += ".SH OPTIONS\n" + Options(tool) + ".SH COMMANDS\n";
  for (const auto& command : tool.commands) out += CommandSection(tool, command);
  out += Paragraphs(tool.footer);
  const auto status = [&](ExitStatus value, const char* text) {
    out += ".TP\n" + Bold(std::to_string(value)) + "\n" + text + "\n";
  };
  out += ".SH EXIT STATUS\n";
  status(kDone, "Done.");
  status(kFailed, "The work failed; one line on standard error says why.");
  status(kBadInput, "Wrong usage or input that cannot be used; nothing was started.");
  status(kInterrupted,
         "Interrupted by Ctrl-C or a termination, within two seconds; the same command goes on.");
  out += ".SH SEE ALSO\n" +
         Prose("Tutorial, output files, conventions and figures are installed in share/doc/" +
               tool.name + " beside the command.");
  return out;
}

}  // namespace tqtortho::app
