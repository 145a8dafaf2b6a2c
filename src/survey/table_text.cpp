// SPDX-License-Identifier: Apache-2.0
#include "survey/table_text.h"

#include <algorithm>
#include <utility>

namespace tqtortho::host {

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

std::string Lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return out;
}

std::string OneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return (c >= 0 && c < 32) || c == 127; }, ' ');
  return text;
}

bool SplitFields(std::string_view line, char separator, std::vector<std::string>& out) {
  out.clear();
  const bool blanks = separator == ' ';
  std::size_t at = 0;
  for (;;) {
    while (at < line.size() && (line[at] == ' ' || (line[at] == '\t' && separator != '\t'))) ++at;
    if (blanks && at >= line.size()) return true;
    std::string field;
    if (at < line.size() && (line[at] == '"' || line[at] == '\'')) {
      const char quote = line[at++];
      for (;; ++at) {
        if (at >= line.size()) return false;
        if (line[at] == quote) {
          if (at + 1 >= line.size() || line[at + 1] != quote) break;
          ++at;
        }
        field += line[at];
      }
      ++at;
      while (!blanks && at < line.size() && (line[at] == ' ' || line[at] == '\r')) ++at;
    } else {
      const std::size_t end = blanks ? line.find_first_of(" \t", at) : line.find(separator, at);
      field = Trimmed(line.substr(at, end == std::string_view::npos ? end : end - at));
      at = std::min(end, line.size());
    }
    out.push_back(std::move(field));
    if (at >= line.size()) return true;
    const bool apart = line[at] == separator || (blanks && line[at] == '\t');
    if (!apart) return false;
    ++at;
  }
}

char SeparatorOf(std::string_view header) {
  char quote = 0;
  bool semicolon = false, tab = false, comma = false;
  for (const char c : header) {
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else {
      semicolon = semicolon || c == ';';
      tab = tab || c == '\t';
      comma = comma || c == ',';
    }
  }
  return semicolon ? ';' : tab ? '\t' : comma ? ',' : ' ';
}

TextLines::TextLines(std::string_view text) : rest_(text) {
  if (rest_.substr(0, 3) == "\xEF\xBB\xBF") rest_.remove_prefix(3);
}

bool TextLines::Next(std::string_view& line) {
  if (rest_.empty()) return false;
  const std::size_t end = rest_.find_first_of("\r\n");
  line = rest_.substr(0, end);
  if (end == std::string_view::npos) {
    rest_ = {};
  } else {
    rest_.remove_prefix(end + (rest_.substr(end, 2) == "\r\n" ? 2 : 1));
  }
  ++number_;
  return true;
}

}  // namespace tqtortho::host
