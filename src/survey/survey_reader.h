// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "survey/survey.h"

namespace tqtortho::host {

/// Reads a camera file and a photo list strictly.
///
/// The library itself skips in silence what it cannot parse, so that a typing error costs photos
/// after hours of work. Here every line must be right: counts, sixteen finite values per camera,
/// eight fields per photo, known cameras, every photo once, angles in radians, plausible focal
/// lengths and principal points. Windows line ends and a byte order mark are accepted. Relative
/// block paths are resolved against the photo list's folder. Whether the photos exist is not
/// looked at.
///
/// @param problems  receives one line per fault: file, line number, what is wrong, what to do
/// @return nothing when there is a problem.
[[nodiscard]] std::optional<Survey> ReadSurvey(const std::string& cameraFile,
                                               const std::string& photoList,
                                               std::vector<std::string>& problems);

/// The same on texts; `cameraFile` and `photoList` name them in the problems, and the folder of
/// `photoList` is what relative block paths are resolved against.
[[nodiscard]] std::optional<Survey> ParseSurvey(std::string_view cameraText,
                                                const std::string& cameraFile,
                                                std::string_view photoText,
                                                const std::string& photoList,
                                                std::vector<std::string>& problems);

}  // namespace tqtortho::host
