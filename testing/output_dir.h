// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>

#include "testing/temp_dir.h"
#include "tqorkit/TqFSManager.h"

namespace tqtortho::testing {

/// A temporary directory that the library takes for its directory of products, the border mask's
/// folder included, until destruction.
class OutputDir : public TempDir {
 public:
  OutputDir() {
    tqorkit::TqFSManager::SetOutputTmpFilePath(Path());
    std::filesystem::create_directories(File("ot"));
  }
  ~OutputDir() { tqorkit::TqFSManager::SetOutputTmpFilePath(""); }
};

}  // namespace tqtortho::testing
