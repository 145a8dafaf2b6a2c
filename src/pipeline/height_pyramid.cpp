// SPDX-License-Identifier: Apache-2.0
#include "pipeline/height_pyramid.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "core/numeric.h"

namespace tqtortho {

namespace {

// Calls join(outRange, inCell) for every input cell, row by row.
template <class Cell, class Join>
void Reduce(GridView<const Cell> in, int factor, GridView<HeightRange> out, Join join) {
  for (int row = 0; row < out.rows; ++row) std::fill_n(out.Row(row), out.cols, HeightRange{});
  for (int row = 0; row < in.rows; ++row) {
    const Cell* cells = in.Row(row);
    HeightRange* ranges = out.Row(row / factor);
    for (int col = 0; col < in.cols; ++col) join(ranges[col / factor], cells[col]);
  }
}

}  // namespace

void ReduceHeights(GridView<const float> heights, float noData, int factor,
                   GridView<HeightRange> out) {
  Reduce(heights, factor, out, [noData](HeightRange& range, float height) {
    if (!std::isfinite(height)) return;
    if (std::abs(static_cast<double>(height) - noData) < kRectifyNoDataTolerance) return;
    range.low = std::min(range.low, height);
    range.high = std::max(range.high, height);
  });
}

void ReduceRanges(GridView<const HeightRange> ranges, int factor, GridView<HeightRange> out) {
  Reduce(ranges, factor, out, [](HeightRange& range, const HeightRange& cell) {
    range.low = std::min(range.low, cell.low);
    range.high = std::max(range.high, cell.high);
  });
}

HeightPyramid HeightPyramid::Build(Level finest, double minX, double maxY, double patchWidth,
                                   double patchHeight) {
  HeightPyramid pyramid;
  pyramid.minX = minX;
  pyramid.maxY = maxY;
  pyramid.patchWidth = patchWidth;
  pyramid.patchHeight = patchHeight;
  pyramid.levels.push_back(std::move(finest));
  while (pyramid.levels.back().rows > 1 || pyramid.levels.back().cols > 1) {
    const Level& below = pyramid.levels.back();
    Level level;
    level.rows = ReducedCount(below.rows, 2);
    level.cols = ReducedCount(below.cols, 2);
    level.ranges.resize(static_cast<std::size_t>(level.rows) *
                        static_cast<std::size_t>(level.cols));
    ReduceRanges(GridView<const HeightRange>(below.ranges.data(), below.rows, below.cols), 2,
                 GridView<HeightRange>(level.ranges.data(), level.rows, level.cols));
    pyramid.levels.push_back(std::move(level));
  }
  return pyramid;
}

}  // namespace tqtortho
