// SPDX-License-Identifier: Apache-2.0
#include "internal/staged_path.h"

#include <unistd.h>

#include <atomic>

namespace tqtortho {

std::string StagedPath(const std::string& target) {
  static std::atomic<unsigned> counter{0};
  // File names end at 255 bytes; a long one is cut so that the suffix fits.
  constexpr std::size_t kLongestStem = 200;
  const std::size_t start = target.find_last_of('/') + 1;  // npos + 1 is 0
  return target.substr(0, start) + "." + target.substr(start, kLongestStem) + ".tmp-" +
         std::to_string(::getpid()) + "-" + std::to_string(++counter);
}

std::size_t FileNameStart(const std::string& path) {
  return path.find_last_of("/\\") + 1;  // npos + 1 is 0
}

std::size_t ExtensionStart(const std::string& path) {
  const std::size_t dot = path.find_last_of('.');
  return dot == std::string::npos || dot < FileNameStart(path) ? path.size() : dot;
}

}  // namespace tqtortho
