// SPDX-License-Identifier: Apache-2.0
#include "report/short_paths.h"

#include <filesystem>

namespace tqtortho::host {
namespace {

/// Where the last name begins of a path that begins at `start`; `start` itself when it has none.
std::size_t LastName(const std::string& text, std::size_t start) {
  const std::size_t space = std::min(text.find_first_of(" \t\n", start), text.size());
  std::size_t name = text.rfind('/', space) + 1;  // at least the slash at `start`
  // Names may have spaces: whatever directory exists belongs to the path.
  for (std::size_t slash = text.find('/', space); slash != std::string::npos;
       slash = text.find('/', slash + 1)) {
    std::error_code failed;
    const std::string directory = text.substr(start, slash - start);
    if (directory.size() < 4096 && std::filesystem::is_directory(directory, failed)) {
      name = slash + 1;
    }
  }
  return name;
}

bool MayPrecedePath(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '"' || c == '\'' || c == '(' || c == '=';
}

}  // namespace

std::string WithShortPaths(const std::string& text) {
  std::string shorter;
  for (std::size_t i = 0; i < text.size();) {
    const bool path = text[i] == '/' && i + 1 < text.size() && !MayPrecedePath(text[i + 1]) &&
                      (i == 0 || MayPrecedePath(text[i - 1]));
    if (path) {
      i = LastName(text, i);
    } else {
      shorter += text[i++];
    }
  }
  return shorter;
}

}  // namespace tqtortho::host
