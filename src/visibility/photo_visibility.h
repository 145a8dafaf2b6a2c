// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tqfd/Geometry.h"
#include "tqimage/GeoCoefficients.h"
#include "tqorkit/PhotoInfo.h"
#include "visibility/surface_visibility.h"

namespace tqtortho {

/// Reads the surface model under a ground rectangle and under everything that can hide it from
/// `camera`: toward the camera as far as sight lines run below the highest surface, a margin of
/// three cells, and a border of no data where the file ends.
///
/// @param surface       receives floats; its rectangle runs from first to last cell CENTRE
/// @param coefficients  receives the part's centre-registered georeference with the file's CRS
/// @return false when the file cannot be read, is not north-up, does not meet the rectangle, or the
///         part exceeds 1e9 cells.
[[nodiscard]] bool ReadSurfacePart(const std::string& dsmPath, const tqfd::Rect2_T<double>& rect,
                                   const tqfd::Point3_T<double>& camera,
                                   tqorkit::PhotoInfo& surface,
                                   tqimage::GeoCoefficients& coefficients);

/// Which cells of a ground lattice a photo sees, by the surface model in a file.
///
/// @param rect  first to last cell CENTRE of the lattice, its first cell at (minX, maxY):
/// trunc((maxX
///              - minX) / gsd + 0.5) + 1 columns, rows likewise
/// @param mask  receives rows x cols values of `options`
/// @return false when ReadSurfacePart fails or when rectangle, gsd or camera make no sense; the
///         outputs may then have changed.
///
/// Needs eight bytes per cell of the surface part beside the mask. Safe from several threads.
[[nodiscard]] bool JudgeVisibility(const PhotoCamera& camera, const std::string& dsmPath,
                                   const tqfd::Rect2_T<double>& rect, double gsd,
                                   const VisibilityOptions& options,
                                   std::vector<std::uint8_t>& mask, int& cols, int& rows);

/// The same into a byte raster with georeference and the surface model's CRS, made in parts, so
/// that memory does not grow with the mask. A failed call leaves no file.
[[nodiscard]] bool WriteVisibility(const PhotoCamera& camera, const std::string& dsmPath,
                                   const tqfd::Rect2_T<double>& rect, double gsd,
                                   const VisibilityOptions& options, const std::string& outPath);

}  // namespace tqtortho
