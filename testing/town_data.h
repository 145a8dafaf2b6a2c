// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace tqtortho::testing {

/// The folder of outside measurement data (real surveys, towns with truth), or empty: the
/// environment variable TQTORTHO_SHARED_DATA, else "../shared/data" beside the source tree. Tests
/// that need it skip, and say so, when it is not there.
inline std::string SharedData() {
  const char* set = std::getenv("TQTORTHO_SHARED_DATA");
  const std::filesystem::path data =
      set != nullptr ? std::filesystem::path(set)
                     : std::filesystem::path(__FILE__).parent_path() / "../../shared/data";
  return std::filesystem::is_directory(data) ? data.string() : std::string();
}

}  // namespace tqtortho::testing
