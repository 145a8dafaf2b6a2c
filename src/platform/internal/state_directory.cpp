// SPDX-License-Identifier: Apache-2.0
#include "internal/state_directory.h"

#include <unistd.h>

#include <cstdlib>

namespace tqtortho {
namespace {

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

}  // namespace

std::string WithoutTrailingSeparators(std::string path) {
  while (path.size() > 1 && (path.back() == '/' || path.back() == '\\')) path.pop_back();
  return path;
}

std::string StateDirectory(const char* variable, const char* xdgVariable, const char* homeFolder) {
  if (const std::string set = Environment(variable); !set.empty()) {
    return WithoutTrailingSeparators(set);
  }
  // The base directory convention asks to ignore relative values.
  if (const std::string xdg = Environment(xdgVariable); !xdg.empty() && xdg[0] == '/') {
    return WithoutTrailingSeparators(xdg) + "/tqtortho";
  }
  if (const std::string home = WithoutTrailingSeparators(Environment("HOME")); !home.empty()) {
    return home + "/" + homeFolder + "/tqtortho";
  }
  return "/tmp/tqtortho-" + std::to_string(::getuid()) + "/" + homeFolder;
}

}  // namespace tqtortho
