// SPDX-License-Identifier: Apache-2.0
#include "tqfd/PathHelper.h"

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <system_error>

#include "internal/safe_file.h"
#include "internal/staged_path.h"
#include "internal/state_directory.h"

namespace tqfd {
namespace {

namespace fs = std::filesystem;

std::mutex dataDirectoryMutex;
std::string dataDirectory;  // guarded by dataDirectoryMutex; empty = the default order

}  // namespace

std::string PathHelper::GetProgramDataDirectory() {
  {
    const std::lock_guard lock(dataDirectoryMutex);
    if (!dataDirectory.empty()) return dataDirectory;
  }
  return tqtortho::StateDirectory("TQTORTHO_DATA_DIR", "XDG_DATA_HOME", ".local/share");
}

void PathHelper::SetProgramDataDirectory(const std::string& directory) {
  const std::lock_guard lock(dataDirectoryMutex);
  dataDirectory = tqtortho::WithoutTrailingSeparators(directory);
}

std::string PathHelper::GetExecuteFilePath() {
  std::error_code error;
  return fs::read_symlink("/proc/self/exe", error).parent_path().string();
}

bool PathHelper::CopyFile2(const std::string& source, const std::string& target) {
  return tqtortho::CopyWholeFile(source, target);
}

bool PathHelper::RemoveFile(const std::string& path) {
  std::error_code error;
  // A directory is never removed, not even an empty one.
  if (fs::is_directory(fs::symlink_status(path, error))) return false;
  error.clear();
  fs::remove(path, error);
  return !error;
}

bool PathHelper::SplitPath(const std::string& path, PathParts& parts) {
  constexpr std::size_t kDriveLimit = 31;
  constexpr std::size_t kDirectoryLimit = 1023;
  constexpr std::size_t kFileNameLimit = 255;
  constexpr std::size_t kExtensionLimit = 31;

  parts = {};
  const bool letter =
      !path.empty() && ((path[0] >= 'A' && path[0] <= 'Z') || (path[0] >= 'a' && path[0] <= 'z'));
  const std::size_t driveEnd = letter && path.size() > 1 && path[1] == ':' ? 2 : 0;
  const std::size_t nameStart = std::max(tqtortho::FileNameStart(path), driveEnd);
  const std::size_t dot = tqtortho::ExtensionStart(path);

  PathParts found;
  found.drive = path.substr(0, driveEnd);
  found.directory = path.substr(driveEnd, nameStart - driveEnd);
  found.fileName = path.substr(nameStart, dot - nameStart);
  found.extension = path.substr(dot);
  if (found.drive.size() > kDriveLimit || found.directory.size() > kDirectoryLimit ||
      found.fileName.size() > kFileNameLimit || found.extension.size() > kExtensionLimit) {
    return false;
  }
  parts = std::move(found);
  return true;
}

bool PathHelper::MakeParentDirectory(const std::string& path) {
  const fs::path parent = fs::path(path).parent_path();
  if (parent.empty()) return true;
  std::error_code error;
  fs::create_directories(parent, error);
  return fs::is_directory(parent, error);
}

}  // namespace tqfd
