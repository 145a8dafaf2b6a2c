// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "camera/camera_model.h"
#include "report/report_grid.h"
#include "tqfd/Geometry.h"

namespace tqtortho::host {

/// A photo as it can be laid over the ground without asking what it can see.
struct GroundPhoto {
  int number = 0;  ///< global, from 1
  PhotoCamera camera;
  std::string photoPath;
  std::string maskPath;          ///< 255 where it cannot see the ground
  tqfd::Rect2_T<double> ground;  ///< box around its frame
};

/// What photos show of each cell, by geometry alone.
struct PhotoCoverage {
  std::vector<std::uint16_t> nearest;  ///< number of the nearest photo with the cell in its frame
  std::vector<std::uint8_t> frames;    ///< photos with the cell in their frame (255: or more)
  std::vector<std::uint8_t> hidden;    ///< those of them that cannot see it; empty: no mask read
};

/// Finds out for each cell with a height (NaN: none) which photos have it in their frame, and by
/// their masks how many of these cannot see it. Nearest is on the map, between cell and projection
/// centre; the lower number wins a tie. A mask that cannot be read hides nothing.
[[nodiscard]] PhotoCoverage FindCoverage(const ReportGrid& grid, const std::vector<float>& heights,
                                         const std::vector<GroundPhoto>& photos);

/// The mosaic that comes of laying the nearest photo over the surface without asking what it sees:
/// walls and roofs fall over the ground behind them. The true one is to be compared with it.
///
/// Photos are read reduced to about the size of the grid's cells, two at a time or as many as there
/// are threads. A photo that cannot be read leaves its cells black and 0 in `nearest`.
/// @return three bytes per cell
[[nodiscard]] std::vector<std::uint8_t> DrawNearest(const ReportGrid& grid,
                                                    const std::vector<float>& heights,
                                                    const std::vector<GroundPhoto>& photos,
                                                    std::vector<std::uint16_t>& nearest);

}  // namespace tqtortho::host
