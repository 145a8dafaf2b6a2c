// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "core/grid_view.h"
#include "tqimage/GeoCoefficients.h"
#include "tqorkit/PhotoInfo.h"

namespace tqtortho {

/// Removes what an earlier job left for a photo: ortho image, masks, sidecars, reduced copy. A
/// photo that fails this time must not show yesterday's result.
void RemoveOldOutputs(const std::string& orthoName, const std::string& outputDir);

/// Removes what a killed job may have left unfinished; never an output.
void RemoveLeftovers(const std::string& orthoName);

/// The centre-registered georeference of an ortho record, in the CRS given as WKT.
[[nodiscard]] tqimage::GeoCoefficients GeoreferenceOf(const tqorkit::PhotoInfo& ortho,
                                                      const std::string& projection);

/// 255 where any band of a pixel holds data (is not 0), 0 elsewhere.
///
/// @param pixels  rows x (cols * bands) interleaved samples
/// @param mask    rows x cols
void MarkData(GridView<const std::uint8_t> pixels, int bands, GridView<std::uint8_t> mask);

/// Writes an ortho image, as rectified or as an update has changed it: its file names 0 as no data
/// and says what it is.
[[nodiscard]] bool WriteOrthoImage(const std::string& orthoName, const tqorkit::PhotoInfo& ortho,
                                   const tqimage::GeoCoefficients& coefficients);

/// Writes the ownership mask of an ortho (its data cells until the mosaic is divided) and the
/// mask's copy for programs that know a TIFF by its name.
[[nodiscard]] bool WriteOwnershipMask(const std::string& orthoName, const tqorkit::PhotoInfo& ortho,
                                      const tqimage::GeoCoefficients& coefficients);

/// Writes the copy of an ortho reduced by `scale` (>= 1; exactly 1 copies it unchanged) into the
/// directory "rs" beside the output directory: nearest neighbours, cell size times scale, the
/// centre of the first cell unmoved (it is the same pixel).
[[nodiscard]] bool WriteReducedCopy(const std::string& orthoName, const std::string& outputDir,
                                    const tqorkit::PhotoInfo& ortho, double scale,
                                    const std::string& projection);

}  // namespace tqtortho
