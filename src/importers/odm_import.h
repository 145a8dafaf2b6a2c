// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "importers/import_assembly.h"
#include "survey/survey.h"

namespace tqtortho::host {

/// True for the folder of an OpenDroneMap project: its reconstruction, and folders of its own
/// beside. Decided by content; never fails.
[[nodiscard]] bool LooksLikeOdm(const std::string& path);

/// Reads an OpenDroneMap project as it lies on disk: opensfm/reconstruction.json, images/,
/// odm_dem/dsm.tif, and odm_georeferencing where present. With a DSM of its own in `request`, poses
/// go from the map of the project's DSM to that one's.
///
/// @return nothing, with one line in `error`, when the project is incomplete or a lens model cannot
///         be expressed within 0.15 pixel everywhere (0.05 RMS) over the frame.
[[nodiscard]] std::optional<Survey> ImportOdm(const ImportRequest& request, std::string& error);

/// The same with all of the project's own.
[[nodiscard]] std::optional<Survey> ImportOdm(const std::string& projectDir, std::string& error);

}  // namespace tqtortho::host
