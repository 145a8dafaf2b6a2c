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
  if (const char* set = std::getenv("TQTORTHO_SHARED_DATA")) return set;
  const auto beside =
      std::filesystem::path(__FILE__).parent_path().parent_path().parent_path() / "shared" / "data";
  return std::filesystem::is_directory(beside) ? beside.string() : std::string();
}

}  // namespace tqtortho::testing
