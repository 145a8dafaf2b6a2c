// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cfloat>
#include <vector>

#include "core/grid_view.h"

namespace tqtortho {

/// Lowest and highest height of a patch of surface; empty (low > high) where it has none.
struct HeightRange {
  float low = FLT_MAX;
  float high = -FLT_MAX;
  [[nodiscard]] bool Empty() const { return !(low <= high); }
};

/// Ranges of a height grid, `factor` x `factor` cells each (the last row and column may hold
/// fewer). Cells within 0.001 of `noData` and cells that are not finite do not count. Both ends are
/// kept, so neither a tower of one cell nor a pit is lost by the reduction.
///
/// @param out  ceil(rows / factor) x ceil(cols / factor) ranges
void ReduceHeights(GridView<const float> heights, float noData, int factor,
                   GridView<HeightRange> out);
/// The same, from ranges.
void ReduceRanges(GridView<const HeightRange> ranges, int factor, GridView<HeightRange> out);

/// A surface as height ranges over ever larger square patches; the top level is one patch.
///
/// Patch (row, col) of level n covers X from minX + col * side to minX + (col + 1) * side and Y
/// likewise downward from maxY, with side = patchSide * 2^n. Immutable once made: any number of
/// threads may search it.
struct HeightPyramid {
  struct Level {
    int rows = 0;
    int cols = 0;
    std::vector<HeightRange> ranges;  ///< row-major
  };
  std::vector<Level> levels;  ///< finest first
  double minX = 0;            ///< outer edge of the first column
  double maxY = 0;            ///< outer edge of the first row
  double patchWidth = 0;      ///< ground size of a patch of the finest level
  double patchHeight = 0;

  /// Builds the levels above `finest`.
  static HeightPyramid Build(Level finest, double minX, double maxY, double patchWidth,
                             double patchHeight);
};

/// ceil(cells / factor), for positive numbers.
[[nodiscard]] inline int ReducedCount(int cells, int factor) {
  return cells / factor + (cells % factor != 0 ? 1 : 0);
}

}  // namespace tqtortho
