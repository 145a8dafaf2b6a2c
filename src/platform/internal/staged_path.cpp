// SPDX-License-Identifier: Apache-2.0
#include "internal/staged_path.h"

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <set>

namespace tqtortho {
namespace {

std::timed_mutex directoriesMutex;
std::set<std::string>& Directories() {
  static auto* const directories = new std::set<std::string>;  // outlives threads that still work
  return *directories;
}

void Remember(const std::string& directory) {
  const std::lock_guard lock(directoriesMutex);
  Directories().insert(directory);
}

}  // namespace

std::string StagedPath(const std::string& target) {
  static std::atomic<unsigned> counter{0};
  // File names end at 255 bytes; a long one is cut so that the suffix fits.
  constexpr std::size_t kLongestStem = 200;
  const std::size_t start = target.find_last_of('/') + 1;  // npos + 1 is 0
  Remember(start == 0 ? "." : target.substr(0, start));
  return target.substr(0, start) + "." + target.substr(start, kLongestStem) + ".tmp-" +
         std::to_string(::getpid()) + "-" + std::to_string(++counter);
}

void RemoveStagedFiles(std::chrono::milliseconds patience) {
  namespace fs = std::filesystem;
  const auto end = std::chrono::steady_clock::now() + patience;
  const std::unique_lock lock(directoriesMutex, patience);
  if (!lock.owns_lock()) return;
  const std::string mine = ".tmp-" + std::to_string(::getpid()) + "-";
  for (const std::string& directory : Directories()) {
    std::error_code failed;
    for (fs::directory_iterator it(directory, failed), last; !failed && it != last;
         it.increment(failed)) {
      if (std::chrono::steady_clock::now() > end) return;
      const std::string name = it->path().filename().string();
      std::error_code ignored;
      if (name.front() == '.' && name.find(mine) != std::string::npos) {
        fs::remove(it->path(), ignored);
      }
    }
  }
}

std::size_t FileNameStart(const std::string& path) {
  return path.find_last_of("/\\") + 1;  // npos + 1 is 0
}

std::size_t ExtensionStart(const std::string& path) {
  const std::size_t dot = path.find_last_of('.');
  return dot == std::string::npos || dot < FileNameStart(path) ? path.size() : dot;
}

}  // namespace tqtortho
