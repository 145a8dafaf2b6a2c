// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "host/survey.h"

namespace tqtortho::host {

/// Reads an OpenDroneMap project as it lies on disk: opensfm/reconstruction.json, images/,
/// odm_dem/dsm.tif, and odm_georeferencing where present.
///
/// @return nothing, with one line in `error`, when the project is incomplete or a lens model cannot
///         be expressed within 0.15 pixel everywhere (0.05 RMS) over the frame.
[[nodiscard]] std::optional<Survey> ImportOdm(const std::string& projectDir, std::string& error);

}  // namespace tqtortho::host
