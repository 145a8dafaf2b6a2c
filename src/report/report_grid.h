// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "geo/ScaledRead.h"
#include "tqfd/Geometry.h"

namespace tqtortho::host {

/// The cells in which a job is shown: those of its mosaic, or larger ones of the same ground.
struct ReportGrid {
  double minX = 0;   ///< western edge
  double maxY = 0;   ///< northern edge
  double cellX = 1;  ///< positive
  double cellY = 1;
  int cols = 0;
  int rows = 0;
  std::string projection;

  [[nodiscard]] double X(int col) const { return minX + (col + 0.5) * cellX; }
  [[nodiscard]] double Y(int row) const { return maxY - (row + 0.5) * cellY; }
  [[nodiscard]] std::size_t Count() const {
    return static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows);
  }
  [[nodiscard]] std::size_t Index(int row, int col) const {
    return static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) +
           static_cast<std::size_t>(col);
  }
};

/// Cells of a grid: first ones and numbers.
struct ReportSpan {
  int firstCol = 0;
  int firstRow = 0;
  int cols = 0;
  int rows = 0;
};

/// A grid over this ground of at most `maxSide` cells on its longer side, none smaller than `cell`.
/// One without cells when the ground has no area.
[[nodiscard]] ReportGrid GridOver(const tqfd::Rect2_T<double>& ground, double cell, int maxSide);
/// A grid over a raster file's ground; false when it cannot be read or has no georeference.
[[nodiscard]] bool GridOverRaster(const std::string& path, int maxSide, ReportGrid& grid);

/// The cells whose middle lies in a ground rectangle.
[[nodiscard]] ReportSpan CellsIn(const ReportGrid& grid, const tqfd::Rect2_T<double>& ground);

/// Reads a band of a raster on the cells of the grid that it covers; the others get `outside`.
/// @return false when it cannot be read or covers none
template <class T>
[[nodiscard]] bool ReadOnGrid(const std::string& path, int band, const ReportGrid& grid,
                              geo::Scaling scaling, T outside, std::vector<T>& cells);

}  // namespace tqtortho::host
