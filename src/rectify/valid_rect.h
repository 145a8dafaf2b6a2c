// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "camera/camera_model.h"
#include "rectify/surface_tile.h"
#include "tqfd/Geometry.h"

namespace tqtortho {

/// Largest output grid, in bytes.
inline constexpr std::int64_t kMaxGridBytes = 2'000'000'000;

/// The ground cells of an output: cell (row, col) stands at X = minX + col * cell and
/// Y = maxY - row * cell, always computed from the index so that no sum of steps drifts.
struct GroundGrid {
  double minX = 0, minY = 0, maxX = 0, maxY = 0;
  double cell = 0;
  int cols = 0;
  int rows = 0;

  [[nodiscard]] std::size_t CellCount() const {
    return static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  }
  [[nodiscard]] double X(int col) const { return minX + col * cell; }
  [[nodiscard]] double Y(int row) const { return maxY - row * cell; }
};

/// Number of cells that a length holds, both ends counted; saturates.
[[nodiscard]] int CellsAlong(double low, double high, double cell);

/// The grid over the part of `footprint` that lies on the tile.
///
/// Empty without an overlap, below 2 x 2 cells, above kMaxGridBytes at `bands` bytes per cell (at
/// least one), or when a number is not finite.
[[nodiscard]] std::optional<GroundGrid> GridOnTile(const tqfd::Rect2_T<double>& footprint,
                                                   const SurfaceTile& tile, double cell, int bands);

/// Whether a ground point holds a height and falls into the photo's frame, distortion left out.
[[nodiscard]] bool IsSeen(const PhotoCamera& camera, const SurfaceTile& tile, double groundX,
                          double groundY);

/// The part of the grid's rectangle that the photo really covers, without making any pixel.
///
/// Every side moves inward in lines ten cells apart until a line holds a seen point, so edges are
/// coarse by up to ten cells. Each side is searched over the whole rectangle, whatever the others
/// have found. Stops at the first hit; a photo that sees nothing costs a tenth of the grid per
/// side.
///
/// Kept: a side that finds nothing takes the tile's own edge, and the left one takes 0, which
/// is far away in projected coordinates; the sizes that follow saturate.
[[nodiscard]] tqfd::Rect2_T<double> CoveredRect(const PhotoCamera& camera, const SurfaceTile& tile,
                                                const GroundGrid& grid);

}  // namespace tqtortho
