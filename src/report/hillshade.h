// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/grid_view.h"

namespace tqtortho::host {

/// Where the light of a shaded relief comes from.
struct Light {
  double azimuthDeg = 315;  ///< clockwise from north; from the upper left, as maps are read
  double altitudeDeg = 45;
};

/// Shaded relief of a surface, by the slopes of Horn (1981, "Hill shading and the reflectance
/// map"): differences over 3 x 3 cells, the nearer neighbours counted twice.
///
/// @param heights  rows southwards, in the unit of the cell sizes; NaN where there is none
/// @param cellX, cellY  positive
/// @param shades   of the same size; 1 (turned away from the light) to 255 (facing it), level
///                 ground 1 + 254 sin(altitude); 0 where there is no height
///
/// A missing neighbour, also one beyond the edge, counts as level with the cell. Rows are shared
/// among OpenMP threads.
void ShadeRelief(GridView<const float> heights, double cellX, double cellY, const Light& light,
                 GridView<std::uint8_t> shades);

}  // namespace tqtortho::host
