// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace tqtortho::host {

/// One thing that the check found, in one line that names the file or photo, says what is wrong and
/// what to do.
struct Finding {
  enum class Level { kError, kWarning };
  Level level = Level::kError;
  std::string text;
};

}  // namespace tqtortho::host
