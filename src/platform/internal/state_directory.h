// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace tqtortho {

/// The path without separators at its end; the root directory stays "/".
[[nodiscard]] std::string WithoutTrailingSeparators(std::string path);

/// A directory of the product's own state: the environment variable `variable`, else
/// "$xdgVariable/tqtortho", else "<home>/homeFolder/tqtortho". Without a home (a service account),
/// a folder of the user's own in the system's temporary directory.
[[nodiscard]] std::string StateDirectory(const char* variable, const char* xdgVariable,
                                         const char* homeFolder);

}  // namespace tqtortho
