// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tqimage/GeoCoefficients.h"
#include "tqorkit/PhotoInfo.h"
#include "tqorkit/tqPhotoCategory.h"

namespace tqtortho {

/// Reads an ortho image. False when it is no byte raster.
[[nodiscard]] bool ReadOrtho(const std::string& path, tqorkit::PhotoInfo& ortho,
                             tqimage::GeoCoefficients& geo);
/// The CRS of the first ortho image among the photos that can be opened; nothing, and a line in the
/// log that names the first photo's, when none can: most often the prefix is not the job's.
[[nodiscard]] std::optional<std::string> OrthoProjection(
    const std::vector<tqorkit::tqPhotoCategory>& blocks, const std::string& orthoDir);
/// Reads a mask. False when it is no byte raster of one band.
[[nodiscard]] bool ReadMask(const std::string& path, tqorkit::PhotoInfo& mask);

}  // namespace tqtortho
