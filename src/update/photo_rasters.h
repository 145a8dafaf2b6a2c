// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "tqimage/GeoCoefficients.h"
#include "tqorkit/PhotoInfo.h"

namespace tqtortho {

/// Reads an ortho image. False when it is no byte raster.
[[nodiscard]] bool ReadOrtho(const std::string& path, tqorkit::PhotoInfo& ortho,
                             tqimage::GeoCoefficients& geo);
/// Reads a mask. False when it is no byte raster of one band.
[[nodiscard]] bool ReadMask(const std::string& path, tqorkit::PhotoInfo& mask);

}  // namespace tqtortho
