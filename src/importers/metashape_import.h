// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "importers/import_assembly.h"
#include "survey/survey.h"

namespace tqtortho::host {

/// True for an Agisoft Metashape cameras XML, or a folder that holds one (cameras.xml, else the
/// only such file). Decided by content; never fails.
[[nodiscard]] bool LooksLikeMetashape(const std::string& path);

/// Reads cameras exported from Agisoft Metashape as XML: sensors, camera transforms and the chunk's
/// transform, with the coordinate system of its reference.
///
/// @return nothing, with one line in `error`, when the file cannot be used.
[[nodiscard]] std::optional<Survey> ImportMetashape(const ImportRequest& request,
                                                    std::string& error);

}  // namespace tqtortho::host
