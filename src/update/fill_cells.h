// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "core/grid_view.h"

namespace tqtortho {

/// Cells of an ortho image with `bands` interleaved samples (columns of the view count samples):
/// true where it has no data (0 in all bands) or shows an invalid photo pixel (1 in all bands).
[[nodiscard]] bool IsEmptyCell(const std::uint8_t* samples, int bands);

/// Marks with 1 the empty cells that data encloses: holes, as against the corners between a photo's
/// frame and its raster. A hole that meets other empty cells at a corner only is one of its own.
///
/// @param ortho  `bands` samples per cell
/// @param holes  one value per cell, every one is written
void FindHoles(GridView<const std::uint8_t> ortho, int bands, GridView<std::uint8_t> holes);

/// Copies the texture over the cells marked `mark`, wherever it has a colour (not 0 in all its
/// bands). All other samples stay as they are. An ortho of fewer bands than the texture takes the
/// first ones; its further bands stay.
///
/// @param texture, ortho  interleaved samples; rows and cells alike, bands may differ
/// @return the number of cells that were replaced
std::int64_t ReplaceCells(GridView<const std::uint8_t> marks, std::uint8_t mark,
                          GridView<const std::uint8_t> texture, int textureBands,
                          GridView<std::uint8_t> ortho, int orthoBands);

}  // namespace tqtortho
