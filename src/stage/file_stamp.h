// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace tqtortho::host {

/// Size and time of a file as text; empty when it is not there.
[[nodiscard]] std::string FileStamp(const std::string& path);

/// Name of the file that keeps `file` as it was rectified, whether it is there or not.
[[nodiscard]] std::string OriginalOf(const std::string& workDir, const std::string& orthoPrefix,
                                     const std::string& file);

}  // namespace tqtortho::host
