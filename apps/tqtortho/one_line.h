// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <string>

namespace tqtortho::app {

/// The text with its control codes written out (\x0a): names come from strangers, and a line that
/// is said must stay one line and must not steer the terminal.
[[nodiscard]] inline std::string OneLine(const std::string& text) {
  std::string line;
  for (const char c : text) {
    const auto code = static_cast<unsigned char>(c);
    if (code >= 0x20 && code != 0x7f) {
      line += c;
      continue;
    }
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned>(code));
    line += escaped;
  }
  return line;
}

}  // namespace tqtortho::app
