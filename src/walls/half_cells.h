// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "core/grid_view.h"

namespace tqtortho {

/// Cells along one side of a grid of half the cell size: the old centres and the points between.
[[nodiscard]] constexpr int HalfCells(int cells) { return cells < 1 ? 0 : 2 * cells - 1; }

/// A surface model on cells of half the size. Cell (2r, 2c) is cell (r, c) with its height.
///
/// A wall is narrower than a cell, so where it stands cannot be said on the old cells better than
/// to half of one. Points between are read from the surface with its walls (see StepSurface): a
/// blend of roof and ground would be a ledge half way up each wall.
///
/// @param noData  of cells without a height, in and out
[[nodiscard]] std::vector<float> OnHalfCells(GridView<const float> heights, double noData,
                                             double wallStep);

}  // namespace tqtortho
