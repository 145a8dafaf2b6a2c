// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

#include "core/grid_view.h"
#include "core/numeric.h"

namespace tqtortho {

/// A north-up tile of the surface under a photo, as rectification sees it.
///
/// A ground point lies at column (X - minX) / cell and row rows - (Y - minY) / cell: the X
/// resolution serves both axes, and rows count from minY up, so no other expression gives the same
/// index at a cell border.
struct SurfaceTile {
  GridView<const float> heights;
  double minX = 0, minY = 0, maxX = 0, maxY = 0;
  double cell = 0;  ///< ground size of a column
  double cellY =
      0;  ///< ground size of a row as the record gives it, negative; footprint search only
  double noData = 0;
  double defaultZ = 0;  ///< height to use where the tile gives none

  [[nodiscard]] double ColumnOf(double groundX) const { return (groundX - minX) / cell; }
  [[nodiscard]] double RowOf(double groundY) const {
    return heights.rows - (groundY - minY) / cell;
  }
  /// At least the tolerance away from the no-data height. NaN is no height.
  [[nodiscard]] bool IsHeight(double height) const {
    return std::fabs(height - noData) >= kRectifyNoDataTolerance;
  }
  /// Whether the cell of a position (indices truncated) exists and holds a height.
  [[nodiscard]] bool HasHeightAt(double column, double row) const {
    const int c = TruncToInt(column);
    const int r = TruncToInt(row);
    return heights.Contains(r, c) && IsHeight(heights.At(r, c));
  }
};

}  // namespace tqtortho
