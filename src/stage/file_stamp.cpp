// SPDX-License-Identifier: Apache-2.0
#include "stage/file_stamp.h"

#include <sys/stat.h>

namespace tqtortho::host {

std::string FileStamp(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {};
  return std::to_string(status.st_size) + " " + std::to_string(status.st_mtim.tv_sec) + "." +
         std::to_string(status.st_mtim.tv_nsec);
}

std::string OriginalOf(const std::string& workDir, const std::string& orthoPrefix,
                       const std::string& file) {
  const bool below = file.compare(0, orthoPrefix.size(), orthoPrefix) == 0;
  return workDir + "/state/originals/" + (below ? file.substr(orthoPrefix.size()) : file);
}

}  // namespace tqtortho::host
