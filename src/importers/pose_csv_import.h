// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "importers/import_assembly.h"
#include "survey/survey.h"

namespace tqtortho::host {

/// True for a text table whose header names photos and their positions, or a folder that holds
/// exactly one. Decided by content; never fails.
[[nodiscard]] bool LooksLikePoseCsv(const std::string& path);

/// Reads a table of poses with a header, and the calibration beside it. Photos are taken in the
/// order of their names, which is that of their flight.
///
/// @return nothing, with one line in `error`, when they cannot be used.
[[nodiscard]] std::optional<Survey> ImportPoseCsv(const ImportRequest& request, std::string& error);

}  // namespace tqtortho::host
