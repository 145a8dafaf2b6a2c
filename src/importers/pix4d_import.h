// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "importers/import_assembly.h"
#include "survey/survey.h"

namespace tqtortho::host {

/// True for a Pix4D params folder (calibrated external and internal camera parameters), the folder
/// of a project that has one, or one of those files. Decided by content; never fails.
[[nodiscard]] bool LooksLikePix4d(const std::string& path);

/// Reads the calibrated parameter files of a Pix4D project.
///
/// @return nothing, with one line in `error`, when the files cannot be used.
[[nodiscard]] std::optional<Survey> ImportPix4d(const ImportRequest& request, std::string& error);

}  // namespace tqtortho::host
