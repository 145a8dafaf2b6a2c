// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "tqfd/Export.h"

namespace tqfd {

/// The four parts of a path; concatenated they give the path again.
struct PathParts {
  std::string drive;      ///< "C:" or empty
  std::string directory;  ///< up to and including the last separator ('/' or '\\')
  std::string fileName;   ///< without the extension
  std::string extension;  ///< with its dot, or empty
};

/// Paths of the process and small file operations. All members are thread-safe.
class TQTORTHO_API PathHelper {
 public:
  /// Directory of the job's own state, without a trailing separator. Order: the setter, the
  /// environment variable TQTORTHO_DATA_DIR, $XDG_DATA_HOME/tqtortho, ~/.local/share/tqtortho.
  static std::string GetProgramDataDirectory();
  /// Overrides the directory above for this process; an empty text restores the default order.
  static void SetProgramDataDirectory(const std::string& directory);
  /// Directory of the running executable, without a trailing separator.
  static std::string GetExecuteFilePath();
  /// Copies a file, replacing the target in one step (written beside and renamed).
  static bool CopyFile2(const std::string& source, const std::string& target);
  /// Removes a file; true when it is gone afterwards.
  static bool RemoveFile(const std::string& path);
  /// Splits a path. False, and all parts empty, when a part exceeds the limits that every file
  /// name of a job obeys: drive 31, directory 1023, file name 255, extension 31 bytes.
  static bool SplitPath(const std::string& path, PathParts& parts);
  /// Creates the directory that will hold `path`, and its parents.
  static bool MakeParentDirectory(const std::string& path);
};

}  // namespace tqfd
