// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace tqtortho::host {

/// Keeps other jobs out of a directory while it lives.
///
/// The lock is the kernel's, on a file in the directory, so it ends with the process however that
/// ends; the file stays.
class DirectoryLock {
 public:
  DirectoryLock() = default;
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

  /// @return false, with one line in `error` that names the other process, when the directory is
  ///         taken. Where the file system knows no locks, the directory counts as free.
  [[nodiscard]] bool Take(const std::string& directory, std::string& error);

 private:
  int file_ = -1;
};

}  // namespace tqtortho::host
